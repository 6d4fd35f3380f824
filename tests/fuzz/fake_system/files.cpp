// Calls that open, close or change a file or directory.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>

#include "machine.h"

using namespace machine;

namespace {

FILE *open_files[MOST_DESCRIPTORS];

FILE *record_file(FILE *file) {
    if (file != nullptr) {
        *std::find(std::begin(open_files), std::end(open_files) - 1, nullptr) = file;
    }
    return file;
}

} // namespace

void machine::close_open_files() {
    for (FILE *file : open_files) {
        if (file != nullptr) {
            fclose(file);
        }
    }
}

void machine::forget_open_files() {
    std::fill(std::begin(open_files), std::end(open_files), nullptr);
}

// NOLINTBEGIN: the linker prescribes these names.
extern "C" int __real_open(const char *path, int flags, ...);

int machine::open_stand_in(Kind kind) {
    return opened_as(kind, __real_open("/dev/null", O_RDWR | O_CLOEXEC));
}

extern "C" {

int __real_ftruncate(int fd, off_t length);
int __wrap_ftruncate(int fd, off_t length) {
    return fails(Call::TRUNCATE) ? -1 : __real_ftruncate(fd, length);
}

int __real_mkostemp(char *name, int flags);
int __wrap_mkostemp(char *name, int flags) {
    return fails(Call::OPEN) ? -1 : __real_mkostemp(name, flags);
}

int __wrap_open(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (current == nullptr) {
        return __real_open(path, flags, mode);
    }
    {
        const Answering system;
        if (system->is_tty(path)) {
            return system->control_succeeds() ? open_stand_in(Kind::TTY) : fail(ENXIO);
        }
    }
    if (fails(Call::OPEN)) {
        return -1;
    }
    const char *real = (flags & O_CREAT) != 0 ? changed_path(path) : real_path(path);
    return opened_as(Kind::FILE, __real_open(real, flags, mode));
}

// By a name in a directory that is open, and so of the machine played here already.
int __real_openat(int directory, const char *name, int flags, ...);
int __wrap_openat(int directory, const char *name, int flags, ...) {
    return fails(Call::OPEN) ? -1 : __real_openat(directory, name, flags);
}

int __real_close(int fd);
int __wrap_close(int fd) {
    const bool tty = kind_of(fd) == Kind::TTY;
    forget_kind(fd);
    const int result = __real_close(fd);
    return tty && result == 0 ? control_result(EIO) : result;
}

FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
    if (fails(Call::OPEN)) {
        return nullptr;
    }
    return current != nullptr ? record_file(__real_fopen(real_path(path), mode)) : __real_fopen(path, mode);
}

FILE *__real_fdopen(int fd, const char *mode);
FILE *__wrap_fdopen(int fd, const char *mode) {
    FILE *file = fails(Call::OPEN) ? nullptr : __real_fdopen(fd, mode);
    return current != nullptr ? record_file(file) : file;
}

int __real_fclose(FILE *file);
int __wrap_fclose(FILE *file) {
    if (current != nullptr) {
        std::replace(std::begin(open_files), std::end(open_files), file, static_cast<FILE *>(nullptr));
    }
    return __real_fclose(file);
}

DIR *__real_opendir(const char *path);
DIR *__wrap_opendir(const char *path) {
    return __real_opendir(current != nullptr ? real_path(path) : path);
}

int __real_access(const char *path, int mode);
int __wrap_access(const char *path, int mode) {
    return __real_access(current != nullptr ? real_path(path) : path, mode);
}

int __real_unlink(const char *path);
int __wrap_unlink(const char *path) {
    return __real_unlink(changed_path(path));
}

int __real_remove(const char *path);
int __wrap_remove(const char *path) {
    return __real_remove(changed_path(path));
}

int __real_rename(const char *from, const char *to);
int __wrap_rename(const char *from, const char *to) {
    if (fails(Call::RENAME)) {
        return -1;
    }
    return __real_rename(changed_path(from), changed_path(to));
}

int __real_mkdir(const char *path, mode_t mode);
int __wrap_mkdir(const char *path, mode_t mode) {
    return __real_mkdir(changed_path(path), mode);
}

int __real_stat(const char *path, struct stat *status);
int __wrap_stat(const char *path, struct stat *status) {
    return __real_stat(current != nullptr ? real_path(path) : path, status);
}

char *__real_realpath(const char *path, char *resolved);
char *__wrap_realpath(const char *path, char *resolved) {
    return __real_realpath(current != nullptr ? real_path(path) : path, resolved);
}

int __real_fsync(int fd);
int __wrap_fsync(int fd) {
    return current != nullptr ? 0 : __real_fsync(fd);
}

} // extern "C"
// NOLINTEND
