// blobmsg to JSON and back; whatever the message holds, the text is JSON.
#include <gtest/gtest.h>
#include <libubox/blobmsg_json.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::string_view_literals;

std::string take(char *text) {
    std::string copy = text != nullptr ? text : "(null)";
    free(text);
    return copy;
}

class BlobmsgJson : public testing::Test {
protected:
    BlobmsgJson() { blob_buf_init(&buf, 0); }
    ~BlobmsgJson() override { blob_buf_free(&buf); }

    std::string json() { return take(blobmsg_format_json(buf.head, true)); }

    // What the text becomes on its way through a message.
    std::string through(const char *text) {
        blob_buf_init(&buf, 0);
        return blobmsg_add_json_from_string(&buf, text) ? json() : "(refused)";
    }

    // The JSON of a message with these members, in memory of just that size.
    static std::string received(std::string_view members) {
        std::vector<char> memory(4 + members.size());
        memory.shrink_to_fit();
        std::copy(members.begin(), members.end(), memory.begin() + 4);
        auto *attr = reinterpret_cast<blob_attr *>(memory.data());
        blob_set_raw_len(attr, static_cast<unsigned>(memory.size()));
        return take(blobmsg_format_json(attr, true));
    }

    void nest(int levels, bool array) {
        blob_buf_init(&buf, 0);
        std::vector<void *> cookies;
        for (int i = 0; i < levels; i++) {
            cookies.push_back(blobmsg_open_nested(&buf, "n", array));
        }
        while (!cookies.empty()) {
            blob_nest_end(&buf, cookies.back());
            cookies.pop_back();
        }
    }

    blob_buf buf{};
};

TEST_F(BlobmsgJson, EmptyMessage) {
    EXPECT_EQ("{}", json());
    EXPECT_EQ("{}", take(blobmsg_format_json_indent(buf.head, true, 0)));
    EXPECT_EQ(nullptr, blobmsg_format_json(nullptr, true));
}

TEST_F(BlobmsgJson, EachType) {
    blobmsg_add_u8(&buf, "yes", 1);
    blobmsg_add_u8(&buf, "no", 0);
    blobmsg_add_u8(&buf, "any", 200);
    blobmsg_add_u16(&buf, "i16", 0xffff);
    blobmsg_add_u32(&buf, "i32", 0x80000000);
    blobmsg_add_u64(&buf, "i64", 9223372036854775807);
    blobmsg_add_u64(&buf, "least", 0x8000000000000000);
    blobmsg_add_string(&buf, "text", "");
    blobmsg_add_field(&buf, BLOBMSG_TYPE_UNSPEC, "none", nullptr, 0);
    EXPECT_EQ(R"({"yes":true,"no":false,"any":true,"i16":-1,"i32":-2147483648,"i64":9223372036854775807,)"
              R"("least":-9223372036854775808,"text":"","none":null})",
              json());
}

TEST_F(BlobmsgJson, DoublesReadBackAsTheyWere) {
    const struct {
        double value;
        const char *text;
    } cases[] = {
        {0, "0.0"},
        {-0.0, "-0.0"},
        {1, "1.0"},
        {0.1, "0.1"},
        {-85.5, "-85.5"},
        {1e300, "1e+300"},
        {5e-324, "4.94065645841247e-324"},
        {0.1 + 0.2, "0.30000000000000004"},
        {123456789012345678.0, "1.2345678901234568e+17"},
        {std::numeric_limits<double>::infinity(), "null"},
        {-std::numeric_limits<double>::infinity(), "null"},
        {std::nan(""), "null"},
    };
    for (const auto &test : cases) {
        blob_buf_init(&buf, 0);
        blobmsg_add_double(&buf, "d", test.value);
        EXPECT_EQ("{\"d\":" + std::string(test.text) + "}", json());
    }
}

TEST_F(BlobmsgJson, DoublesIgnoreTheHostsDecimalComma) {
    if (setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) {
        GTEST_SKIP() << "this machine has no locale with a decimal comma";
    }
    blobmsg_add_double(&buf, "d", -1.25);
    EXPECT_EQ(R"({"d":-1.25})", json());
    setlocale(LC_NUMERIC, "C");
}

TEST_F(BlobmsgJson, TextIsEscaped) {
    blobmsg_add_string(&buf, "q\"", "\" \\ / \b\f\n\r\t \x01\x1f\x7f \xc3\xa4 \xff");
    EXPECT_EQ("{\"q\\\"\":\"\\\" \\\\ / \\b\\f\\n\\r\\t \\u0001\\u001f\x7f \xc3\xa4 \xff\"}", json());
}

