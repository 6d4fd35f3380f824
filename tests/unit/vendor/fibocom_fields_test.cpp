// Lists of values in Fibocom replies.
#include "vendor/fibocom_fields.h"

#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "support/json_text.h"

namespace {

constexpr const char *NONE = "(none)";

// The value, or NONE.
std::string value_of(std::string_view text, int number) {
    char value[FIBOCOM_FIELD_SIZE] = "untouched";
    if (fibocom_atcmd_value_parser(text, number, value) == 0) {
        return value;
    }
    EXPECT_STREQ(value, "untouched");
    return NONE;
}

TEST(FibocomValueParser, values_by_their_number) {
    const std::string line = "99,98,255,254,23,61\r\n\r\nOK\r\n";
    EXPECT_EQ(value_of(line, 0), "99");
    EXPECT_EQ(value_of(line, 1), "98");
    EXPECT_EQ(value_of(line, 4), "23");
    EXPECT_EQ(value_of(line, 5), "61");
    EXPECT_EQ(value_of(line, 6), NONE);
    EXPECT_EQ(value_of(line, 1000000), NONE);
    EXPECT_EQ(value_of(line, INT32_MAX), NONE);
}

TEST(FibocomValueParser, two_adjacent_commas_are_an_empty_value) {
    EXPECT_EQ(value_of("1,,3\r\n", 0), "1");
    EXPECT_EQ(value_of("1,,3\r\n", 1), NONE);
    EXPECT_EQ(value_of("1,,3\r\n", 2), "3");
    EXPECT_EQ(value_of(",,\r\n", 0), NONE);
}

TEST(FibocomValueParser, a_value_that_would_begin_with_the_line_end_or_behind_the_text_is_empty) {
    EXPECT_EQ(value_of("1,\r\n", 1), NONE);
    EXPECT_EQ(value_of("\r\n", 0), NONE);
    EXPECT_EQ(value_of("1,", 1), NONE);
    EXPECT_EQ(value_of("", 0), NONE);
    EXPECT_EQ(value_of({}, 0), NONE);
    EXPECT_EQ(value_of({}, 1), NONE);
}

TEST(FibocomValueParser, the_last_value_ends_with_its_line_or_with_the_text) {
    EXPECT_EQ(value_of("1,22\r\n", 1), "22");
    EXPECT_EQ(value_of("1,22\r", 1), "22");
    EXPECT_EQ(value_of("1,22", 1), "22");
    EXPECT_EQ(value_of("22", 0), "22");
}

TEST(FibocomValueParser, only_the_view_is_read) {
    const std::string_view two_lines = "1,2\r\n3,4\r\n";
    EXPECT_EQ(value_of(text_before(two_lines, 3), 1), "2");
    EXPECT_EQ(value_of(text_before(two_lines, 3), 2), NONE);
    EXPECT_EQ(value_of(text_before(two_lines, 2), 1), NONE);
}

TEST(FibocomValueParser, a_line_with_fewer_values_goes_on_behind_the_next_comma) {
    const std::string lines = "1,2\r\n3,4,5\r\n";
    EXPECT_EQ(value_of(lines, 1), "2");
    EXPECT_EQ(value_of(lines, 2), "4");
    EXPECT_EQ(value_of(lines, 3), "5");
}

TEST(FibocomValueParser, a_line_feed_ends_nothing) {
    EXPECT_EQ(value_of("1,2\n3,4\n", 1), "2\n3");
    EXPECT_EQ(value_of("1,2\n", 1), "2\n");
    EXPECT_EQ(value_of("\n1,2\n", 0), "\n1");
}

TEST(FibocomValueParser, quotes_and_blanks_belong_to_the_value) {
    EXPECT_EQ(value_of("\"FFFF\", 1 ,\t\r\n", 0), "\"FFFF\"");
    EXPECT_EQ(value_of("\"FFFF\", 1 ,\t\r\n", 1), " 1 ");
    EXPECT_EQ(value_of("\"FFFF\", 1 ,\t\r\n", 2), "\t");
    EXPECT_EQ(value_of("\"a,b\"\r\n", 1), "b\"") << "a comma within quotes separates as well";
}

TEST(FibocomValueParser, a_value_is_cut_to_15_characters) {
    EXPECT_EQ(value_of("123456789012345,2\r\n", 0), "123456789012345");
    EXPECT_EQ(value_of("1234567890123456,2\r\n", 0), "123456789012345");
    EXPECT_EQ(value_of("1234567890123456,2\r\n", 1), "2");
    EXPECT_EQ(value_of(std::string(100000, 'x') + ",y", 0), std::string(15, 'x'));
    EXPECT_EQ(value_of(std::string(100000, 'x') + ",y", 1), "y");
}

TEST(FibocomValueParser, no_more_is_written_than_the_buffer_holds) {
    char value[] = "....";
    EXPECT_EQ(fibocom_atcmd_value_parser("12345", 0, std::span(value).first(3)), 0);
    EXPECT_EQ(std::string_view(value, 4), std::string_view("12\0.", 4));
    EXPECT_EQ(fibocom_atcmd_value_parser("12345", 0, std::span(value).first(0)), 0);
    EXPECT_EQ(value[0], '1');
}

TEST(FibocomValueParser, any_bytes) {
    EXPECT_EQ(value_of("\xff\x80,\x01\r\n", 0), "\xff\x80");
    EXPECT_EQ(value_of("\xff\x80,\x01\r\n", 1), "\x01");
}

TEST(FibocomValueParser, no_byte_behind_the_text_is_read) {
    const std::string line = "1,4,222,01,,2FC001\r";
    for (size_t length = 0; length <= line.size(); length++) {
        // Of exactly this size on the heap, so that a read beyond it is seen.
        const auto text = std::make_unique<char[]>(length);
        line.copy(text.get(), length);
        for (int number = 0; number < 8; number++) {
            char value[FIBOCOM_FIELD_SIZE] = {};
            fibocom_atcmd_value_parser({text.get(), length}, number, value);
            ASSERT_TRUE(line.find(value) != std::string::npos);
        }
    }
}

constexpr FibocomList LIST = {"+X:", 4};

TEST(FibocomFindList, values_begin_at_their_place_behind_the_label) {
    EXPECT_EQ(fibocom_find_list("\r\n+X: 1,2\r\n\r\nOK\r\n", LIST), "1,2\r\n\r\nOK\r\n");
    EXPECT_EQ(fibocom_find_list("AT+X?\r\r\n+X: 1\r\n", LIST), "1\r\n") << "the echo has no colon";
    EXPECT_EQ(fibocom_find_list("+X:12\r\n", LIST), "2\r\n") << "what stands between is not looked at";
    EXPECT_EQ(fibocom_find_list("+X: 1\r\n+X: 2\r\n", LIST), "1\r\n+X: 2\r\n") << "the first one";
}

TEST(FibocomFindList, a_reply_that_ends_before_the_values_has_an_empty_list) {
    for (const char *reply : {"+X:", "+X: ", "\r\n+X:"}) {
        EXPECT_EQ(fibocom_find_list(reply, LIST), "") << reply;
        EXPECT_NE(fibocom_find_list(reply, LIST).data(), nullptr) << reply;
    }
}

TEST(FibocomFindList, a_reply_without_the_label_has_none) {
    for (const char *reply : {"", "+X", "+Y: 1", "+x: 1", "\r\nOK\r\n"}) {
        EXPECT_EQ(fibocom_find_list(reply, LIST).data(), nullptr) << reply;
    }
    EXPECT_EQ(fibocom_find_list({}, LIST).data(), nullptr);
}

void in_brackets(std::span<char> value) {
    const std::string sent = value.data();
    text_copy(value, "[" + sent + "]");
}

TEST(FibocomAddFields, members_in_the_order_of_the_columns_for_the_values_that_are_there) {
    constexpr FibocomColumn COLUMNS[] = {
        {2, "third"}, {1, "second", in_brackets}, {3, "fourth"}, {0, "first"}, {9, "tenth", in_brackets}};
    const Json object(json_object_new_object());
    fibocom_add_fields("a,bb,\xff\x01,\r\n", COLUMNS, object.get());
    EXPECT_EQ(plain_json(object.get()), "{\"third\":\"\xEF\xBF\xBD\\u0001\",\"second\":\"[bb]\",\"first\":\"a\"}");
}

TEST(FibocomAddFields, a_member_that_is_there_is_replaced_only_by_a_value) {
    constexpr FibocomColumn COLUMNS[] = {{0, "a"}, {1, "b"}};
    const Json object = parse_json(R"({"a":"old","b":"old"})");
    fibocom_add_fields("new,\r\n", COLUMNS, object.get());
    EXPECT_EQ(plain_json(object.get()), R"({"a":"new","b":"old"})");
}

} // namespace
