/* The characters that names may have. ASCII ranges, since the locale has no say in what a configuration means. */
#include "internal.h"

static bool is_name_char(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

static bool is_package_char(unsigned char c) {
    return is_name_char(c) || c == '-';
}

static bool is_type_char(unsigned char c) {
    return c >= 33 && c <= 126;
}

static bool all_chars(const char *text, bool (*allowed)(unsigned char)) {
    if (!text || !*text)
        return false;
    for (; *text; text++)
        if (!allowed((unsigned char)*text))
            return false;
    return true;
}

bool uci_valid_name(const char *name) {
    return all_chars(name, is_name_char);
}

bool uci_valid_package_name(const char *name) {
    return all_chars(name, is_package_char);
}

bool uci_valid_type(const char *type) {
    return all_chars(type, is_type_char);
}
