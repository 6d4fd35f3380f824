// Bounded text: what fits is complete and terminated, what does not ends the process.
#include "platform/text.h"

#include <array>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/aborts.h"

namespace {

TEST(TextFormat, formats_like_printf) {
    std::array<char, 32> out;
    text_format(out, "/dev/%s%d", "ttyUSB", 2);
    EXPECT_STREQ(out.data(), "/dev/ttyUSB2");
}

TEST(TextFormat, a_text_that_just_fits_is_complete_and_terminated) {
    std::array<char, 6> out;
    out.fill('x');
    text_format(out, "%s", "1-1.2");
    EXPECT_STREQ(out.data(), "1-1.2");
}

TEST(TextFormat, one_character_too_many_aborts) {
    std::array<char, 5> out;
    EXPECT_ABORT(text_format(out, "%s", "1-1.2"));
}

TEST(TextFormat, an_endless_text_aborts) {
    std::array<char, 64> out;
    EXPECT_ABORT(text_format(out, "%1000000d", 1));
}

TEST(TextFormat, even_an_empty_text_does_not_fit_no_buffer) {
    EXPECT_ABORT(text_format(std::span<char>(), "%s", ""));
}

TEST(TextFormat, an_empty_text_fits_one_byte) {
    std::array<char, 1> out = {'x'};
    text_format(out, "%s", "");
    EXPECT_EQ(out[0], '\0');
}

TEST(TextFormat, a_format_that_fails_aborts) {
    std::array<char, 32> out;
    // No multibyte form in the "C" locale, so that printf itself fails.
    static const wchar_t unwritable[] = {0xD800, 0};
    EXPECT_ABORT(text_format(out, "%ls", unwritable));
}

TEST(TextCopy, copies_and_terminates) {
    std::array<char, 6> out;
    out.fill('x');
    text_copy(out, "1-1.2");
    EXPECT_STREQ(out.data(), "1-1.2");
}

TEST(TextCopy, leaves_what_follows_the_terminator) {
    std::array<char, 8> out;
    out.fill('x');
    text_copy(out, "abc");
    EXPECT_EQ(std::string_view(out.data(), out.size()), std::string_view("abc\0xxxx", 8));
}

TEST(TextCopy, one_character_too_many_aborts) {
    std::array<char, 5> out;
    EXPECT_ABORT(text_copy(out, "1-1.2"));
}

TEST(TextCopy, even_an_empty_text_does_not_fit_no_buffer) {
    EXPECT_ABORT(text_copy(std::span<char>(), ""));
}

TEST(TextCopy, takes_a_view_without_terminator_to_its_end) {
    const std::string long_text = "ttyUSB2 and more";
    std::array<char, 8> out;
    text_copy(out, std::string_view(long_text).substr(0, 7));
    EXPECT_STREQ(out.data(), "ttyUSB2");
}

TEST(TextCopyCut, cuts_what_does_not_fit) {
    std::array<char, 5> out;
    text_copy_cut(out, "1-1.2");
    EXPECT_STREQ(out.data(), "1-1.");
}

TEST(TextCopyCut, copies_what_just_fits) {
    std::array<char, 6> out;
    text_copy_cut(out, "1-1.2");
    EXPECT_STREQ(out.data(), "1-1.2");
}

TEST(TextCopyCut, one_byte_holds_the_terminator_only) {
    std::array<char, 1> out = {'x'};
    text_copy_cut(out, "abc");
    EXPECT_EQ(out[0], '\0');
}

TEST(TextCopyCut, does_nothing_for_an_empty_buffer) {
    text_copy_cut(std::span<char>(), "abc");
}

TEST(TextClear, fills_all_with_nuls) {
    std::array<char, 4> out;
    out.fill('x');
    text_clear(out);
    EXPECT_EQ(std::string_view(out.data(), out.size()), std::string_view("\0\0\0\0", 4));
    text_clear(std::span<char>());
}

TEST(TextParts, before_and_from_a_position) {
    EXPECT_EQ(text_before("halvor,x", 6), "halvor");
    EXPECT_EQ(text_from("halvor,x", 6), ",x");
}

TEST(TextParts, a_position_beyond_the_end_gives_all_and_nothing) {
    EXPECT_EQ(text_before("abc", 4), "abc");
    EXPECT_EQ(text_from("abc", 4), "");
    EXPECT_EQ(text_before("abc", std::string_view::npos), "abc");
    EXPECT_EQ(text_from("abc", std::string_view::npos), "");
    EXPECT_EQ(text_before({}, 1), "");
    EXPECT_EQ(text_from({}, 1), "");
}

TEST(TextToInt, as_atoi_reads_it) {
    EXPECT_EQ(text_to_int("-95"), -95);
    EXPECT_EQ(text_to_int("+7"), 7);
    EXPECT_EQ(text_to_int(" 12dB"), 12);
    EXPECT_EQ(text_to_int("0x10"), 0);
    EXPECT_EQ(text_to_int("007"), 7);
    for (const char *text : {"", "-", "--65", "LTE", "- 5"}) {
        EXPECT_EQ(text_to_int(text), 0) << text;
    }
}

TEST(TextToInt, numbers_beyond_32_bits) {
    EXPECT_EQ(text_to_int("2147483647"), INT32_MAX);
    EXPECT_EQ(text_to_int("2147483648"), INT32_MAX);
    EXPECT_EQ(text_to_int("-2147483649"), INT32_MIN);
    EXPECT_EQ(text_to_int("99999999999999999999999999"), INT32_MAX);
    EXPECT_EQ(text_to_int("-99999999999999999999999999"), INT32_MIN);
}

} // namespace
