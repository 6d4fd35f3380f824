// Which bytes are a character, along the table of RFC 3629.
#include "platform/utf8.h"

#include <string>

#include <gtest/gtest.h>

namespace {

using namespace std::string_view_literals;

struct Case {
    std::string_view text;
    size_t length;
};

void expect_lengths(std::initializer_list<Case> cases) {
    for (const Case &one : cases) {
        EXPECT_EQ(utf8_character_length(one.text), one.length) << testing::PrintToString(one.text);
    }
}

TEST(Utf8, first_and_last_character_of_each_length) {
    expect_lengths({
        {"\x00"sv, 1},
        {"\x7F", 1},
        {"\xC2\x80", 2},
        {"\xDF\xBF", 2},
        {"\xE0\xA0\x80", 3},
        {"\xEF\xBF\xBF", 3},
        {"\xF0\x90\x80\x80", 4},
        {"\xF4\x8F\xBF\xBF", 4},
    });
}

TEST(Utf8, around_the_surrogates) {
    expect_lengths({
        {"\xED\x9F\xBF", 3},
        {"\xED\xA0\x80", 0},
        {"\xED\xBF\xBF", 0},
        {"\xEE\x80\x80", 3},
    });
}

TEST(Utf8, overlong_forms_are_no_characters) {
    expect_lengths({
        {"\xC0\x80", 0},
        {"\xC1\xBF", 0},
        {"\xE0\x80\x80", 0},
        {"\xE0\x9F\xBF", 0},
        {"\xF0\x80\x80\x80", 0},
        {"\xF0\x8F\xBF\xBF", 0},
    });
}

TEST(Utf8, values_beyond_the_last_character) {
    expect_lengths({
        {"\xF4\x90\x80\x80", 0},
        {"\xF5\x80\x80\x80", 0},
        {"\xF8\x88\x80\x80\x80", 0},
        {"\xFE", 0},
        {"\xFF", 0},
    });
}

TEST(Utf8, stray_continuation_bytes) {
    expect_lengths({{"\x80", 0}, {"\xBF", 0}, {"\xBF\x41", 0}});
}

TEST(Utf8, sequences_that_are_cut) {
    expect_lengths({
        {"", 0},
        {"\xC3", 0},
        {"\xE2\x82", 0},
        {"\xE2", 0},
        {"\xF0\x9F\x98", 0},
        {"\xF0\x9F", 0},
        {"\xF0", 0},
    });
}

TEST(Utf8, sequences_with_something_else_inside) {
    expect_lengths({
        {"\xC3\x41", 0},
        {"\xE2\x41\xAC", 0},
        {"\xE2\x82\x41", 0},
        {"\xF0\x9F\x98\x41", 0},
        {"\xF0\x9F\x41\x80", 0},
        {"\xE2\x82\xC3\xA4", 0},
    });
}

TEST(Utf8, only_the_first_character_counts) {
    expect_lengths({{"a\xFF", 1}, {"\xC3\xA4\xFF", 2}, {"\xE2\x82\xAC\x80", 3}});
}

TEST(Utf8, reads_nothing_beyond_the_text) {
    const std::string euro = "\xE2\x82\xAC";
    EXPECT_EQ(utf8_character_length(std::string_view(euro).substr(0, 2)), 0u);
}

// Every value of two bytes, against the rule itself.
TEST(Utf8, all_pairs_of_bytes) {
    for (int first = 0; first < 256; first++) {
        for (int second = 0; second < 256; second++) {
            const std::string text = {static_cast<char>(first), static_cast<char>(second)};
            const bool two = first >= 0xC2 && first <= 0xDF && second >= 0x80 && second <= 0xBF;
            const size_t expected = first < 0x80 ? 1 : two ? 2 : 0;
            ASSERT_EQ(utf8_character_length(text), expected) << first << " " << second;
        }
    }
}

} // namespace
