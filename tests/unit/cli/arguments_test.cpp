// The command line taken apart.
#include "cli/arguments.h"

#include <initializer_list>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A command line with a null behind its last argument, as main() gets it.
class Line {
public:
    Line(std::initializer_list<const char *> arguments) : texts_(arguments.begin(), arguments.end()) {
        for (std::string &text : texts_) {
            argv_.push_back(text.data());
        }
        argv_.push_back(nullptr);
        ok = parse_arguments(static_cast<int>(texts_.size()), argv_.data(), &arguments_);
    }

    bool debug() const { return arguments_.debug; }
    std::string bus() const { return arguments_.bus; }
    std::string command() const { return arguments_.command; }
    std::vector<std::string> rest() const { return {arguments_.rest.begin(), arguments_.rest.end()}; }

    bool ok;

private:
    std::vector<std::string> texts_;
    std::vector<char *> argv_;
    Arguments arguments_ = {};
};

TEST(Arguments, a_command_alone_works_on_the_default_bus) {
    const Line line = {"vela_modem", "signal"};
    EXPECT_TRUE(line.ok);
    EXPECT_FALSE(line.debug());
    EXPECT_EQ(line.bus(), "1-1.2");
    EXPECT_EQ(line.command(), "signal");
    EXPECT_THAT(line.rest(), IsEmpty());
}

TEST(Arguments, no_arguments) {
    const Line line = {"vela_modem"};
    EXPECT_FALSE(line.ok);
    EXPECT_FALSE(line.debug());
}

TEST(Arguments, not_even_a_program_name) {
    const Line line = {};
    EXPECT_FALSE(line.ok);
}

TEST(Arguments, only_the_debug_switch) {
    const Line line = {"vela_modem", "-D"};
    EXPECT_FALSE(line.ok);
    EXPECT_TRUE(line.debug());
}

TEST(Arguments, only_the_debug_switch_and_b) {
    const Line line = {"vela_modem", "-D", "-B"};
    EXPECT_FALSE(line.ok);
    EXPECT_TRUE(line.debug());
}

TEST(Arguments, only_b_or_a_bus) {
    EXPECT_FALSE((Line{"vela_modem", "-B"}).ok);
    EXPECT_FALSE((Line{"vela_modem", "1-1.2"}).ok);
    EXPECT_FALSE((Line{"vela_modem", "-B", "1-1.2"}).ok);
    EXPECT_FALSE((Line{"vela_modem", "-D", "-B", "1-1.2"}).ok);
}

TEST(Arguments, all_options) {
    const Line line = {"vela_modem", "-D", "-B", "2-1.2", "AT", "/dev/ttyUSB2", "ATI"};
    EXPECT_TRUE(line.ok);
    EXPECT_TRUE(line.debug());
    EXPECT_EQ(line.bus(), "2-1.2");
    EXPECT_EQ(line.command(), "AT");
    EXPECT_THAT(line.rest(), ElementsAre("/dev/ttyUSB2", "ATI"));
}

TEST(Arguments, a_bus_without_b) {
    const Line line = {"vela_modem", "1-1.3", "signal"};
    EXPECT_TRUE(line.ok);
    EXPECT_EQ(line.bus(), "1-1.3");
    EXPECT_EQ(line.command(), "signal");
}

TEST(Arguments, b_without_a_bus_is_dropped) {
    const Line line = {"vela_modem", "-B", "signal"};
    EXPECT_TRUE(line.ok);
    EXPECT_EQ(line.bus(), "1-1.2");
    EXPECT_EQ(line.command(), "signal");
}

TEST(Arguments, a_bus_on_another_hub_is_the_command) {
    const Line line = {"vela_modem", "-B", "3-1", "signal"};
    EXPECT_TRUE(line.ok);
    EXPECT_EQ(line.bus(), "1-1.2");
    EXPECT_EQ(line.command(), "3-1");
    EXPECT_THAT(line.rest(), ElementsAre("signal"));
}

TEST(Arguments, b_before_the_debug_switch_makes_that_the_command) {
    const Line line = {"vela_modem", "-B", "-D", "signal"};
    EXPECT_TRUE(line.ok);
    EXPECT_FALSE(line.debug());
    EXPECT_EQ(line.command(), "-D");
    EXPECT_THAT(line.rest(), ElementsAre("signal"));
}

TEST(Arguments, a_bus_before_the_options_makes_them_the_command) {
    EXPECT_EQ((Line{"vela_modem", "1-1.2", "-B", "signal"}).command(), "-B");
    EXPECT_EQ((Line{"vela_modem", "1-1.2", "-D", "signal"}).command(), "-D");
    EXPECT_FALSE((Line{"vela_modem", "1-1.2", "-D", "signal"}).debug());
}

TEST(Arguments, each_option_is_taken_once) {
    EXPECT_EQ((Line{"vela_modem", "-D", "-D", "signal"}).command(), "-D");
    EXPECT_EQ((Line{"vela_modem", "-B", "-B", "signal"}).command(), "-B");
    const Line line = {"vela_modem", "1-1.2", "1-1.3", "signal"};
    EXPECT_EQ(line.bus(), "1-1.2");
    EXPECT_EQ(line.command(), "1-1.3");
}

TEST(Arguments, a_bus_is_what_contains_1_1_or_2_1) {
    for (const char *bus : {"1-1", "2-1", "1-1.2", "11-1.4", "2-1.2.3", "x1-1", "/sys/1-1.2"}) {
        EXPECT_EQ((Line{"vela_modem", bus, "signal"}).bus(), bus);
        EXPECT_EQ((Line{"vela_modem", bus, "signal"}).command(), "signal");
    }
    for (const char *command : {"1-2", "1_1", "3-1", "1-", "-1", "", "-b", "-DD", "-BB"}) {
        EXPECT_EQ((Line{"vela_modem", command, "signal"}).bus(), "1-1.2");
        EXPECT_EQ((Line{"vela_modem", command, "signal"}).command(), command);
    }
}

TEST(Arguments, buses_behind_the_command_are_arguments) {
    const Line line = {"vela_modem", "AT", "1-1.3", "-D"};
    EXPECT_EQ(line.bus(), "1-1.2");
    EXPECT_EQ(line.command(), "AT");
    EXPECT_THAT(line.rest(), ElementsAre("1-1.3", "-D"));
    EXPECT_FALSE(line.debug());
}

} // namespace
