// The firmware version; see firmware_version.h.
#include "modem/modem_core/firmware_version.h"

#include <cstring>

void keep_version_characters(const char *text, std::span<char> version) {
    constexpr const char *KEPT = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._";
    size_t length = 0;
    for (; *text != '\0' && length + 1 < version.size(); text++) {
        if (strchr(KEPT, *text) != nullptr) {
            version[length++] = *text;
        }
    }
    version[length] = '\0';
}
