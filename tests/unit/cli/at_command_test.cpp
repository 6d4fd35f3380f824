// The command "AT" with a modem on a pseudo-terminal.
#include "cli/commands.h"

#include <string>
#include <sys/file.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/capture.h"
#include "support/modem_peer.h"

namespace {

using namespace std::string_literals;

class AtCommand : public testing::Test {
protected:
    AtCommand() {
        model = *modem_list_find_id(modem_head, 3);
        replace_modem_struct(&model, "9-9.9.9"); // no machine has a modem there
    }

    std::string run(std::vector<std::string> arguments) {
        std::vector<char *> pointers;
        for (std::string &argument : arguments) {
            pointers.push_back(argument.data());
        }
        Capture errors(STDERR_FILENO);
        Capture out(STDOUT_FILENO);
        status = run_command("AT", CommandContext{model, pointers});
        return out.text();
    }

    ModemModel model;
    int status = -1;
};

TEST_F(AtCommand, prints_the_reply_behind_a_line_feed) {
    ModemPeer modem(answer("AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"));
    EXPECT_EQ(run({modem.path(), "AT+CSQ"}), "\nAT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
    EXPECT_EQ(status, 0);
    modem.stop();
    EXPECT_EQ(modem.received(), "AT+CSQ\r\n");
}

TEST_F(AtCommand, without_an_argument_prints_its_usage_and_exits_with_255) {
    EXPECT_EQ(run({}), "\nUsage:<vela_modem> <AT> [device] <command>");
    EXPECT_EQ(status & 0xFF, 255);
}

TEST_F(AtCommand, a_bus_without_a_modem_is_silent) {
    EXPECT_EQ(run({"AT+CSQ"}), "");
    EXPECT_EQ(status, 0);
}

TEST_F(AtCommand, three_arguments_are_silent) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    EXPECT_EQ(run({modem.path(), "AT+CSQ", "more"}), "");
    EXPECT_EQ(status, 0);
    modem.stop();
    EXPECT_EQ(modem.received(), "");
}

TEST_F(AtCommand, a_port_that_is_held_is_silent) {
    ModemPeer modem(answer("\r\nOK\r\n"));
    ASSERT_EQ(flock(modem.terminal().tty(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(run({modem.path(), "AT"}), "");
    EXPECT_EQ(status, 0);
}

TEST_F(AtCommand, an_error_reply_is_printed) {
    ModemPeer modem(answer("\r\nERROR\r\n"));
    EXPECT_EQ(run({modem.path(), "AT+FOO"}), "\n\r\nERROR\r\n");
    EXPECT_EQ(status, 0);
}

TEST_F(AtCommand, a_percent_sign_in_the_reply_is_printed) {
    ModemPeer modem(answer("\r\n%s%n%d\r\nOK\r\n"));
    EXPECT_EQ(run({modem.path(), "AT"}), "\n\r\n%s%n%d\r\nOK\r\n");
}

TEST_F(AtCommand, default_band_has_no_meaning_here) {
    ModemPeer modem(answer("\r\nERROR\r\n"));
    run({modem.path(), "default_band"});
    modem.stop();
    EXPECT_EQ(modem.received(), "default_band\r\n");
}

TEST_F(AtCommand, a_command_of_255_characters_is_sent_whole) {
    const std::string command(255, 'A');
    ModemPeer modem(answer("\r\nOK\r\n"));
    EXPECT_EQ(run({modem.path(), command}), "\n\r\nOK\r\n");
    modem.stop();
    EXPECT_EQ(modem.received(), command + "\r\n");
}

TEST_F(AtCommand, a_command_of_256_characters_aborts) {
    const PseudoTerminal terminal;
    EXPECT_ABORT(run({terminal.path(), std::string(256, 'A')}));
    EXPECT_ABORT(run({terminal.path(), std::string(257, 'A')}));
    EXPECT_ABORT(run({std::string(256, 'A')}));
}

TEST_F(AtCommand, a_device_of_63_characters_is_tried_and_one_of_64_aborts) {
    EXPECT_EQ(run({"/" + std::string(62, 'd'), "AT"}), "");
    EXPECT_EQ(status, 0);
    EXPECT_ABORT(run({"/" + std::string(63, 'd'), "AT"}));
}

TEST_F(AtCommand, a_reply_longer_than_4095_bytes_is_cut) {
    ModemPeer modem(answer(std::string(5000, 'x')));
    EXPECT_EQ(run({modem.path(), "AT"}), "\n" + std::string(4095, 'x'));
}

TEST_F(AtCommand, a_reply_is_printed_up_to_its_first_nul) {
    ModemPeer modem(answer("\r\nabc\0def\r\nOK\r\n"s));
    EXPECT_EQ(run({modem.path(), "AT"}), "\n\r\nabc");
}

} // namespace
