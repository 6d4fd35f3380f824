// ubus replies as JSON, from messages as libubus hands them over.
#include "platform/ubus.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubus.h>
}

#include "support/json_text.h"
#include "support/short_memory.h"

namespace {

// A message to fill.
class Message {
public:
    Message() { EXPECT_EQ(blob_buf_init(&buffer_, 0), 0); }
    ~Message() { blob_buf_free(&buffer_); }
    Message(const Message &) = delete;
    Message &operator=(const Message &) = delete;

    blob_buf *buffer() { return &buffer_; }
    blob_attr *head() { return buffer_.head; }

private:
    blob_buf buffer_ = {};
};

void receive(blob_attr *message, json_object **into) {
    ubus_request request = {};
    request.priv = into;
    receive_call_result_data(&request, 0, message);
}

std::string as_json(blob_attr *message) {
    json_object *object = nullptr;
    receive(message, &object);
    const Json owner(object);
    return object == nullptr ? "(null)" : plain_json(object);
}

// As a JSON number; a different byte order than the machine's would show.
TEST(UbusReply, members_of_each_type) {
    Message message;
    blobmsg_add_string(message.buffer(), "device", "wwan0");
    blobmsg_add_u8(message.buffer(), "up", 1);
    blobmsg_add_u8(message.buffer(), "pending", 0);
    blobmsg_add_u16(message.buffer(), "port", 0x1234);
    blobmsg_add_u32(message.buffer(), "uptime", 123456789);
    blobmsg_add_u64(message.buffer(), "bytes", 0x123456789Aull);
    EXPECT_EQ(as_json(message.head()),
              R"({"device":"wwan0","up":true,"pending":false,"port":4660,"uptime":123456789,"bytes":78187493530})");
}

TEST(UbusReply, interface_status_with_tables_and_arrays) {
    Message message;
    blobmsg_add_u8(message.buffer(), "up", 1);
    void *addresses = blobmsg_open_array(message.buffer(), "ipv4-address");
    void *address = blobmsg_open_table(message.buffer(), nullptr);
    blobmsg_add_string(message.buffer(), "address", "10.0.0.7");
    blobmsg_add_u32(message.buffer(), "mask", 30);
    blobmsg_close_table(message.buffer(), address);
    blobmsg_close_array(message.buffer(), addresses);
    void *data = blobmsg_open_table(message.buffer(), "data");
    blobmsg_close_table(message.buffer(), data);
    EXPECT_EQ(as_json(message.head()), R"({"up":true,"ipv4-address":[{"address":"10.0.0.7","mask":30}],"data":{}})");
}

TEST(UbusReply, an_empty_message_is_an_empty_object) {
    Message message;
    EXPECT_EQ(as_json(message.head()), "{}");
}

// json-c reads no more than 32 levels.
TEST(UbusReply, one_that_is_nested_too_deeply_leaves_the_pointer) {
    Message message;
    std::vector<void *> open;
    for (int level = 0; level < 40; level++) {
        open.push_back(blobmsg_open_table(message.buffer(), "in"));
    }
    for (; !open.empty(); open.pop_back()) {
        blobmsg_close_table(message.buffer(), open.back());
    }
    const Json before(json_object_new_object());
    json_object *object = before.get();
    receive(message.head(), &object);
    EXPECT_EQ(object, before.get());
}

TEST(UbusReply, one_that_needs_more_memory_than_there_is_leaves_the_pointer) {
    Message message;
    blobmsg_add_string(message.buffer(), "device", "wwan0");
    const Json before(json_object_new_object());
    json_object *object = before.get();
    {
        const ShortMemory none;
        receive(message.head(), &object);
    }
    EXPECT_EQ(object, before.get());
}

TEST(UbusReply, texts_that_need_escapes) {
    Message message;
    blobmsg_add_string(message.buffer(), "text", "a\"b\\c\x01\n/");
    json_object *object = nullptr;
    receive(message.head(), &object);
    const Json owner(object);
    EXPECT_STREQ(json_object_get_string(json_object_object_get(object, "text")), "a\"b\\c\x01\n/");
}

TEST(UbusReply, no_message_leaves_the_pointer) {
    json_object *object = nullptr;
    receive(nullptr, &object);
    EXPECT_EQ(object, nullptr);
    object = json_object_new_object();
    json_object *const before = object;
    receive(nullptr, &object);
    EXPECT_EQ(object, before);
    json_object_put(object);
}

TEST(UbusReply, a_later_message_replaces_and_releases_the_object_of_an_earlier_one) {
    Message first;
    blobmsg_add_u32(first.buffer(), "number", 1);
    Message second;
    blobmsg_add_u32(second.buffer(), "number", 2);
    json_object *object = nullptr;
    receive(first.head(), &object);
    receive(second.head(), &object); // the first is released, or the leak check tells
    const Json owner(object);
    EXPECT_EQ(plain_json(object), R"({"number":2})");
}

TEST(UbusReply, a_request_without_a_pointer_is_ignored) {
    Message message;
    blobmsg_add_u32(message.buffer(), "number", 1);
    ubus_request request = {};
    receive_call_result_data(&request, 0, message.head());
}

// Members whose length does not hold: what is outside of the message must not be read (the sanitizer would tell).
TEST(UbusReply, damaged_members_do_no_harm) {
    Message message;
    blobmsg_add_string(message.buffer(), "text", "value");
    const size_t length = blob_pad_len(message.head());
    for (size_t position = 4; position < length; position++) {
        for (int value : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
            std::unique_ptr<char[]> copy(new char[length]);
            memcpy(copy.get(), message.head(), length);
            copy[position] = static_cast<char>(value);
            json_object *object = nullptr;
            receive(reinterpret_cast<blob_attr *>(copy.get()), &object);
            const Json owner(object);
        }
    }
}

} // namespace
