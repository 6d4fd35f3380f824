// Depth-first directory walk; see sysfs_walk.h.
#include "modem/sysfs_walk.h"

#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr int FAILED = -1;

bool is_dot_entry(const char *name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// The entries of one directory, straight from the kernel: open, getdents64 until it is empty, close. A discovery opens
// every directory of the tree, and opendir(3) would add a stat and a heap buffer of 32 KiB to each.
class Entries {
public:
    // A directory by its path, or by its name in one that is open.
    Entries(const Entries *parent, const char *name)
        : directory_(parent == nullptr ? open(name, FLAGS) : openat(parent->directory_.get(), name, FLAGS)) {}

    bool opened() const { return directory_.valid(); }
    int descriptor() const { return directory_.get(); }

    struct Entry {
        const char *name;
        unsigned char type; // a DT_ value of <dirent.h>
    };

    // The next entry, valid until the next call; false at the end or on an error.
    bool next(Entry *entry) {
        if (position_ >= filled_ && !fill()) {
            return false;
        }
        const char *record = buffer_ + position_;
        uint16_t length;
        memcpy(&length, record + offsetof(Record, length), sizeof length);
        position_ += length;
        entry->type = static_cast<unsigned char>(record[offsetof(Record, type)]);
        entry->name = record + offsetof(Record, name);
        return true;
    }

private:
    static constexpr int FLAGS = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

    // struct linux_dirent64 of getdents64(2).
    struct Record {
        uint64_t inode;
        int64_t offset;
        uint16_t length;
        unsigned char type;
        char name[];
    };

    bool fill() {
        const long got = syscall(SYS_getdents64, directory_.get(), buffer_, sizeof buffer_);
        position_ = 0;
        filled_ = got > 0 ? static_cast<size_t>(got) : 0;
        return filled_ > 0;
    }

    Descriptor directory_;
    // Room for most directories of sysfs in one piece; each level of the walk has such a buffer on the stack.
    alignas(Record) char buffer_[1024];
    size_t position_ = 0;
    size_t filled_ = 0;
};

class Walk {
public:
    Walk(const char *start, int32_t *counter, VisitDirectory visit, void *context)
        : counter_(counter), visit_(visit), context_(context), length_(strlen(start)) {
        text_copy(path_, start);
    }

    int start() { return directory(nullptr, path_); }

private:
    // Walks the directory that path_ names, `name` in `parent`; returns what was found in it and below, or FAILED. The
    // kernel then looks up one name for each, and not the whole path from the root on.
    int directory(const Entries *parent, const char *name) {
        if (*counter_ >= MOST_DIRECTORIES) {
            return FAILED;
        }
        ++*counter_;
        Entries entries(parent, name);
        if (!entries.opened()) {
            return FAILED;
        }
        int found = 0;
        Entries::Entry entry;
        while (entries.next(&entry)) {
            // Most entries of sysfs are files, and their type is there at once.
            if (!is_directory(entries, entry) || is_dot_entry(entry.name)) {
                continue;
            }
            switch (visit_(path_, entry.name, context_)) {
            case Visit::FOUND_END:
                ended_ = true;
                return found + 1;
            case Visit::FOUND_LEAVE:
                return found + 1;
            case Visit::LEAVE:
                return found;
            case Visit::FOUND_DESCEND:
                found++;
                break;
            case Visit::DESCEND:
                break;
            }
            const int below = subdirectory(entries, entry.name);
            if (below == FAILED) {
                return FAILED;
            }
            found += below;
            if (ended_) {
                break;
            }
        }
        return found;
    }

    int subdirectory(const Entries &entries, const char *name) {
        const size_t length_before = length_;
        const size_t name_length = strlen(name);
        text_copy(std::span(path_).subspan(length_), "/");
        text_copy(std::span(path_).subspan(length_ + 1), {name, name_length});
        length_ += 1 + name_length;
        const int found = directory(&entries, name);
        length_ = length_before;
        path_[length_] = '\0';
        return found;
    }

    static bool is_directory(const Entries &entries, const Entries::Entry &entry) {
        if (entry.type != DT_UNKNOWN) {
            return entry.type == DT_DIR;
        }
        // Some file systems leave the type out.
        struct stat status;
        return fstatat(entries.descriptor(), entry.name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
    }

    int32_t *counter_;
    VisitDirectory visit_;
    void *context_;
    char path_[SYSFS_PATH_SIZE];
    size_t length_;
    bool ended_ = false;
};

} // namespace

int walk_directories(const char *start, int32_t *counter, VisitDirectory visit, void *context) {
    return Walk(start, counter, visit, context).start();
}
