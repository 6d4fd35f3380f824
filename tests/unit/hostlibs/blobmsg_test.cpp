// blobmsg values: the bytes on the wire, looking members up, damaged values.
#include <gtest/gtest.h>
#include <libubox/blobmsg.h>

#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::string_view_literals;

class Blobmsg : public testing::Test {
protected:
    Blobmsg() { blob_buf_init(&buf, 0); }
    ~Blobmsg() override { blob_buf_free(&buf); }

    std::string_view content() const { return {static_cast<const char *>(blob_data(buf.head)), blob_len(buf.head)}; }

    blob_buf buf{};
};

TEST_F(Blobmsg, ValuesOnTheWire) {
    blobmsg_add_u8(&buf, "a", 1);
    EXPECT_EQ("\x87\0\0\x09\0\1a\0\1\0\0\0"sv, content());

    blob_buf_init(&buf, 0);
    blobmsg_add_u16(&buf, "ab", 0x1234);
    EXPECT_EQ("\x86\0\0\x0e\0\2ab\0\0\0\0\x12\x34\0\0"sv, content());

    blob_buf_init(&buf, 0);
    blobmsg_add_u32(&buf, "abcde", 0xfffffffe);
    EXPECT_EQ("\x85\0\0\x10\0\5abcde\0\xff\xff\xff\xfe"sv, content());

    blob_buf_init(&buf, 0);
    blobmsg_add_u64(&buf, "a", 0x0102030405060708);
    EXPECT_EQ("\x84\0\0\x10\0\1a\0\1\2\3\4\5\6\7\x08"sv, content());

    blob_buf_init(&buf, 0);
    blobmsg_add_double(&buf, "a", 1.5);
    EXPECT_EQ("\x88\0\0\x10\0\1a\0\x3f\xf8\0\0\0\0\0\0"sv, content());

    blob_buf_init(&buf, 0);
    blobmsg_add_string(&buf, "name", "lan");
    EXPECT_EQ("\x83\0\0\x10\0\4name\0\0lan\0"sv, content());
}

TEST_F(Blobmsg, TablesAndArraysOnTheWire) {
    void *table = blobmsg_open_table(&buf, "t");
    void *array = blobmsg_open_array(&buf, "l");
    blobmsg_add_u8(&buf, nullptr, 1);
    blobmsg_add_string(&buf, nullptr, "x");
    blobmsg_close_array(&buf, array);
    blobmsg_close_table(&buf, table);
    EXPECT_EQ("\x82\0\0\x28\0\1t\0"
              "\x81\0\0\x20\0\1l\0"
              "\x87\0\0\x09\0\0\0\0\1\0\0\0"
              "\x83\0\0\x0a\0\0\0\0x\0\0\0"sv,
              content());
    blob_attr *outer = static_cast<blob_attr *>(blob_data(buf.head));
    EXPECT_EQ(-1, blobmsg_check_array(static_cast<blob_attr *>(blobmsg_data(outer)), BLOBMSG_TYPE_INT8));
    EXPECT_EQ(2, blobmsg_check_array(static_cast<blob_attr *>(blobmsg_data(outer)), BLOBMSG_TYPE_UNSPEC));
    EXPECT_TRUE(blobmsg_check_attr_list(outer, BLOBMSG_TYPE_ARRAY));
}

TEST_F(Blobmsg, ValuesReadBack) {
    blobmsg_add_u8(&buf, "u8", 200);
    blobmsg_add_u16(&buf, "u16", 60000);
    blobmsg_add_u32(&buf, "u32", 4000000000);
    blobmsg_add_u64(&buf, "u64", 18000000000000000000u);
    blobmsg_add_double(&buf, "double", -0.1);
    blobmsg_add_string(&buf, "text", "umlaut \xc3\xa4");
    const blobmsg_policy policy[] = {
        {"u8", BLOBMSG_TYPE_INT8},     {"u16", BLOBMSG_TYPE_INT16},     {"u32", BLOBMSG_TYPE_INT32},
        {"u64", BLOBMSG_TYPE_INT64},   {"double", BLOBMSG_TYPE_DOUBLE}, {"text", BLOBMSG_TYPE_STRING},
        {"absent", BLOBMSG_TYPE_INT8}, {"u8", BLOBMSG_TYPE_STRING},     {"text", BLOBMSG_TYPE_UNSPEC},
    };
    blob_attr *tb[std::size(policy)];
    ASSERT_EQ(0, blobmsg_parse(policy, std::size(policy), tb, blob_data(buf.head), (unsigned)blob_len(buf.head)));
    EXPECT_EQ(200, blobmsg_get_u8(tb[0]));
    EXPECT_TRUE(blobmsg_get_bool(tb[0]));
    EXPECT_EQ(60000, blobmsg_get_u16(tb[1]));
    EXPECT_EQ(4000000000, blobmsg_get_u32(tb[2]));
    EXPECT_EQ(18000000000000000000u, blobmsg_get_u64(tb[3]));
    EXPECT_EQ(-0.1, blobmsg_get_double(tb[4]));
    EXPECT_STREQ("umlaut \xc3\xa4", blobmsg_get_string(tb[5]));
    EXPECT_EQ(nullptr, tb[6]);
    EXPECT_EQ(nullptr, tb[7]);
    EXPECT_EQ(tb[5], tb[8]);
    EXPECT_STREQ("text", blobmsg_name(tb[5]));
    EXPECT_EQ(0, blobmsg_get_u32(nullptr));
    EXPECT_EQ(nullptr, blobmsg_get_string(nullptr));
}

