// blob attributes: the bytes on the wire, and attributes that lie about their lengths.
#include <gtest/gtest.h>
#include <libubox/blob.h>

#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

using namespace std::string_view_literals;

class Blob : public testing::Test {
protected:
    ~Blob() override { blob_buf_free(&buf); }

    std::string_view bytes() const { return {reinterpret_cast<const char *>(buf.head), blob_pad_len(buf.head)}; }

    blob_buf buf{};
};

// An attribute in memory of just the size of the bytes, so that the sanitizers see each byte read beyond.
class Received {
public:
    explicit Received(std::string_view bytes) : bytes_(bytes.begin(), bytes.end()) { bytes_.shrink_to_fit(); }
    blob_attr *attr() { return reinterpret_cast<blob_attr *>(bytes_.data()); }
    size_t size() const { return bytes_.size(); }

private:
    std::vector<char> bytes_;
};

TEST_F(Blob, EmptyMessage) {
    ASSERT_EQ(0, blob_buf_init(&buf, 0));
    EXPECT_EQ("\0\0\0\4"sv, bytes());
    EXPECT_EQ(0u, blob_len(buf.head));
}

TEST_F(Blob, NumbersAreBigEndianAndPadded) {
    ASSERT_EQ(0, blob_buf_init(&buf, 0));
    blob_put_u8(&buf, 10, 1);
    blob_put_u16(&buf, 6, 0x1234);
    blob_put_u32(&buf, 1, 0x12345678);
    blob_put_u64(&buf, 4, 0x123456789abcdef0);
    EXPECT_EQ("\0\0\0\x28"
              "\x0a\0\0\5\1\0\0\0"
              "\6\0\0\6\x12\x34\0\0"
              "\1\0\0\x08\x12\x34\x56\x78"
              "\4\0\0\x0c\x12\x34\x56\x78\x9a\xbc\xde\xf0"sv,
              bytes());
}

TEST_F(Blob, TextCarriesItsNul) {
    ASSERT_EQ(0, blob_buf_init(&buf, 0));
    blob_put_string(&buf, 2, "network");
    EXPECT_EQ("\0\0\0\x10\2\0\0\x0cnetwork\0"sv, bytes());
    EXPECT_STREQ("network", blob_get_string(static_cast<blob_attr *>(blob_data(buf.head))));
}

TEST_F(Blob, NestedAttributesEndWithTheirParent) {
    ASSERT_EQ(0, blob_buf_init(&buf, 0));
    void *outer = blob_nest_start(&buf, 6);
    void *inner = blob_nest_start(&buf, 7);
    blob_put_u8(&buf, 1, 0xff);
    blob_nest_end(&buf, inner);
    blob_nest_end(&buf, outer);
    blob_put_u8(&buf, 2, 0xee);
    EXPECT_EQ("\0\0\0\x1c"
              "\6\0\0\x10"
              "\7\0\0\x0c"
              "\1\0\0\5\xff\0\0\0"
              "\2\0\0\5\xee\0\0\0"sv,
              bytes());
}

TEST_F(Blob, BufferIsUsedAgainAndGrows) {
    for (int round = 0; round < 3; round++) {
        ASSERT_EQ(0, blob_buf_init(&buf, 0));
        for (uint32_t i = 0; i < 5000; i++) {
            ASSERT_NE(nullptr, blob_put_u32(&buf, 1, i));
        }
        EXPECT_EQ(4u + 5000 * 8, blob_raw_len(buf.head));
        blob_attr *pos;
        int rem;
        uint32_t expected = 0;
        blob_for_each_attr(pos, buf.head, rem) {
            ASSERT_EQ(expected++, blob_get_u32(pos));
        }
        EXPECT_EQ(5000u, expected);
        EXPECT_EQ(0, rem);
    }
}

TEST_F(Blob, WhatALengthCannotSayIsRefused) {
    ASSERT_EQ(0, blob_buf_init(&buf, 0));
    blob_put_u8(&buf, 1, 1);
    EXPECT_EQ(nullptr, blob_put(&buf, 1, nullptr, BLOB_ATTR_LEN_MASK));
    EXPECT_EQ(nullptr, blob_put(&buf, 1, nullptr, 0xffffffff));
    EXPECT_EQ(nullptr, blob_new(&buf, 1, -1));
    EXPECT_EQ("\0\0\0\x0c\1\0\0\5\1\0\0\0"sv, bytes());
    EXPECT_NE(nullptr, blob_put(&buf, 1, nullptr, 0xfff000));
    EXPECT_EQ(nullptr, blob_put(&buf, 1, nullptr, 0x1000));
}

TEST_F(Blob, WritingIntoNoBufferFails) {
    EXPECT_EQ(nullptr, blob_put_u8(&buf, 1, 1));
    EXPECT_EQ(nullptr, blob_nest_start(&buf, 1));
    blob_nest_end(&buf, nullptr);
    blob_buf_free(&buf);
}

