// Bounded text: every copy and every format into a fixed buffer of this program goes through here.
//
// A path, command or configuration key that is cut short is worse than none: it names another file or runs another
// command. So a text that does not fit its buffer, terminator included, ends the process with abort().
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string_view>

// Formats like printf into `out`. Aborts when the text and its NUL do not fit, or when the format fails.
void text_format(std::span<char> out, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Copies `text` into `out` and terminates it. Aborts when the text and its NUL do not fit.
// The text is taken up to its end, so a NUL inside it is copied too; callers pass C strings.
void text_copy(std::span<char> out, std::string_view text);

// Copies as much of `text` as leaves room for the NUL. For the few texts that readers know to be cut, such as a
// carrier's name. Does nothing for an empty buffer.
void text_copy_cut(std::span<char> out, std::string_view text);

// The decimal number at the start of a text as atoi reads it, 0 where there is none; numbers beyond 32 bits become
// INT32_MIN or INT32_MAX.
int32_t text_to_int(const char *text);

// Fills the whole buffer with NULs, so that a reader that finds nothing leaves an empty text.
void text_clear(std::span<char> out);

// The part of `text` before `position`, and the part from it on; all of the text and nothing where it is shorter.
// (string_view::substr would do, were it not for its exception, which needs the C++ run-time library.)
constexpr std::string_view text_before(std::string_view text, size_t position) {
    return {text.data(), std::min(position, text.size())};
}
constexpr std::string_view text_from(std::string_view text, size_t position) {
    text.remove_prefix(std::min(position, text.size()));
    return text;
}
