// Values of the status block by their labels; see sierra_status.h.
#include "vendor/sierra_status.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/text.h"

namespace {

// What follows the label; null where it is not in the text.
const char *behind(const char *text, const char *label) {
    const char *found = strstr(text, label);
    return found != nullptr ? found + strlen(label) : nullptr;
}

} // namespace

int sierra_read_int(const char *text, const char *label, int32_t *value) {
    const char *number = behind(text, label);
    if (number == nullptr) {
        return -1;
    }
    char *end = nullptr;
    const long read = strtol(number, &end, 10);
    if (end == number) {
        return -1;
    }
    *value = static_cast<int32_t>(std::clamp<long>(read, INT32_MIN, INT32_MAX));
    return 0;
}

int sierra_read_label(const char *text, const char *label, size_t occurrence, std::span<char> value) {
    const char *sent = behind(text, label);
    for (size_t passed = 0; sent != nullptr && passed < occurrence; passed++) {
        sent = behind(sent, label);
    }
    if (sent == nullptr) {
        return -1;
    }
    // The cut comes first: a long value may lose its end and then the blanks before it, too.
    std::string_view read = text_before({sent, strcspn(sent, "\r\n\t")}, SIERRA_LONGEST_VALUE);
    if (read.empty()) {
        return -1;
    }
    while (read.ends_with(' ')) {
        read.remove_suffix(1);
    }
    while (read.starts_with(' ')) {
        read.remove_prefix(1);
    }
    text_copy(value, read);
    return 0;
}
