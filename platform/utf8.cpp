// UTF-8 well-formedness; see utf8.h.
#include "platform/utf8.h"

#include <cstdint>

namespace {

// The well-formed byte sequences (table 3-7 of the Unicode standard): the range of the first byte, the range of the
// second, and how many bytes there are; third and fourth bytes are plain continuations.
struct Sequence {
    uint8_t first_low, first_high;
    uint8_t second_low, second_high;
    uint8_t length;
};

constexpr Sequence SEQUENCES[] = {
    {0x00, 0x7F, 0x00, 0x00, 1}, //
    {0xC2, 0xDF, 0x80, 0xBF, 2}, //
    {0xE0, 0xE0, 0xA0, 0xBF, 3}, // no overlong forms
    {0xE1, 0xEC, 0x80, 0xBF, 3}, //
    {0xED, 0xED, 0x80, 0x9F, 3}, // no surrogates
    {0xEE, 0xEF, 0x80, 0xBF, 3}, //
    {0xF0, 0xF0, 0x90, 0xBF, 4}, // no overlong forms
    {0xF1, 0xF3, 0x80, 0xBF, 4}, //
    {0xF4, 0xF4, 0x80, 0x8F, 4}, // nothing above U+10FFFF
};

bool within(uint8_t byte, uint8_t low, uint8_t high) {
    return byte >= low && byte <= high;
}

} // namespace

size_t utf8_character_length(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    const auto byte = [text](size_t index) { return static_cast<uint8_t>(text[index]); };
    for (const Sequence &sequence : SEQUENCES) {
        if (!within(byte(0), sequence.first_low, sequence.first_high)) {
            continue;
        }
        if (text.size() < sequence.length) {
            return 0;
        }
        if (sequence.length > 1 && !within(byte(1), sequence.second_low, sequence.second_high)) {
            return 0;
        }
        for (size_t index = 2; index < sequence.length; index++) {
            if (!within(byte(index), 0x80, 0xBF)) {
                return 0;
            }
        }
        return sequence.length;
    }
    return 0;
}
