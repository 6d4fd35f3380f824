// UCS-2 text, as received messages carry it, to UTF-8.
#pragma once

#include <span>

// Converts the first `length` bytes of `in` (all of it where that is less) with the C library's converter from "UCS2",
// into `out`, a zero-filled buffer, using at most `room` bytes of it and always leaving one NUL at its end. What was
// converted before an invalid or cut sequence stays. `out` stays empty where the C library has no such converter.
void ucs2_to_utf8(std::span<char> in, size_t length, std::span<char> out, size_t room);
