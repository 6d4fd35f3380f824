// Directory trees for the searches, and the order in which they meet the entries.
#pragma once

#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/files.h"

// Makes the directories below `root`, with all above them.
inline void make_tree(const ScratchDirectory &root, std::initializer_list<const char *> directories) {
    for (const char *directory : directories) {
        std::filesystem::create_directories(root / directory);
    }
}

// The subdirectories of a directory in the order in which readdir() gives them.
inline std::vector<std::string> in_reading_order(const std::string &directory) {
    std::vector<std::string> names;
    DIR *opened = opendir(directory.c_str());
    EXPECT_NE(opened, nullptr) << directory;
    while (const dirent *entry = opened == nullptr ? nullptr : readdir(opened)) {
        const std::string name = entry->d_name;
        if (name != "." && name != ".." &&
            std::filesystem::symlink_status(directory + "/" + name).type() == std::filesystem::file_type::directory) {
            names.push_back(name);
        }
    }
    if (opened != nullptr) {
        closedir(opened);
    }
    return names;
}
