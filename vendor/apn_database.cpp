// APNs by IMSI and from the database; see apn_database.h.
#include "vendor/apn_database.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "modem/modem_core/identity.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"

json_object *isp_object = nullptr;

namespace {

constexpr off_t SCRIPT_PREFIX = 24;
constexpr size_t CODE_LENGTH = 3;

struct CustomApn {
    char imsi_prefix[12];
    char apn[12];
};

// SIMs that need their APN whatever network they report, in the order in which they are tried.
constexpr CustomApn CUSTOM_APNS[] = {
    {"90146", "globalnet"},       {"22862", "globalnet"},      {"2220130686", "globalnet"}, {"222013090", "globalnet"},
    {"20404389621", "globalnet"}, {"2040469990", "globalnet"}, {"2340302082", "globalnet"}, {"2345533000", "globalnet"},
    {"4000299991", "globalnet"},  {"4240200759", "globalnet"}, {"5150302029", "globalnet"}, {"7300130100", "globalnet"},
    {"311480", "vzwinternet"},    {"311270", "vzwinternet"},
};

// Reads up to `size` bytes; fewer where the file ends before. -1 on an error.
ssize_t read_all(int fd, char *out, size_t size) {
    size_t length = 0;
    while (length < size) {
        const ssize_t got = read(fd, out + length, size - length);
        if (got == 0) {
            break;
        }
        if (got > 0) {
            length += static_cast<size_t>(got);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(length);
}

// The text behind the script prefix, NUL-terminated; null where it cannot be had.
Allocated<char> read_database_text(const char *file_name) {
    const Descriptor file(open(file_name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    if (!file.valid() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size < SCRIPT_PREFIX || lseek(file.get(), SCRIPT_PREFIX, SEEK_SET) != SCRIPT_PREFIX) {
        return nullptr;
    }
    const auto length = static_cast<size_t>(status.st_size - SCRIPT_PREFIX);
    Allocated<char> text(static_cast<char *>(malloc(length + 1)));
    if (text == nullptr) {
        return nullptr;
    }
    const ssize_t got = read_all(file.get(), text.get(), length);
    if (got < 0) {
        return nullptr;
    }
    text.get()[got] = '\0';
    return text;
}

bool member_equals(json_object *entry, const char *key, const char *expected) {
    const char *text = vjson_get_string(entry, key);
    return text != nullptr && strcmp(text, expected) == 0;
}

} // namespace

int parse_apn_database(const char *file_name, json_object **database) {
    if (file_name == nullptr) {
        abort();
    }
    const Allocated<char> text = read_database_text(file_name);
    if (text == nullptr) {
        return -1;
    }
    json_object_put(*database);
    *database = json_tokener_parse(text.get());
    return 0;
}

int find_apns(json_object *database, const char *mcc, const char *mnc, json_object *entries) {
    json_object *list = vjson_get_object(vjson_get_object(database, "apns"), "apn");
    if (!json_object_is_type(list, json_type_array)) {
        return -1;
    }
    int found = 0;
    for (size_t index = 0; index < json_object_array_length(list); index++) {
        json_object *entry = json_object_array_get_idx(list, index);
        if (member_equals(entry, "-mcc", mcc) && member_equals(entry, "-mnc", mnc)) {
            vjson_array_add_object(entries, json_object_get(entry));
            found++;
        }
    }
    return found;
}

const char *custom_apn(const char *imsi) {
    for (const CustomApn &row : CUSTOM_APNS) {
        if (std::string_view(imsi).starts_with(row.imsi_prefix)) {
            return row.apn;
        }
    }
    return nullptr;
}

int get_custom_apns(const ModemModel &model, json_object *entries, json_object *names) {
    char imsi[32] = {};
    if (modem_get_imsi(model, imsi) != 0) {
        return -1;
    }
    const char *apn = custom_apn(imsi);
    if (apn == nullptr) {
        return -1;
    }
    if (entries != nullptr) {
        char mcc[CODE_LENGTH + 1];
        char mnc[CODE_LENGTH + 1];
        text_copy(mcc, {imsi, CODE_LENGTH});
        text_copy(mnc, {imsi + CODE_LENGTH, CODE_LENGTH});
        json_object *entry = json_object_new_object();
        vjson_add_string(entry, "-mcc", mcc);
        vjson_add_string(entry, "-mnc", mnc);
        vjson_add_string(entry, "-apn", apn);
        vjson_array_add_object(entries, entry);
    }
    vjson_array_add_string(names, apn);
    return 0;
}
