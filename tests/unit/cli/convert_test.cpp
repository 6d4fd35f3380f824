// "convert": a file of UCS-2 printed as UTF-8.
#include "cli/convert.h"

#include <iconv.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/files.h"

namespace {

class Convert : public testing::Test {
protected:
    // The byte order that the C library means by "UCS2" is its own affair.
    static std::string ucs2(std::string text) {
        iconv_t converter = iconv_open("UCS2", "UTF-8");
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
    std::string printed(std::vector<std::string> arguments) {
        std::vector<char *> pointers;
        for (std::string &argument : arguments) {
            pointers.push_back(argument.data());
        }
        Capture out(STDOUT_FILENO);
        EXPECT_EQ(convert_file(pointers), 0);
        return out.text();
    }
    std::string converted(const std::string &content, const std::string &count) {
        write_file(directory / "text", content);
        return printed({directory / "text", count});
    }

    ScratchDirectory directory;
};

TEST_F(Convert, a_text_with_all_its_characters) {
    const std::string text = "Guthaben 5 €, 你好";
    EXPECT_EQ(converted(ucs2(text), "100"), text);
}

TEST_F(Convert, three_bytes_of_the_file_for_each_character_of_the_count) {
    EXPECT_EQ(converted(ucs2("abcdef"), "2"), "abc");
    EXPECT_EQ(converted(ucs2("abcdef"), "4"), "abcdef");
}

TEST_F(Convert, the_output_has_as_much_room) {
    EXPECT_EQ(converted(ucs2("€€€€"), "2"), "€€");
}

TEST_F(Convert, at_most_2048_bytes_of_the_file) {
    EXPECT_EQ(converted(ucs2(std::string(2000, 'x')), "100000"), std::string(1024, 'x'));
}

TEST_F(Convert, text_that_keeps_its_size_in_utf8_is_whole) {
    std::string text;
    for (int i = 0; i < 1024; i++) {
        text += "ж";
    }
    EXPECT_EQ(converted(ucs2(text), "1024"), text);
}

TEST_F(Convert, output_that_does_not_fit_is_cut_between_characters) {
    std::string text;
    for (int i = 0; i < 1000; i++) {
        text += "€";
    }
    const std::string out = converted(ucs2(text), "100000");
    EXPECT_EQ(out, text.substr(0, out.size()));
    EXPECT_EQ(out.size() % 3, 0u);
    EXPECT_LE(out.size(), 2048u);
    EXPECT_GE(out.size(), 2043u);
}

TEST_F(Convert, counts_that_are_no_counts) {
    for (const char *count : {"0", "-1", "", "abc", "-2147483648"}) {
        EXPECT_EQ(converted(ucs2("abc"), count), "") << count;
    }
}

TEST_F(Convert, counts_beyond_any_file) {
    for (const char *count : {"715827883", "2147483647", "4294967296", "99999999999999999999"}) {
        const std::string out = converted(ucs2("abc"), count);
        EXPECT_TRUE(out == "abc" || out.empty()) << count << ": " << out;
    }
}

TEST_F(Convert, an_empty_file) {
    EXPECT_EQ(converted("", "10"), "");
}

TEST_F(Convert, what_is_converted_before_an_invalid_sequence) {
    const char16_t lone_surrogate = 0xD800;
    EXPECT_EQ(converted(ucs2("ab") + std::string(reinterpret_cast<const char *>(&lone_surrogate), 2) + ucs2("c"), "9"),
              "ab");
}

TEST_F(Convert, a_percent_sign_is_printed) {
    EXPECT_EQ(converted(ucs2("100%s%n"), "10"), "100%s%n");
}

TEST_F(Convert, a_file_that_cannot_be_read) {
    EXPECT_EQ(printed({"/nonexistent/text", "10"}), "");
    EXPECT_EQ(printed({directory.path(), "10"}), "");
}

TEST_F(Convert, missing_arguments) {
    EXPECT_EQ(printed({}), "");
    write_file(directory / "text", ucs2("abc"));
    EXPECT_EQ(printed({directory / "text"}), "");
}

TEST_F(Convert, no_descriptor_stays) {
    const int before = open_descriptors();
    converted(ucs2("abc"), "10");
    printed({"/nonexistent/text", "10"});
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