TEST_F(Blobmsg, FirstOfEqualNamesCounts) {
    blobmsg_add_u8(&buf, "a", 1);
    blobmsg_add_u8(&buf, "a", 2);
    const blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_INT8}};
    blob_attr *tb[1];
    ASSERT_EQ(0, blobmsg_parse_attr(policy, 1, tb, buf.head));
    EXPECT_EQ(1, blobmsg_get_u8(tb[0]));
}

TEST_F(Blobmsg, ArraysArePlacedByPosition) {
    blobmsg_add_u8(&buf, nullptr, 1);
    blobmsg_add_string(&buf, nullptr, "x");
    blobmsg_add_u8(&buf, nullptr, 3);
    const blobmsg_policy policy[] = {{nullptr, BLOBMSG_TYPE_INT8}, {nullptr, BLOBMSG_TYPE_INT8}};
    blob_attr *tb[2];
    ASSERT_EQ(0, blobmsg_parse_array(policy, 2, tb, blob_data(buf.head), (unsigned)blob_len(buf.head)));
    EXPECT_NE(nullptr, tb[0]);
    EXPECT_EQ(nullptr, tb[1]);
}

TEST_F(Blobmsg, CopiesOfValuesKeepNameAndType) {
    blobmsg_add_u32(&buf, "n", 5);
    blob_buf copy{};
    blob_buf_init(&copy, 0);
    EXPECT_EQ(0, blobmsg_add_blob(&copy, static_cast<blob_attr *>(blob_data(buf.head))));
    EXPECT_TRUE(blob_attr_equal(buf.head, copy.head));
    blob_buf_free(&copy);
}

TEST_F(Blobmsg, NameTooLongForItsLengthIsRefused) {
    const std::string longest(65535, 'n');
    EXPECT_EQ(0, blobmsg_add_u8(&buf, longest.c_str(), 1));
    EXPECT_EQ(-1, blobmsg_add_u8(&buf, (longest + "n").c_str(), 1));
    EXPECT_EQ(nullptr, blobmsg_open_table(&buf, (longest + "n").c_str()));
    EXPECT_EQ(longest, blobmsg_name(static_cast<blob_attr *>(blob_data(buf.head))));
}

TEST(BlobmsgDamaged, ValuesAreNotBelieved) {
    const struct {
        const char *what;
        std::string_view bytes;
    } cases[] = {
        {"not extended", "\7\0\0\x09\0\1a\0\1"sv},
        {"no name's header", "\x87\0\0\5\1"sv},
        {"half a name's header", "\x87\0\0\4"sv},
        {"name longer than the value", "\x87\0\0\x09\0\7a\0\1"sv},
        {"longest name", "\x87\0\0\x09\xff\xff"
                         "a\0\1"sv},
        {"name without its NUL", "\x87\0\0\x09\0\1ab\1"sv},
        {"no data", "\x87\0\0\x08\0\1a\0"sv},
        {"number too short", "\x85\0\0\x0b\0\1a\0\1\2\3"sv},
        {"number too long", "\x85\0\0\x0d\0\1a\0\1\2\3\4\5"sv},
        {"empty text without a NUL", "\x83\0\0\x08\0\1a\0"sv},
        {"text without its NUL", "\x83\0\0\x0a\0\1a\0xy"sv},
        {"unknown type", "\x89\0\0\x09\0\1a\0\1"sv},
        {"last type", "\xff\0\0\x09\0\1a\0\1"sv},
    };
    for (const auto &test : cases) {
        SCOPED_TRACE(test.what);
        std::vector<char> memory(test.bytes.begin(), test.bytes.end());
        memory.shrink_to_fit();
        auto *attr = reinterpret_cast<blob_attr *>(memory.data());
        EXPECT_FALSE(blobmsg_check_attr(attr, false));
        // The getters stay within the value all the same.
        EXPECT_LE(blobmsg_data_len(attr), blob_len(attr));
        EXPECT_GE(strlen(blobmsg_name(attr)), 0u);
        blobmsg_get_u64(attr);
        if (const char *text = blobmsg_get_string(attr)) {
            EXPECT_LT(strlen(text), blob_len(attr));
        }
    }
}

TEST(BlobmsgDamaged, LookupReportsAnUnsoundMember) {
    std::string bytes("\x85\0\0\x0b\0\1a\0\1\2\3\0"sv);
    const blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_INT32}};
    blob_attr *tb[1];
    EXPECT_EQ(-1, blobmsg_parse(policy, 1, tb, bytes.data(), (unsigned)bytes.size()));
    EXPECT_FALSE(blobmsg_check_attr_len(reinterpret_cast<blob_attr *>(bytes.data()), false, 11));
}

TEST(BlobmsgDamaged, NameIsRequiredWhereAsked) {
    std::string bytes("\x87\0\0\x09\0\0\0\0\1\0\0\0"sv);
    auto *attr = reinterpret_cast<blob_attr *>(bytes.data());
    EXPECT_TRUE(blobmsg_check_attr_len(attr, false, bytes.size()));
    EXPECT_FALSE(blobmsg_check_attr_len(attr, true, bytes.size()));
}

} // namespace
