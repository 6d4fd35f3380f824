// The program itself, as far as it goes without a modem: its usage and its silence.
#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

#include <gtest/gtest.h>

namespace {

constexpr const char *USAGE =
    "\nUsage:<vela_modem> [-D] [-B <bus>] <command> [option]"
    "\nCommand possible:connect|connect-auto|new-connect-auto|disconnect|sim-status|AT|signal|cells|thermal|"
    "wifi_lte_interference\n";

constexpr const char *NO_MODEM = "2-1.9.9.9"; // a bus that no machine has

struct Outcome {
    std::string output;
    int status;
};

Outcome vela_modem(const std::string &arguments) {
    FILE *program = popen((VELA_MODEM " " + arguments + " 2>&1").c_str(), "r");
    EXPECT_NE(program, nullptr);
    Outcome run;
    std::array<char, 256> part;
    while (const size_t got = fread(part.data(), 1, part.size(), program)) {
        run.output.append(part.data(), got);
    }
    const int status = pclose(program);
    EXPECT_TRUE(WIFEXITED(status)) << arguments;
    run.status = WEXITSTATUS(status);
    return run;
}

TEST(Program, without_a_command_prints_both_usage_lines_and_exits_with_0) {
    for (const char *arguments : {"", "-D", "-D -B", "-B", "-B 1-1.2", "1-1.2", "-D 2-1.2", "-D -B 1-1"}) {
        const Outcome run = vela_modem(arguments);
        EXPECT_EQ(run.output, USAGE) << arguments;
        EXPECT_EQ(run.status, 0) << arguments;
    }
}

TEST(Program, without_a_modem_is_silent_whatever_the_command) {
    for (const char *command : {"signal", "cells", "AT", "AT ATI", "connect", "reboot", "''", "-D"}) {
        const Outcome run = vela_modem(std::string(NO_MODEM) + " " + command);
        EXPECT_EQ(run.output, "") << command;
        EXPECT_EQ(run.status, 0) << command;
    }
}

TEST(Program, says_why_with_the_debug_switch_in_front) {
    EXPECT_EQ(vela_modem(std::string("-D -B ") + NO_MODEM + " signal").output, "please insert device\n");
    EXPECT_EQ(vela_modem(std::string("-B ") + NO_MODEM + " signal -D").output, "");
}

} // namespace
