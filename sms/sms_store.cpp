// The SMS spool as a message store; see sms_store.h.
#include "sms/sms_store.h"

#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/json.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "sms/sms_message.h"

namespace {

constexpr const char *INCOMING = "/etc/spool/sms/incoming/";
constexpr const char *STORAGE = "/etc/spool/sms/storage/";

constexpr const char *THIRD_PORT_BUS = "1-1.3";
constexpr const char *THIRD_PORT_PREFIX = "VMS98."; // of the files of the modem on that bus,
constexpr const char *OTHER_PREFIX = "VMS99.";      // and of those on all others

struct Spool {
    const char *directory;
    const char *status;
};

// In the order in which they are listed and searched.
constexpr Spool SPOOLS[] = {
    {INCOMING, "unread"},
    {STORAGE, "read"},
};

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

using SmsPath = char[SMS_PATH_SIZE];

void make_path(SmsPath &path, const char *directory, const char *file_name) {
    text_format(path, "%s%s", directory, file_name);
}

// Names come from clients too: one that leads out of the spool, or means a directory itself, is no message.
bool is_file_name(const char *name) {
    return name[0] != '\0' && strchr(name, '/') == nullptr && strcmp(name, ".") != 0 && strcmp(name, "..") != 0;
}

// Not everything in a directory is a file: a pipe must not make its reader wait, so it is not even opened to block.
File open_message(const char *path) {
    Descriptor fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    if (!fd.valid() || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return nullptr;
    }
    File file(fdopen(fd.get(), "r"));
    if (file != nullptr) {
        fd.release();
    }
    return file;
}

void list_message(const Spool &spool, const char *name, json_object *messages) {
    SmsPath path;
    make_path(path, spool.directory, name);
    const File file = open_message(path);
    Json message(json_object_new_object());
    if (file == nullptr || message == nullptr) {
        return;
    }
    read_sms_message(file.get(), message.get());
    vjson_add_string(message.get(), "status", spool.status);
    vjson_add_string(message.get(), "name", name);
    vjson_array_add_object(messages, message.release());
}

bool is_directory(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

int modem_list_sms(json_object *messages) {
    for (const Spool &spool : SPOOLS) {
        const Directory directory(opendir(spool.directory));
        if (directory == nullptr) {
            return 0;
        }
        while (const dirent *entry = readdir(directory.get())) {
            if (strstr(entry->d_name, OTHER_PREFIX) != nullptr) {
                list_message(spool, entry->d_name, messages);
            }
        }
    }
    return 0;
}

int modem_check_new_sms(const char *bus) {
    const char *prefix = strcmp(bus, THIRD_PORT_BUS) == 0 ? THIRD_PORT_PREFIX : OTHER_PREFIX;
    const Directory directory(opendir(INCOMING));
    if (directory == nullptr) {
        return 0;
    }
    int count = 0;
    while (const dirent *entry = readdir(directory.get())) {
        count += strstr(entry->d_name, prefix) != nullptr ? 1 : 0;
    }
    return count;
}

int modem_del_sms(const char *file_name) {
    if (!is_file_name(file_name)) {
        return -1;
    }
    for (const Spool &spool : SPOOLS) {
        SmsPath path;
        make_path(path, spool.directory, file_name);
        if (unlink(path) == 0) {
            return 0;
        }
    }
    return -1;
}

int modem_del_all_sms() {
    for (const Spool &spool : SPOOLS) {
        if (!is_directory(spool.directory)) {
            return -1;
        }
    }
    execCommand("rm /etc/spool/sms/incoming/*");
    execCommand("rm /etc/spool/sms/storage/*");
    return 0;
}

int modem_sms_replace_status(const char *file_name) {
    if (is_file_name(file_name)) {
        SmsPath from;
        SmsPath to;
        make_path(from, INCOMING, file_name);
        make_path(to, STORAGE, file_name);
        // A message that is not among the unread ones stays as it is.
        rename(from, to);
    }
    return 0;
}
