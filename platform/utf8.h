// UTF-8 as RFC 3629 has it: which bytes of a text are characters.
#pragma once

#include <cstddef>
#include <string_view>

// The length in bytes (1 to 4) of the character that `text` begins with; 0 where its first byte begins none: a stray
// continuation byte, an overlong form, a surrogate, a value above U+10FFFF, a sequence that is cut, or an empty text.
size_t utf8_character_length(std::string_view text);
