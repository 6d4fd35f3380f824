// JSON members: what getters find, what adders leave, and that all of it parses whatever the text.
#include "platform/json.h"

#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "support/json_text.h"
#include "support/short_memory.h"

namespace {

using namespace std::string_literals;

Json object() {
    return Json(json_object_new_object());
}

// The text that a reader of the printed document gets for the key.
std::string printed_and_read(json_object *document, const char *key) {
    const Json again = parse_json(plain_json(document));
    json_object *member = nullptr;
    EXPECT_TRUE(json_object_object_get_ex(again.get(), key, &member)) << plain_json(document);
    return {json_object_get_string(member), static_cast<size_t>(json_object_get_string_len(member))};
}

TEST(JsonAdd, one_member_of_each_type) {
    const Json all = object();
    vjson_add_string(all.get(), "text", "EC25");
    vjson_add_int(all.get(), "number", -251);
    vjson_add_double(all.get(), "fraction", 0.5);
    vjson_add_boolean(all.get(), "yes", 1);
    vjson_add_boolean(all.get(), "no", 0);
    vjson_add_object(all.get(), "child", json_object_new_object());
    EXPECT_EQ(plain_json(all.get()),
              R"({"text":"EC25","number":-251,"fraction":0.5,"yes":true,"no":false,"child":{}})");
}

TEST(JsonAdd, the_limits_of_32_bits) {
    const Json all = object();
    vjson_add_int(all.get(), "low", INT32_MIN);
    vjson_add_int(all.get(), "high", INT32_MAX);
    EXPECT_EQ(plain_json(all.get()), R"({"low":-2147483648,"high":2147483647})");
}

TEST(JsonAdd, any_non_zero_value_is_true) {
    const Json all = object();
    vjson_add_boolean(all.get(), "two", 2);
    vjson_add_boolean(all.get(), "minus", -1);
    vjson_add_boolean(all.get(), "even", 256);
    EXPECT_EQ(plain_json(all.get()), R"({"two":true,"minus":true,"even":true})");
}

TEST(JsonAdd, a_second_value_replaces_the_first) {
    const Json all = object();
    vjson_add_string(all.get(), "key", "first");
    vjson_add_string(all.get(), "key", "second");
    EXPECT_EQ(plain_json(all.get()), R"({"key":"second"})");
    vjson_add_int(all.get(), "key", 3);
    EXPECT_EQ(plain_json(all.get()), R"({"key":3})");
    vjson_add_object(all.get(), "key", json_object_new_array());
    EXPECT_EQ(plain_json(all.get()), R"({"key":[]})");
    vjson_add_boolean(all.get(), "key", 1);
    EXPECT_EQ(plain_json(all.get()), R"({"key":true})");
}

TEST(JsonAdd, the_text_is_copied) {
    const Json all = object();
    char text[] = "before";
    char key[] = "key";
    vjson_add_string(all.get(), key, text);
    text[0] = 'B';
    key[0] = 'K';
    EXPECT_EQ(plain_json(all.get()), R"({"key":"before"})");
}

TEST(JsonAdd, a_null_text_adds_nothing) {
    const Json all = parse_json(R"({"old":"value"})");
    vjson_add_string(all.get(), "new", nullptr);
    vjson_add_string(all.get(), "old", nullptr);
    EXPECT_EQ(plain_json(all.get()), R"({"old":"value"})");
}

TEST(JsonAdd, a_value_that_is_no_number_adds_nothing) {
    using Double = std::numeric_limits<double>;
    for (double value : {Double::quiet_NaN(), -Double::quiet_NaN(), Double::infinity(), -Double::infinity()}) {
        const Json all = parse_json(R"({"old":7})");
        vjson_add_double(all.get(), "new", value);
        vjson_add_double(all.get(), "old", value);
        EXPECT_EQ(plain_json(all.get()), R"({"old":7})");
    }
}

TEST(JsonAdd, an_empty_text_is_a_value) {
    const Json all = object();
    vjson_add_string(all.get(), "sim_num", "");
    EXPECT_EQ(plain_json(all.get()), R"({"sim_num":""})");
}

TEST(JsonAdd, what_is_no_object_stays_as_it_is) {
    for (const char *text : {"[1]", "\"text\"", "7", "0.5", "true"}) {
        const Json other = parse_json(text);
        vjson_add_string(other.get(), "key", "text");
        vjson_add_int(other.get(), "key", 1);
        vjson_add_double(other.get(), "key", 1);
        vjson_add_boolean(other.get(), "key", 1);
        vjson_add_object(other.get(), "key", json_object_new_object()); // released there, or the leak check tells
        vjson_del_key(other.get(), "key");
        EXPECT_EQ(plain_json(other.get()), text);
    }
}

TEST(JsonAdd, no_object_at_all) {
    vjson_add_string(nullptr, "key", "text");
    vjson_add_int(nullptr, "key", 1);
    vjson_add_double(nullptr, "key", 1);
    vjson_add_boolean(nullptr, "key", 1);
    vjson_add_object(nullptr, "key", json_object_new_object());
    vjson_array_add_string(nullptr, "text");
    vjson_del_key(nullptr, "key");
}

TEST(JsonAdd, a_child_that_could_not_be_made_is_left_out) {
    const Json all = object();
    vjson_add_object(all.get(), "key", nullptr);
    EXPECT_EQ(plain_json(all.get()), "{}");
    const Json array(json_object_new_array());
    vjson_array_add_object(array.get(), nullptr);
    EXPECT_EQ(plain_json(array.get()), "[]");
}

TEST(JsonArray, texts_in_order) {
    const Json array(json_object_new_array());
    vjson_array_add_string(array.get(), "/dev/ttyUSB0");
    vjson_array_add_string(array.get(), "");
    vjson_array_add_string(array.get(), "/dev/cdc-wdm0");
    EXPECT_EQ(plain_json(array.get()), R"(["/dev/ttyUSB0","","/dev/cdc-wdm0"])");
}

TEST(JsonArray, a_null_text_appends_nothing) {
    const Json array(json_object_new_array());
    vjson_array_add_string(array.get(), nullptr);
    EXPECT_EQ(plain_json(array.get()), "[]");
}

TEST(JsonArray, what_is_no_array_stays_as_it_is) {
    const Json other = object();
    vjson_array_add_string(other.get(), "text");
    EXPECT_EQ(plain_json(other.get()), "{}");
    const Json text = parse_json("\"text\"");
    vjson_array_add_string(text.get(), "more");
    EXPECT_EQ(plain_json(text.get()), "\"text\"");
}

TEST(JsonArray, a_text_of_invalid_bytes_parses) {
    const Json array(json_object_new_array());
    vjson_array_add_string(array.get(), "a\xFFz");
    EXPECT_EQ(plain_json(array.get()), "[\"a\uFFFDz\"]");
}

TEST(JsonText, each_byte_that_is_no_part_of_a_character_is_replaced) {
    static const struct {
        const char *given;
        const char *stored;
    } CASES[] = {
        {"\xFF", "\uFFFD"},
        {"a\x80z", "a\uFFFDz"},
        {"\xE2\x82", "\uFFFD\uFFFD"},
        {"\xE2\x82z", "\uFFFD\uFFFDz"},
        {"\xC0\x80", "\uFFFD\uFFFD"},
        {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},
        {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
        {"\xC3\xA4\xC3", "\u00E4\uFFFD"},
        {"\xC3\xC3\xA4", "\uFFFD\u00E4"},
        {"5 \u20AC \U0001F600", "5 \u20AC \U0001F600"},
    };
    for (const auto &one : CASES) {
        const Json all = object();
        vjson_add_string(all.get(), "message", one.given);
        EXPECT_EQ(printed_and_read(all.get(), "message"), one.stored);
    }
}

TEST(JsonText, control_characters_and_quotes_survive_printing) {
    std::string given;
    for (int c = 1; c < 0x80; c++) {
        given += static_cast<char>(c);
    }
    const Json all = object();
    vjson_add_string(all.get(), "message", given.c_str());
    EXPECT_EQ(printed_and_read(all.get(), "message"), given);
    for (char c : plain_json(all.get())) {
        EXPECT_GE(static_cast<unsigned char>(c), 0x20) << "a control character as it is";
    }
}

TEST(JsonText, the_worst_text_of_a_whole_buffer) {
    const std::string given(100000, '\xFF');
    const Json all = object();
    vjson_add_string(all.get(), "message", given.c_str());
    EXPECT_EQ(printed_and_read(all.get(), "message").size(), 3 * given.size());
}

TEST(JsonText, one_that_needs_more_memory_than_there_is_is_left_out) {
    const Json all = object();
    const Json array(json_object_new_array());
    {
        const ShortMemory none;
        vjson_add_string(all.get(), "message", "a\xFFz");
        vjson_array_add_string(array.get(), "a\xFFz");
    }
    EXPECT_EQ(plain_json(all.get()), "{}");
    EXPECT_EQ(plain_json(array.get()), "[]");
}

TEST(JsonGetString, a_text) {
    const Json all = parse_json(R"({"bus":"1-1.2","empty":""})");
    EXPECT_STREQ(vjson_get_string(all.get(), "bus"), "1-1.2");
    EXPECT_STREQ(vjson_get_string(all.get(), "empty"), "");
}

TEST(JsonGetString, an_absent_key_is_null) {
    const Json all = parse_json(R"({"bus":"1-1.2"})");
    EXPECT_EQ(vjson_get_string(all.get(), "at-port"), nullptr);
    EXPECT_EQ(vjson_get_string(all.get(), ""), nullptr);
}

TEST(JsonGetString, a_member_of_another_type_is_null) {
    const Json all = parse_json(R"({"n":7,"d":0.5,"b":true,"z":null,"a":["1-1.2"],"o":{"bus":"1-1.2"}})");
    for (const char *key : {"n", "d", "b", "z", "a", "o"}) {
        EXPECT_EQ(vjson_get_string(all.get(), key), nullptr) << key;
    }
}

TEST(JsonGetInt, numbers_and_what_json_c_takes_for_one) {
    const Json all = parse_json(R"({"n":30,"minus":-1,"text":"20","fraction":3.9,"yes":true,"no":false})");
    EXPECT_EQ(vjson_get_int(all.get(), "n"), 30);
    EXPECT_EQ(vjson_get_int(all.get(), "minus"), -1);
    EXPECT_EQ(vjson_get_int(all.get(), "text"), 20);
    EXPECT_EQ(vjson_get_int(all.get(), "fraction"), 3);
    EXPECT_EQ(vjson_get_int(all.get(), "yes"), 1);
    EXPECT_EQ(vjson_get_int(all.get(), "no"), 0);
}

TEST(JsonGetInt, absent_and_useless_members_are_0) {
    const Json all = parse_json(R"({"word":"qmi","z":null,"a":[7],"o":{"n":7}})");
    for (const char *key : {"absent", "word", "z", "a", "o"}) {
        EXPECT_EQ(vjson_get_int(all.get(), key), 0) << key;
    }
}

TEST(JsonGetInt, numbers_beyond_32_bits_end_at_the_limit) {
    const Json all = parse_json(R"({"high":99999999999999,"low":-99999999999999,"text":"99999999999999"})");
    EXPECT_EQ(vjson_get_int(all.get(), "high"), INT32_MAX);
    EXPECT_EQ(vjson_get_int(all.get(), "low"), INT32_MIN);
    EXPECT_EQ(vjson_get_int(all.get(), "text"), INT32_MAX);
}

TEST(JsonGetBoolean, is_1_or_0) {
    const Json all = parse_json(R"({"yes":true,"no":false,"two":2,"z":null})");
    EXPECT_EQ(vjson_get_boolean(all.get(), "yes"), 1);
    EXPECT_EQ(vjson_get_boolean(all.get(), "no"), 0);
    EXPECT_EQ(vjson_get_boolean(all.get(), "two"), 1);
    EXPECT_EQ(vjson_get_boolean(all.get(), "z"), 0);
    EXPECT_EQ(vjson_get_boolean(all.get(), "absent"), 0);
}

TEST(JsonGetObject, the_member_is_borrowed) {
    const Json all = parse_json(R"({"child":{"up":true},"list":[1]})");
    json_object *child = vjson_get_object(all.get(), "child");
    EXPECT_EQ(plain_json(child), R"({"up":true})");
    EXPECT_EQ(vjson_get_object(all.get(), "child"), child);
    EXPECT_EQ(plain_json(vjson_get_object(all.get(), "list")), "[1]");
    EXPECT_EQ(vjson_get_object(all.get(), "absent"), nullptr);
}

TEST(JsonContainKey, tells_a_missing_key_from_an_empty_value) {
    const Json all = parse_json(R"({"empty":"","zero":0,"nothing":null})");
    EXPECT_NE(vjson_contain_key(all.get(), "empty"), 0);
    EXPECT_NE(vjson_contain_key(all.get(), "zero"), 0);
    EXPECT_NE(vjson_contain_key(all.get(), "nothing"), 0);
    EXPECT_EQ(vjson_contain_key(all.get(), "missing"), 0);
}

TEST(JsonText, is_in_the_style_that_is_asked_for) {
    const Json all = parse_json(R"({"a":[1,2]})");
    EXPECT_STREQ(vjson_text(all.get(), JSON_C_TO_STRING_PLAIN), R"({"a":[1,2]})");
    EXPECT_STREQ(vjson_text(all.get(), JSON_C_TO_STRING_PRETTY), "{\n  \"a\":[\n    1,\n    2\n  ]\n}");
    EXPECT_STREQ(vjson_text(nullptr, JSON_C_TO_STRING_PLAIN), "null");
}

TEST(JsonDelKey, removes_the_member_if_it_is_there) {
    const Json all = parse_json(R"({"a":1,"b":2})");
    vjson_del_key(all.get(), "a");
    vjson_del_key(all.get(), "absent");
    EXPECT_EQ(plain_json(all.get()), R"({"b":2})");
}

TEST(JsonGetters, find_nothing_in_what_is_no_object) {
    for (const char *text : {"[\"bus\"]", "\"bus\"", "7", "true", "null"}) {
        const Json other = parse_json(text);
        EXPECT_EQ(vjson_get_string(other.get(), "bus"), nullptr) << text;
        EXPECT_EQ(vjson_get_int(other.get(), "bus"), 0) << text;
        EXPECT_EQ(vjson_get_boolean(other.get(), "bus"), 0) << text;
        EXPECT_EQ(vjson_get_object(other.get(), "bus"), nullptr) << text;
        EXPECT_EQ(vjson_contain_key(other.get(), "bus"), 0) << text;
    }
}

TEST(JsonArray, an_item_that_cannot_be_appended_is_released) {
    const Json array(json_object_new_array());
    vjson_array_add_object(array.get(), json_object_new_object());
    EXPECT_EQ(plain_json(array.get()), "[{}]");
    vjson_array_add_object(nullptr, json_object_new_object());
    const Json other = object();
    vjson_array_add_object(other.get(), json_object_new_object());
    EXPECT_EQ(plain_json(other.get()), "{}");
}

} // namespace