TEST_F(Blob, RawAttributesAreCopied) {
    ASSERT_EQ(0, blob_buf_init(&buf, 0));
    EXPECT_NE(nullptr, blob_put_raw(&buf, "\5\0\0\5\x11\0\0\0\6\0\0\4", 12));
    EXPECT_EQ("\0\0\0\x10\5\0\0\5\x11\0\0\0\6\0\0\4"sv, bytes());
    EXPECT_EQ(nullptr, blob_put_raw(&buf, "\5\0\0", 3));
}

TEST(BlobRead, AttributesAreSortedByIdAndCheckedByType) {
    const blob_attr_info info[4] = {
        {BLOB_ATTR_UNSPEC, 0, 0, nullptr},
        {BLOB_ATTR_INT32, 0, 0, nullptr},
        {BLOB_ATTR_STRING, 0, 0, nullptr},
        {BLOB_ATTR_INT8, 0, 0, nullptr},
    };
    Received message("\0\0\0\x34"
                     "\2\0\0\6ok\0\0"     // unterminated
                     "\1\0\0\x08\0\0\0\7" // as it should be
                     "\3\0\0\7\1\1\1\0"   // too long for its type
                     "\x7f\0\0\4"         // beyond the places
                     "\2\0\0\6x\0\0\0"    // as it should be
                     "\1\0\0\x0c\0\0\0\1\0\0\0\2"sv);
    blob_attr *found[4];
    EXPECT_EQ(2, blob_parse_untrusted(message.attr(), message.size(), found, info, 4));
    ASSERT_NE(nullptr, found[1]);
    EXPECT_EQ(7u, blob_get_u32(found[1]));
    ASSERT_NE(nullptr, found[2]);
    EXPECT_STREQ("x", blob_get_string(found[2]));
    EXPECT_EQ(nullptr, found[3]);
}

TEST(BlobRead, MessageLongerThanItsMemoryIsNotRead) {
    Received message("\0\0\0\x0d\1\0\0\5\1\0\0\0"sv);
    blob_attr *found[4];
    EXPECT_EQ(0, blob_parse_untrusted(message.attr(), message.size(), found, nullptr, 4));
    EXPECT_EQ(0, blob_parse_untrusted(message.attr(), 3, found, nullptr, 4));
    EXPECT_EQ(0, blob_parse_untrusted(nullptr, 0, found, nullptr, 4));
}

TEST(BlobRead, LoopsEndAtTheFirstBadLength) {
    const struct {
        std::string_view bytes;
        int members;
    } cases[] = {
        {"\0\0\0\0"sv, 0},                           // shorter than its header
        {"\0\0\0\3"sv, 0},                           //
        {"\0\0\0\6\1\0"sv, 0},                       // half a member's header
        {"\0\0\0\x08\1\0\0\0"sv, 0},                 // a member of no length
        {"\0\0\0\x08\1\0\0\3"sv, 0},                 // one shorter than its header
        {"\0\0\0\x0c\1\0\0\4\1\0\0\x08"sv, 1},       // one that ends behind the message
        {"\0\0\0\x09\1\0\0\5\1"sv, 0},               // one without its padding
        {"\0\0\0\x0c\1\xff\xff\xff\1\0\0\4"sv, 0},   // the longest
        {"\0\0\0\x10\1\0\0\4\1\0\0\4\1\0\0\0"sv, 2}, // two good ones in front
    };
    for (const auto &test : cases) {
        Received message(test.bytes);
        blob_attr *pos;
        size_t rem;
        int members = 0;
        blob_for_each_attr(pos, message.attr(), rem) {
            members++;
        }
        EXPECT_EQ(test.members, members) << testing::PrintToString(test.bytes);
    }
}

TEST(BlobRead, ShortPayloadsReadAsNothing) {
    Received empty("\1\0\0\4"sv);
    EXPECT_EQ(0u, blob_get_u8(empty.attr()));
    EXPECT_EQ(0u, blob_get_u16(empty.attr()));
    EXPECT_EQ(0u, blob_get_u32(empty.attr()));
    EXPECT_EQ(0u, blob_get_u64(empty.attr()));
    EXPECT_EQ(nullptr, blob_get_string(empty.attr()));
    Received unterminated("\2\0\0\7abc"sv);
    EXPECT_EQ(nullptr, blob_get_string(unterminated.attr()));
}

TEST(BlobRead, CopiesAndCompares) {
    Received message("\2\0\0\6x\0"sv);
    blob_attr *copy = blob_memdup(message.attr());
    ASSERT_NE(nullptr, copy);
    EXPECT_TRUE(blob_attr_equal(copy, message.attr()));
    copy->data[0] = 'y';
    EXPECT_FALSE(blob_attr_equal(copy, message.attr()));
    EXPECT_FALSE(blob_attr_equal(copy, nullptr));
    free(copy);
}

} // namespace
