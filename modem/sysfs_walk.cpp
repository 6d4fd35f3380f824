// Depth-first directory walk; see sysfs_walk.h.
#include "modem/sysfs_walk.h"

#include <cstring>
#include <dirent.h>
#include <sys/stat.h>

#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr int32_t MOST_DIRECTORIES = 1000;
constexpr int FAILED = -1;

bool is_dot_entry(const char *name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

class Walk {
public:
    Walk(const char *start, int32_t *counter, VisitDirectory visit, void *context)
        : counter_(counter), visit_(visit), context_(context), length_(strlen(start)) {
        text_copy(path_, start);
    }

    // Walks the directory that path_ names; returns what was found in it and below, or FAILED.
    int directory() {
        if (*counter_ >= MOST_DIRECTORIES) {
            return FAILED;
        }
        ++*counter_;
        const Directory entries(opendir(path_));
        if (entries == nullptr) {
            return FAILED;
        }
        int found = 0;
        while (const dirent *entry = readdir(entries.get())) {
            if (is_dot_entry(entry->d_name) || !is_directory(*entry)) {
                continue;
            }
            switch (visit_(path_, entry->d_name, context_)) {
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
            const int below = subdirectory(entry->d_name);
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

private:
    int subdirectory(const char *name) {
        const size_t length_before = length_;
        append(name);
        const int found = directory();
        length_ = length_before;
        path_[length_] = '\0';
        return found;
    }

    void append(const char *name) {
        text_format(std::span(path_).subspan(length_), "/%s", name);
        length_ += 1 + strlen(name);
    }

    bool is_directory(const dirent &entry) {
        if (entry.d_type != DT_UNKNOWN) {
            return entry.d_type == DT_DIR;
        }
        // Some file systems leave the type out.
        const size_t length_before = length_;
        append(entry.d_name);
        struct stat status;
        const bool result = lstat(path_, &status) == 0 && S_ISDIR(status.st_mode);
        length_ = length_before;
        path_[length_] = '\0';
        return result;
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
    return Walk(start, counter, visit, context).directory();
}
