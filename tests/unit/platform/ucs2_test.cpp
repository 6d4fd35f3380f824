// UCS-2 to UTF-8. The input is in the byte order that the C library means by "UCS2", so the tests ask it for theirs.
#include "platform/ucs2.h"

#include <cstring>
#include <iconv.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/aborts.h"

namespace {

bool converters = true;

std::string ucs2(std::string text) {
    iconv_t converter = iconv_open("UCS2", "UTF-8");
    EXPECT_NE(converter, reinterpret_cast<iconv_t>(-1));
    std::string out(text.size() * 4, '\0');
    char *in_at = text.data();
    char *out_at = out.data();
    size_t in_left = text.size();
    size_t out_left = out.size();
    EXPECT_EQ(iconv(converter, &in_at, &in_left, &out_at, &out_left), 0u);
    iconv_close(converter);
    out.resize(out.size() - out_left);
    return out;
}

struct Converted {
    std::vector<char> out;
    std::string text() const { return {out.data(), strnlen(out.data(), out.size())}; }
};

Converted convert(std::string in, size_t length, size_t out_size, size_t room) {
    Converted result{std::vector<char>(out_size)};
    ucs2_to_utf8(in, length, result.out, room);
    return result;
}

TEST(Ucs2, ascii_and_characters_of_two_and_three_bytes) {
    const std::string text = "Grüße, 5 €, 你好";
    const std::string in = ucs2(text);
    EXPECT_EQ(convert(in, in.size(), 2048, 2048).text(), text);
}

TEST(Ucs2, a_buffer_without_any_room_is_left_alone) {
    std::string in = ucs2("abc");
    std::vector<char> out(4, 'x');
    ucs2_to_utf8(in, in.size(), std::span(out).first(0), 63);
    EXPECT_EQ(out, std::vector<char>(4, 'x'));
}

TEST(Ucs2, a_length_beyond_the_input_means_all_of_it) {
    const std::string in = ucs2("abc");
    EXPECT_EQ(convert(in, 100000, 2048, 2048).text(), "abc");
}

TEST(Ucs2, only_the_first_length_bytes_are_converted) {
    EXPECT_EQ(convert(ucs2("abcdef"), 6, 2048, 2048).text(), "abc");
}

TEST(Ucs2, a_character_that_is_cut_in_half_is_left_out) {
    EXPECT_EQ(convert(ucs2("abc"), 5, 2048, 2048).text(), "ab");
}

TEST(Ucs2, what_came_before_an_invalid_sequence_stays) {
    std::string in = ucs2("ab");
    const char16_t lone_surrogate = 0xD800;
    in.append(reinterpret_cast<const char *>(&lone_surrogate), sizeof(lone_surrogate));
    in += ucs2("c");
    EXPECT_EQ(convert(in, in.size(), 2048, 2048).text(), "ab");
}

TEST(Ucs2, nothing_in_nothing_out) {
    EXPECT_EQ(convert("", 0, 16, 16).text(), "");
    EXPECT_EQ(convert(ucs2("abc"), 0, 16, 16).text(), "");
    EXPECT_EQ(convert(ucs2("abc"), 6, 16, 0).text(), "");
    EXPECT_EQ(convert("a", 1, 16, 16).text(), "");
}

TEST(Ucs2, no_more_than_room_bytes_are_used) {
    const Converted result = convert(ucs2("abcdefgh"), 16, 32, 4);
    EXPECT_LE(result.text().size(), 4u);
    EXPECT_EQ(std::string("abcd").substr(0, result.text().size()), result.text());
    EXPECT_GE(result.text().size(), 3u);
}

TEST(Ucs2, a_character_that_does_not_fit_the_room_is_left_out_whole) {
    EXPECT_EQ(convert(ucs2("ab€"), 6, 32, 4).text(), "ab");
}

TEST(Ucs2, the_last_byte_of_the_buffer_stays_nul) {
    const std::string in = ucs2(std::string(64, 'x'));
    for (size_t size : {1u, 2u, 5u, 8u, 64u}) {
        const Converted result = convert(in, in.size(), size, 100000);
        EXPECT_EQ(result.text(), std::string(size - 1, 'x'));
        EXPECT_EQ(result.out.back(), '\0');
    }
}

TEST(Ucs2, nul_characters_are_converted_too) {
    std::string in = ucs2("a");
    in.append(2, '\0');
    in += ucs2("b");
    const Converted result = convert(in, in.size(), 8, 8);
    EXPECT_EQ(std::string(result.out.data(), 4), std::string("a\0b\0", 4));
}

// A C library may come without the conversion, or have no memory for it.
TEST(Ucs2, without_a_converter_nothing_is_written) {
    const std::string in = ucs2("text");
    converters = false;
    const Converted done = convert(in, in.size(), 64, 63);
    converters = true;
    EXPECT_EQ(done.out, std::vector<char>(64));
}

} // namespace

// In place of the C library's own in all that is linked statically (the linker's --wrap).
extern "C" iconv_t __real_iconv_open(const char *to, const char *from);
extern "C" iconv_t __wrap_iconv_open(const char *to, const char *from) {
    return converters ? __real_iconv_open(to, from) : reinterpret_cast<iconv_t>(-1);
}