TEST_F(BlobmsgJson, TablesAndArrays) {
    const char *text = R"({"t":{"":1,"e":{}},"l":[1,"a",[],{"x":null},[true,[2.5]]],"z":5000000000})";
    EXPECT_EQ(text, through(text));
    EXPECT_EQ("{\n\t\"l\": [\n\t\t1,\n\t\t{\n\t\t\t\"a\": []\n\t\t}\n\t]\n}",
              (through(R"({"l":[1,{"a":[]}]})"), take(blobmsg_format_json_indent(buf.head, true, 0))));
}

TEST_F(BlobmsgJson, AttributeByItself) {
    through(R"({"l":[1,2]})");
    auto *list = static_cast<blob_attr *>(blob_data(buf.head));
    EXPECT_EQ("[1,2]", take(blobmsg_format_json(list, true)));
    EXPECT_EQ("\"l\":[1,2]", take(blobmsg_format_json(list, false)));
    EXPECT_EQ("1", take(blobmsg_format_json(static_cast<blob_attr *>(blobmsg_data(list)), false)));
    EXPECT_EQ(nullptr, blobmsg_format_json(buf.head, false));
}

TEST_F(BlobmsgJson, IntegersTakeTheSizeTheyNeed) {
    through(R"({"a":2147483647,"b":-2147483648,"c":2147483648,"d":-2147483649})");
    std::vector<int> types;
    blob_attr *pos;
    size_t rem;
    blobmsg_for_each_attr(pos, buf.head, rem) {
        types.push_back(blobmsg_type(pos));
    }
    EXPECT_EQ((std::vector<int>{BLOBMSG_TYPE_INT32, BLOBMSG_TYPE_INT32, BLOBMSG_TYPE_INT64, BLOBMSG_TYPE_INT64}),
              types);
}

TEST_F(BlobmsgJson, OnlyObjectsBecomeMessages) {
    for (const char *text : {"", "[1]", "5", "null", "{", "{\"a\":}", "x"}) {
        EXPECT_EQ("(refused)", through(text)) << text;
    }
    EXPECT_EQ("{}", through("{}"));
}

TEST_F(BlobmsgJson, NestingHasALimit) {
    // The message itself is one more level.
    for (const bool array : {false, true}) {
        nest(30, array);
        EXPECT_NE("(null)", json());
        nest(31, array);
        EXPECT_EQ("(null)", json());
        nest(1000, array);
        EXPECT_EQ("(null)", json());
        nest(100000, array);
        EXPECT_EQ("(null)", json());
    }
}

TEST_F(BlobmsgJson, UnsoundValuesAreLeftOut) {
    const struct {
        const char *what;
        std::string_view members;
        const char *json;
    } cases[] = {
        {"none at all", ""sv, "{}"},
        {"three bytes", "\x87\0\0"sv, "{}"},
        {"length of 0", "\x87\0\0\0"sv, "{}"},
        {"length shorter than the header", "\x87\0\0\3"sv, "{}"},
        {"cut off", "\x87\0\0\x09\0\1a\0"sv, "{}"},
        {"without its padding", "\x87\0\0\x09\0\1a\0\1"sv, "{}"},
        {"padding of any content", "\x87\0\0\x09\0\1a\0\1xyz"sv, R"({"a":true})"},
        {"text without its NUL", "\x83\0\0\x0a\0\1a\0xy\0\0\x87\0\0\x09\0\1b\0\1\0\0\0"sv, R"({"b":true})"},
        {"text with a NUL inside", "\x83\0\0\x0c\0\1a\0x\0y\0"sv, R"({"a":"x"})"},
        {"name without its NUL", "\x87\0\0\x09\0\1ab\1\0\0\0"sv, "{}"},
        {"name with a NUL inside", "\x87\0\0\x0d\0\3a\0b\0\0\0\1\0\0\0"sv, R"({"a":true})"},
        {"name longer than all", "\x87\0\0\x09\xff\xff\0\0\1\0\0\0"sv, "{}"},
        {"table cut off", "\x82\0\0\x0c\0\1t\0\x87\0\0\x09"sv, R"({"t":{}})"},
        {"array with named items", "\x81\0\0\x14\0\1l\0\x87\0\0\x09\0\1x\0\1\0\0\0"sv, R"({"l":[true]})"},
        {"plain attribute among the values", "\7\0\0\x08\0\0\0\1\x87\0\0\x09\0\1b\0\1\0\0\0"sv, R"({"b":true})"},
    };
    for (const auto &test : cases) {
        EXPECT_EQ(test.json, received(test.members)) << test.what;
    }
}

} // namespace
