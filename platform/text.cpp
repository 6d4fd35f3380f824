// Bounded copy and format; see text.h for the rule.
#include "platform/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

void text_format(std::span<char> out, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(out.data(), out.size(), format, arguments);
    va_end(arguments);
    if (length < 0 || static_cast<size_t>(length) >= out.size()) {
        abort();
    }
}

void text_copy(std::span<char> out, std::string_view text) {
    if (text.size() >= out.size()) {
        abort();
    }
    text_copy_cut(out, text);
}

void text_copy_cut(std::span<char> out, std::string_view text) {
    if (out.empty()) {
        return;
    }
    const size_t length = std::min(text.size(), out.size() - 1);
    if (length > 0) {
        memcpy(out.data(), text.data(), length);
    }
    out[length] = '\0';
}

void text_clear(std::span<char> out) {
    std::fill(out.begin(), out.end(), '\0');
}

int32_t text_to_int(const char *text) {
    return static_cast<int32_t>(std::clamp<long>(strtol(text, nullptr, 10), INT32_MIN, INT32_MAX));
}
