// Registration of Quectel modems from their replies.
#include "modem/modem_core/registration.h"
#include "vendor/quectel_registration.h"

#include <gtest/gtest.h>

#include "support/replies.h"

namespace {

TEST(QuectelRegistered, at_home_or_roaming) {
    EXPECT_TRUE(is_registered(recorded_reply("quectel-eg25/creg--echo-0-1-split-read").c_str()));
    EXPECT_TRUE(is_registered("\r\n+CREG: 0,1\r\n\r\nOK\r\n"));
    EXPECT_TRUE(is_registered("\r\n+CREG: 2,5\r\n\r\nOK\r\n"));
}

TEST(QuectelRegistered, other_states) {
    for (const char *name : {"quectel-ec21/cereg--0-2-searching", "quectel-ec21/cereg--0-4-unknown",
                             "quectel-ep06/creg--2-3-denied-while-lte-registered"}) {
        EXPECT_FALSE(is_registered(recorded_reply(name).c_str())) << name;
    }
    for (const char *reply : {"", "\r\nOK\r\n", "\r\n+CREG: 0,0\r\n\r\nOK\r\n", "\r\n+CREG: 0,11\r\n\r\nOK\r\n",
                              "\r\n+CREG: 1,15\r\n\r\nOK\r\n", "\r\n+CREG: 0,1\n\nOK\n"}) {
        EXPECT_FALSE(is_registered(reply)) << reply;
    }
}

TEST(QuectelRegistered, ep06_with_cell_identities_behind_the_state_does_not_count) {
    EXPECT_FALSE(is_registered(recorded_reply("quectel-ep06/cereg--2-1-quoted-hex").c_str()));
}

TEST(QuectelRegistered, what_counts_is_the_end_of_any_line) {
    EXPECT_TRUE(is_registered("\r\n+CREG: 2,0,\"2A16\",\"DA1EA01\",5\r\n\r\nOK\r\n"));
}

TEST(QuectelCheckRegister, without_a_modem_it_is_not_registered) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    EXPECT_EQ(quectel_check_register(model), -1);
}

} // namespace
