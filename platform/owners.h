// Small owners for what must be released on every path: descriptors, files, memory, json-c references.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

#include <json-c/json.h>

// Moves a descriptor out of the way of the three standard streams, which the host of a plug-in may have closed: what is
// written to standard error must not end up in the file that took its number. Returns the descriptor, or -1 with the
// old one closed.
inline int above_the_streams(int fd) {
    if (fd < 0 || fd > STDERR_FILENO) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(fd);
    return moved;
}

// Owns a file descriptor; -1 is none.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    // Hands the descriptor over to the caller.
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_;
};

struct CloseFile {
    void operator()(FILE *file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

struct FreeMemory {
    void operator()(void *memory) const { free(memory); }
};
template <typename T> using Allocated = std::unique_ptr<T, FreeMemory>;

// Owns one reference of a json-c object. Handing the object to a parent takes release(), as json-c's adders take over
// the reference.
struct PutJson {
    void operator()(json_object *object) const { json_object_put(object); }
};
using Json = std::unique_ptr<json_object, PutJson>;
