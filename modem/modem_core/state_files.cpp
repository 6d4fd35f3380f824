// Files of the state directory; see state_files.h.
#include "modem/modem_core/state_files.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "modem/bus_name.h"
#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr size_t PATH_SIZE = 40;
constexpr size_t DRAFT_PATH_SIZE = PATH_SIZE + sizeof ".-2147483648";
constexpr mode_t MODE = 0666; // less what the umask takes, as for a file that stdio creates

struct StatePath {
    StatePath(const char *bus, const char *name) { text_format(text, "/tmp/modem.%s/%s", bus, name); }

    char text[PATH_SIZE];
};

bool write_all(int fd, std::string_view content) {
    while (!content.empty()) {
        const ssize_t written = write(fd, content.data(), content.size());
        if (written > 0) {
            content.remove_prefix(static_cast<size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

} // namespace

int state_file_read(const char *bus, const char *name, std::span<char> out) {
    const StatePath path(bus, name);
    // O_NONBLOCK: whatever somebody puts there, no query may hang on it.
    const Descriptor file(open(path.text, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.valid()) {
        return errno == ENOENT || errno == ENOTDIR ? STATE_FILE_ABSENT : STATE_FILE_UNREADABLE;
    }
    size_t length = 0;
    while (length < out.size()) {
        const ssize_t got = read(file.get(), out.data() + length, out.size() - length);
        if (got > 0) {
            length += static_cast<size_t>(got);
        } else if (got == 0 || errno != EINTR) {
            break;
        }
    }
    return static_cast<int>(length);
}

int state_file_write(const char *bus, const char *name, std::string_view content) {
    make_modem_dir(bus);
    const StatePath path(bus, name);
    // Written aside and moved into place. Several programs ask for the same modem at the same time, and one that found
    // the file still empty would take it for damaged.
    char draft[DRAFT_PATH_SIZE];
    text_format(draft, "%s.%d", path.text, static_cast<int>(getpid()));
    const Descriptor file(open(draft, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, MODE));
    if (!file.valid()) {
        return -1;
    }
    if (!write_all(file.get(), content)) {
        unlink(draft);
        return 0;
    }
    if (rename(draft, path.text) != 0) {
        unlink(draft);
        return -1;
    }
    return 0;
}

void state_file_remove(const char *bus, const char *name) {
    remove(StatePath(bus, name).text);
}
