// The endpoints of received messages: which status for which request, and that they reach the spool.
#include "sms/sms_endpoints.h"

#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/files.h"
#include "support/json_text.h"

namespace {

namespace fs = std::filesystem;

const std::string INCOMING = "/etc/spool/sms/incoming/";
const std::string STORAGE = "/etc/spool/sms/storage/";

void with_spool(const std::function<void()> &body) {
    in_child_with_empty({"/etc"}, [&] {
        fs::create_directories(INCOMING);
        fs::create_directories(STORAGE);
        body();
    });
}

// Status and reply of a handler, such as "-251 {}".
std::string call(ApiHandler handler, const std::string &request) {
    const Json reply(json_object_new_object());
    const int32_t status = handler(parse_json(request).get(), reply.get());
    return std::to_string(status) + " " + plain_json(reply.get());
}

TEST(SmsEndpoints, a_request_without_a_modem_is_told_so_first) {
    for (const ApiHandler handler : {list_modem_sms, delete_modem_sms, delete_all_modem_sms, modem_sms_status}) {
        EXPECT_EQ(call(handler, "{}"), "-251 {}");
        EXPECT_EQ(call(handler, R"({"msg_id":"VMS99.a"})"), "-251 {}");
        EXPECT_EQ(call(handler, R"({"modem_id":-1})"), "-251 {}");
    }
}

TEST(SmsEndpoints, a_modem_that_is_in_no_row) {
    EXPECT_EQ(call(list_modem_sms, R"({"modem_id":2})"), "-250 {}");
    EXPECT_EQ(call(delete_modem_sms, R"({"modem_id":2,"msg_id":"VMS99.a"})"), "-250 {}");
    EXPECT_EQ(call(modem_sms_status, R"({"modem_id":2,"msg_id":"VMS99.a"})"), "-250 {}");
    EXPECT_EQ(call(delete_all_modem_sms, R"({"modem_id":2})"), "-250 {}");
}

TEST(SmsEndpoints, a_missing_message_is_told_before_an_unknown_modem) {
    for (const ApiHandler handler : {delete_modem_sms, modem_sms_status}) {
        EXPECT_EQ(call(handler, R"({"modem_id":2})"), "-258 {}");
        EXPECT_EQ(call(handler, R"({"modem_id":3})"), "-258 {}");
        EXPECT_EQ(call(handler, R"({"modem_id":3,"msg_id":17})"), "-258 {}");
        EXPECT_EQ(call(handler, R"({"modem_id":3,"msg_id":null})"), "-258 {}");
    }
}

TEST(SmsEndpoints, marking_read_moves_the_file_and_answers_0_also_where_there_is_none) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "text");
        for (int again = 0; again < 2; again++) {
            EXPECT_EQ(call(modem_sms_status, R"({"modem_id":3,"msg_id":"VMS99.a"})"), "0 {}");
            EXPECT_FALSE(fs::exists(INCOMING + "VMS99.a"));
            EXPECT_EQ(read_file(STORAGE + "VMS99.a"), "text");
        }
    });
}

TEST(SmsEndpoints, an_empty_incoming_and_a_missing_storage_directory_list_an_empty_array) {
    with_spool([] {
        fs::remove(STORAGE);
        EXPECT_EQ(call(list_modem_sms, R"({"modem_id":3})"), R"(0 {"messages":[]})");
        fs::remove(INCOMING);
        EXPECT_EQ(call(list_modem_sms, R"({"modem_id":3})"), R"(0 {"messages":[]})");
    });
}

TEST(SmsEndpoints, every_modem_lists_and_deletes_in_the_one_spool) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "From: 1\n\nabc");
        const std::string listed = R"(0 {"messages":[{"from":"1\n","body":"abc","status":"unread","name":"VMS99.a"}]})";
        EXPECT_EQ(call(list_modem_sms, R"({"modem_id":40})"), listed);
        EXPECT_EQ(call(list_modem_sms, R"({"modem_id":255})"), listed);
        EXPECT_EQ(call(delete_modem_sms, R"({"modem_id":5,"msg_id":"VMS99.a"})"), "0 {}");
        EXPECT_EQ(call(list_modem_sms, R"({"modem_id":40})"), R"(0 {"messages":[]})");
        EXPECT_EQ(call(delete_modem_sms, R"({"modem_id":5,"msg_id":"VMS99.a"})"), "-259 {}");
    });
}

TEST(SmsEndpoints, delete_all) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "\n");
        write_file(STORAGE + "VMS99.b", "\n");
        EXPECT_EQ(call(delete_all_modem_sms, R"({"modem_id":0})"), "0 {}");
        EXPECT_TRUE(fs::is_empty(INCOMING) && fs::is_empty(STORAGE));
    });
}

TEST(SmsEndpoints, delete_all_with_only_one_of_the_two_directories_deletes_nothing_and_answers_259) {
    with_spool([] {
        write_file(INCOMING + "VMS99.a", "\n");
        fs::remove(STORAGE);
        EXPECT_EQ(call(delete_all_modem_sms, R"({"modem_id":3})"), "-259 {}");
        EXPECT_TRUE(fs::exists(INCOMING + "VMS99.a"));
    });
}

TEST(SmsEndpoints, delete_all_of_a_modem_that_is_in_no_row) {
    EXPECT_EQ(del_all_modem_sms(2), -1);
    EXPECT_EQ(del_all_modem_sms(-1), -1);
}

} // namespace
