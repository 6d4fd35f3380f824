// Where this program lies.
#pragma once

#include <span>
#include <unistd.h>

// The path of the program that runs, links followed; false where it is not known.
inline bool read_own_path(std::span<char> path) {
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size() - 1);
    if (length <= 0) {
        return false;
    }
    path[static_cast<size_t>(length)] = '\0';
    return true;
}
