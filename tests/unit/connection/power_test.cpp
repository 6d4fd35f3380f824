// Which command resets which model; what the commands and the supply do is tested in tests/router.
#include "connection/power.h"

#include <map>
#include <string>

#include <gtest/gtest.h>

namespace {

const std::map<int32_t, std::string> RESET_COMMANDS = {
    {0, "AT+QPOWD"}, {1, "AT+QPOWD"}, {2, "AT+QPOWD"},   {3, "AT+QPOWD"},
    {5, "AT!RESET"}, {6, "AT+QPOWD"}, {20, "AT+CRESET"}, {30, "AT+ZRST"},
};

std::string text(const char *command) {
    return command != nullptr ? command : "none";
}

TEST(Power, of_all_model_numbers_these_have_a_reset_command) {
    for (int32_t modem_id = -1; modem_id <= 260; modem_id++) {
        const auto row = RESET_COMMANDS.find(modem_id);
        EXPECT_EQ(text(reset_command(modem_id)), row != RESET_COMMANDS.end() ? row->second : "none") << modem_id;
    }
    EXPECT_EQ(reset_command(INT32_MAX), nullptr);
    EXPECT_EQ(reset_command(INT32_MIN), nullptr);
}

TEST(Power, a_sim_switch_resets_by_the_same_command_but_for_the_ec200t) {
    constexpr int32_t EC200T = 6;
    for (int32_t modem_id = -1; modem_id <= 260; modem_id++) {
        const std::string expected = modem_id == EC200T ? "none" : text(reset_command(modem_id));
        EXPECT_EQ(text(sim_switch_command(modem_id)), expected) << modem_id;
    }
}

// The port's reply has room for 19 characters: the echo, its line end and "OK" have to fit.
TEST(Power, the_answer_to_each_command_fits_behind_its_echo) {
    for (const auto &[modem_id, command] : RESET_COMMANDS) {
        EXPECT_LE((command + "\r\r\nOK").size(), 19u);
    }
}

} // namespace
