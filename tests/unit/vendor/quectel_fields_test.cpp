// Lines and fields of Quectel replies.
#include "vendor/quectel_fields.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/json_text.h"

namespace {

constexpr const char *NONE = "(none)";

// The field, or NONE.
std::string field(const std::string &record, int number) {
    char value[QUECTEL_FIELD_SIZE] = "untouched";
    if (quectel_get_field(record.c_str(), number, value) == 0) {
        return value;
    }
    EXPECT_STREQ(value, "untouched");
    return NONE;
}

std::vector<std::string> records(const std::string &reply, const QuectelLine &line) {
    std::vector<std::string> found;
    QuectelLines lines(reply.c_str(), line);
    while (const char *record = lines.next()) {
        found.emplace_back(record);
    }
    return found;
}

TEST(QuectelGetField, plain_and_quoted_fields) {
    const std::string record = "\"servingcell\",\"NOCONN\",460,C4A1B21\r\n";
    EXPECT_EQ(field(record, 0), "servingcell");
    EXPECT_EQ(field(record, 1), "NOCONN");
    EXPECT_EQ(field(record, 2), "460");
    EXPECT_EQ(field(record, 3), "C4A1B21");
    EXPECT_EQ(field(record, 4), NONE);
    EXPECT_EQ(field(record, -1), NONE);
}

TEST(QuectelGetField, empty_fields_are_fields) {
    const std::string record = ",\"\",,\"\"\r\n";
    for (int number = 0; number < 4; number++) {
        EXPECT_EQ(field(record, number), "") << number;
    }
    EXPECT_EQ(field(record, 4), NONE);
}

TEST(QuectelGetField, one_quote_on_each_side_is_taken_off) {
    const std::string record = "\"\"a\"\",\"\"b\"\",\",\"\r\n";
    EXPECT_EQ(field(record, 0), "\"a\"");
    EXPECT_EQ(field(record, 1), "\"b\"");
    EXPECT_EQ(field(record, 2), "");
    EXPECT_EQ(field(record, 3), "");
}

TEST(QuectelGetField, a_quote_on_one_side_only) {
    EXPECT_EQ(field("\"a,b\"\r\n", 0), "a");
    EXPECT_EQ(field("\"a,b\"\r\n", 1), "b");
    EXPECT_EQ(field("a\"b,c\r\n", 0), "a\"b");
    EXPECT_EQ(field("a, \"b\"\r\n", 1), " \"b") << "a quote behind a blank is no opening quote";
}

TEST(QuectelGetField, a_comma_within_quotes_separates_as_well) {
    EXPECT_EQ(field("\"a,b\",c\r\n", 0), "a");
    EXPECT_EQ(field("\"a,b\",c\r\n", 1), "b");
    EXPECT_EQ(field("\"a,b\",c\r\n", 2), "c");
}

TEST(QuectelGetField, a_single_field_is_one_only_when_it_begins_with_a_quote) {
    EXPECT_EQ(field("\"NOSERVICE\"\r\n", 0), "NOSERVICE");
    EXPECT_EQ(field("\"NOSERVICE\r\n", 0), "NOSERVICE");
    EXPECT_EQ(field("\"\r\n", 0), "");
    EXPECT_EQ(field("NOSERVICE\r\n", 0), NONE);
    EXPECT_EQ(field("\r\n", 0), NONE);
    EXPECT_EQ(field("NOSERVICE,1\r\n", 0), "NOSERVICE");
}

TEST(QuectelGetField, the_record_ends_with_its_line) {
    EXPECT_EQ(field("a,b\r\nc,d\r\n", 1), "b");
    EXPECT_EQ(field("a,b\r\nc,d\r\n", 2), NONE);
    EXPECT_EQ(field("a,b\rc,d\r\n", 1), "b");
    EXPECT_EQ(field("a,b\rc,d\r\n", 2), NONE);
}

TEST(QuectelGetField, the_last_field_counts_only_with_its_carriage_return) {
    for (const char *record : {"a,b", "a,b\n", "a,b\nc,d\r\n"}) {
        EXPECT_EQ(field(record, 0), "a") << record;
        EXPECT_EQ(field(record, 1), NONE) << record;
    }
    EXPECT_EQ(field("", 0), NONE);
    EXPECT_EQ(field("\"", 0), NONE);
    EXPECT_EQ(field("a,", 1), NONE);
    EXPECT_EQ(field("a,\"", 1), NONE);
}

TEST(QuectelGetField, a_value_that_is_too_long_is_cut) {
    EXPECT_EQ(field("a," + std::string(99, 'x') + ",b\r\n", 1), std::string(99, 'x'));
    EXPECT_EQ(field("a," + std::string(300, 'x') + ",b\r\n", 1), std::string(99, 'x'));
    EXPECT_EQ(field("a," + std::string(300, 'x') + ",b\r\n", 2), "b");
    char small[4];
    EXPECT_EQ(quectel_get_field("12345,", 0, small), 0);
    EXPECT_STREQ(small, "123");
}

TEST(QuectelLines, each_line_with_what_follows_it) {
    const std::string reply = "\r\n+QENG: \"servingcell\",1\r\n+QENG: \"servingcell\",2\r\n\r\nOK\r\n";
    EXPECT_EQ(records(reply, SERVING_CELL_LINE),
              (std::vector<std::string>{"\"servingcell\",1\r\n+QENG: \"servingcell\",2\r\n\r\nOK\r\n",
                                        "\"servingcell\",2\r\n\r\nOK\r\n"}));
}

TEST(QuectelLines, what_follows_the_word_of_a_tag_is_free) {
    EXPECT_EQ(records(": \"servingcells\"", SERVING_CELL_LINE), std::vector<std::string>{"\"servingcells\""});
    EXPECT_EQ(records("+ANY: \"servingcell", SERVING_CELL_LINE), std::vector<std::string>{"\"servingcell"});
}

TEST(QuectelLines, the_echo_of_the_command_is_no_line) {
    EXPECT_TRUE(records("AT+QENG=\"servingcell\"\r\r\nOK\r\n", SERVING_CELL_LINE).empty());
    EXPECT_TRUE(records("+QENG:\"servingcell\",1\r\n", SERVING_CELL_LINE).empty()) << "no blank after the colon";
    EXPECT_TRUE(records("", SERVING_CELL_LINE).empty());
}

TEST(QuectelLines, the_search_goes_on_a_step_behind_the_tag) {
    constexpr QuectelLine NEAR = {"+X:", 3, 3};
    constexpr QuectelLine FAR = {"+X:", 3, 6};
    EXPECT_EQ(records("+X:+X:1", NEAR), (std::vector<std::string>{"+X:1", "1"}));
    EXPECT_EQ(records("+X:+X:1", FAR), std::vector<std::string>{"+X:1"}) << "a tag within the step is not seen";
    EXPECT_EQ(records("+X:123+X:4", FAR), (std::vector<std::string>{"123+X:4", "4"}));
}

TEST(QuectelLines, a_tag_at_the_very_end_of_the_reply_is_the_last) {
    constexpr QuectelLine LINE = {"+X:", 3, 12};
    EXPECT_EQ(records("+X:", LINE), std::vector<std::string>{""});
    QuectelLines lines("+X:", LINE);
    EXPECT_NE(lines.next(), nullptr);
    EXPECT_EQ(lines.next(), nullptr);
    EXPECT_EQ(lines.next(), nullptr);
}

const char *first_letter(const char *value) {
    return *value == 'b' ? "B" : "-";
}

TEST(QuectelAddFields, members_in_the_order_of_the_columns_for_the_fields_that_are_there) {
    constexpr QuectelColumn COLUMNS[] = {{2, "third"}, {1, "second", first_letter}, {9, "tenth"}, {0, "first"}};
    const Json object(json_object_new_object());
    quectel_add_fields("a,bb,\xff\x01,\r\n", COLUMNS, object.get());
    EXPECT_EQ(plain_json(object.get()), "{\"third\":\"\xEF\xBF\xBD\\u0001\",\"second\":\"B\",\"first\":\"a\"}");
}

} // namespace
