// The `ubus` command as a shell script sees it: what it prints, and its exit status.
#include "ubus_daemon.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace {

struct Outcome {
    std::string output; // standard output and error
    int status;
};

Outcome run(const std::string &arguments) {
    FILE *pipe = popen((std::string(UBUS_CLI) + " " + arguments + " 2>&1").c_str(), "r");
    std::string output;
    char buffer[4096];
    for (size_t count; (count = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) {
        output.append(buffer, count);
    }
    const int status = pclose(pipe);
    return {output, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

class UbusCli : public testing::Test {
protected:
    Outcome ubus(const std::string &arguments) { return run("-s " + std::string(daemon.socket()) + " " + arguments); }

    UbusDaemon daemon{R"({"interfaces": {"lan": "up"}, "replies": {"a": {"b": {"x": [1, true], "y": {"z": "q"}}}},
                          "faults": {"network": {"reload": "silent"}}})"};
};

TEST_F(UbusCli, PrintsTheReply) {
    const Outcome outcome = ubus("call a b");
    EXPECT_EQ("{\n\t\"x\": [\n\t\t1,\n\t\ttrue\n\t],\n\t\"y\": {\n\t\t\"z\": \"q\"\n\t}\n}\n", outcome.output);
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("{\"x\":[1,true],\"y\":{\"z\":\"q\"}}\n", ubus("-S call a b").output);
}

TEST_F(UbusCli, PassesArgumentsAndPrintsNothingForNoReply) {
    const Outcome outcome = ubus(R"(call network.interface up '{"interface":"lan"}')");
    EXPECT_EQ("", outcome.output);
    EXPECT_EQ(0, outcome.status);
    ASSERT_EQ(1u, daemon.log().size());
    EXPECT_EQ(R"({"kind": "ubus", "object": "network.interface", "method": "up", "args": {"interface": "lan"}})",
              daemon.log()[0]);
}

TEST_F(UbusCli, Lists) {
    EXPECT_EQ("mqtt\nnetwork\nnetwork.device\nnetwork.interface\nnetwork.interface.lan\na\n", ubus("list").output);
    EXPECT_EQ("network.interface\nnetwork.interface.lan\n", ubus("list 'network.i*'").output);
}

TEST_F(UbusCli, FailuresAreTheExitStatus) {
    const struct {
        const char *arguments;
        const char *output;
        int status;
    } cases[] = {
        {"call nobody status", "Command failed: Not found\n", 4},
        {"list nobody", "Command failed: Not found\n", 4},
        {"call a c", "Command failed: Method not found\n", 3},
        {"-t 1 call network reload", "Command failed: Request timed out\n", 7},
        {"call a b '{'", "Failed to parse message data\n", 255},
    };
    for (const auto &test : cases) {
        const Outcome outcome = ubus(test.arguments);
        EXPECT_EQ(test.output, outcome.output);
        EXPECT_EQ(test.status, outcome.status);
    }
}

TEST(UbusCliAlone, NoDaemon) {
    const Outcome outcome = run("-s /nonexistent/ubus.sock list");
    EXPECT_EQ("Failed to connect to ubus\n", outcome.output);
    EXPECT_EQ(255, outcome.status);
}

TEST(UbusCliAlone, Usage) {
    for (const char *arguments :
         {"", "call", "call a", "nonsense", "-t x list", "-t -1 list", "-t '' list", "-q list"}) {
        const Outcome outcome = run(arguments);
        EXPECT_NE(std::string::npos, outcome.output.find("Usage: ")) << arguments;
        EXPECT_EQ(255, outcome.status) << arguments;
    }
}

} // namespace
