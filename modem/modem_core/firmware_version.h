// The firmware version in the form in which clients show and compare it.
#pragma once

#include <span>

// At most 128 characters of a version count.
constexpr size_t FIRMWARE_VERSION_SIZE = 129;

// Keeps of `text` the letters A to Z and a to z, the digits, dots and underscores, in their order: what a line of the
// version query has before and behind the version is blanks and line ends, or its label, which stays. The result is cut
// to the buffer.
void keep_version_characters(const char *text, std::span<char> version);
