// Registration of a Fibocom modem from its replies.
#include "vendor/fibocom_registration.h"

#include <string>

#include <gtest/gtest.h>

#include "support/replies.h"

namespace {

bool registered(const std::string &values) {
    return is_fibocom_registered("\r\n+CREG: " + values + "\r\n\r\nOK\r\n");
}

TEST(FibocomRegistered, at_home) {
    EXPECT_TRUE(registered("0,1"));
    EXPECT_TRUE(registered("1,1"));
    EXPECT_TRUE(registered("2,1,\"2A1C\",\"2FC001\",7"));
    EXPECT_TRUE(registered(",1")) << "the first value is not looked at";
    EXPECT_TRUE(is_fibocom_registered(recorded_reply("fibocom-fm150/creg--three-digit-lac-act-13")));
    EXPECT_TRUE(is_fibocom_registered(recorded_reply("fibocom-fm190/creg--lac-FFFF-act-13")));
}

TEST(FibocomRegistered, roaming_does_not_count) {
    EXPECT_FALSE(registered("0,5"));
    EXPECT_FALSE(registered("2,5,\"2A1C\",\"2FC001\",7"));
}

TEST(FibocomRegistered, other_states) {
    for (const char *values :
         {"0,0", "0,2", "0,3",  "0,4",  "0,6",  "0,7",  "0,10",    "0,11", "0,15", "0,21",  "1,0", "1",
          "",    "0,",  "0,,1", "0, 1", "0,01", "0,1 ", "0,\"1\"", "0,-1", "0,+1", "0,1\n", "0,1x"}) {
        EXPECT_FALSE(registered(values)) << values;
    }
    EXPECT_FALSE(registered("0,1" + std::string(1000, '1'))) << "a long value that begins with it";
    EXPECT_FALSE(is_fibocom_registered(recorded_reply("fibocom-l850/creg--2-6-sms-only")));
    EXPECT_FALSE(is_fibocom_registered(recorded_reply("fibocom-l850/creg--2-6-leading-empty-line")));
    EXPECT_FALSE(is_fibocom_registered(recorded_reply("quectel-ep06/creg--2-3-denied-while-lte-registered")));
}

TEST(FibocomRegistered, with_an_echo_the_second_value_is_the_same) {
    EXPECT_TRUE(is_fibocom_registered("AT+CREG?\r\r\n+CREG: 0,1\r\n\r\nOK\r\n"));
    EXPECT_TRUE(is_fibocom_registered(recorded_reply("quectel-eg25/creg--echo-0-1-split-read")));
    EXPECT_FALSE(is_fibocom_registered("AT+CREG?\r\r\n+CREG: 0,5\r\n\r\nOK\r\n"));
    EXPECT_FALSE(is_fibocom_registered("AT+CREG?\r\r\n+CREG: 5,0,1\r\n\r\nOK\r\n"));
}

TEST(FibocomRegistered, a_reply_that_ends_before_the_state_does_not_count) {
    const std::string reply = "\r\n+CREG: 0,1\r\n\r\nOK\r\n";
    for (size_t length = 0; length <= reply.size(); length++) {
        EXPECT_EQ(is_fibocom_registered(reply.substr(0, length)), length >= 12) << length;
    }
    EXPECT_FALSE(is_fibocom_registered("\r\nOK\r\n"));
    EXPECT_FALSE(is_fibocom_registered({}));
}

TEST(FibocomRegistered, values_are_counted_from_the_tenth_character_on) {
    EXPECT_FALSE(is_fibocom_registered("1,1,1,1\r\n")) << "none behind it";
    EXPECT_TRUE(is_fibocom_registered("0,0,0,0,0,1,0\r\n\r\nOK\r\n")) << "which is the comma before the 1";
    EXPECT_FALSE(is_fibocom_registered("1,1,1,1,1,5,1\r\n\r\nOK\r\n"));
}

TEST(FibocomRegistered, lines_that_end_in_a_line_feed_alone_do_not_count) {
    EXPECT_FALSE(is_fibocom_registered("\n+CREG: 0,1\n\nOK\n"));
    EXPECT_FALSE(is_fibocom_registered("\n\n+CREG: 0,1\nOK\n"));
}

TEST(FibocomCheckRegister, without_a_modem_it_is_not_registered) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    EXPECT_EQ(fibocom_check_register(model), -1);
}

TEST(FibocomGetMode, without_a_modem_nothing_is_written) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    char mode[3] = {};
    EXPECT_EQ(fibocom_get_mode(model, mode), -1);
    EXPECT_STREQ(mode, "");
}

} // namespace
