// The command line, as shell scripts use it: output, error text and exit status of every command, to the letter.
#include "uci_fixture.h"

#include <cstdio>
#include <vector>

namespace uci_test {
namespace {

struct Outcome {
    std::string out;
    std::string err;
    int status;
    bool operator==(const Outcome &) const = default;
};

std::ostream &operator<<(std::ostream &stream, const Outcome &outcome) {
    return stream << "status " << outcome.status << ", out \"" << outcome.out << "\", err \"" << outcome.err << '"';
}

const Outcome NOT_FOUND = {"", "uci: Entry not found\n", 1};
const Outcome INVALID = {"", "uci: Invalid argument\n", 1};
const Outcome SILENT = {"", "", 0};

std::string quoted(const std::string &text) {
    std::string result = "'";
    for (const char c : text)
        c == '\'' ? result.append("'\\''") : result.append(1, c);
    return result.append("'");
}

class UciCli : public UciTest {
protected:
    void SetUp() override {
        UciTest::SetUp();
        write_config("network",
                     "config interface 'lan'\n\toption proto 'dhcp'\n\tlist dns '1.1.1.1'\n\tlist dns '8.8.8.8'\n"
                     "\toption note 'it'\\''s'\n");
        write_config("firewall", "config defaults\n\toption input 'ACCEPT'\n\nconfig zone\n\toption name 'lan'\n"
                                 "\nconfig zone 'named'\n\nconfig zone\n\toption name 'wan'\n");
    }
    Outcome run(const std::vector<std::string> &arguments) const {
        std::string command = UCI_CLI_PATH " -c ";
        command.append(quoted(confdir_)).append(" -P ").append(quoted(savedir_));
        for (const std::string &argument : arguments)
            command.append(" ").append(quoted(argument));
        command.append(" >").append(quoted(root_ + "/out")).append(" 2>").append(quoted(root_ + "/err"));
        const int status = std::system(command.c_str());
        return {read_file(root_ + "/out"), read_file(root_ + "/err"), WIFEXITED(status) ? WEXITSTATUS(status) : -1};
    }
    static Outcome prints(const std::string &text) { return {text, "", 0}; }
};

TEST_F(UciCli, get) {
    EXPECT_EQ(run({"get", "network.lan.proto"}), prints("dhcp\n"));
    EXPECT_EQ(run({"get", "network.lan.dns"}), prints("1.1.1.1 8.8.8.8\n"));
    EXPECT_EQ(run({"get", "network.lan.note"}), prints("it's\n"));
    EXPECT_EQ(run({"get", "network.lan"}), prints("interface\n"));
    EXPECT_EQ(run({"get", "firewall.@zone[-1].name"}), prints("wan\n"));
    EXPECT_EQ(run({"get", "network.lan.mtu"}), NOT_FOUND);
    EXPECT_EQ(run({"get", "network.wan"}), NOT_FOUND);
    EXPECT_EQ(run({"get", "missing.wan.x"}), NOT_FOUND);
    EXPECT_EQ(run({"get", "network.la-n.x"}), INVALID);
    EXPECT_EQ(run({"get", "network"}), INVALID);
    EXPECT_EQ(run({"-q", "get", "network.lan.mtu"}), (Outcome{"", "", 1}));
    EXPECT_EQ(run({"-q", "get", "missing"}), (Outcome{"", "", 1}));
}

TEST_F(UciCli, show) {
    EXPECT_EQ(run({"show", "network"}), prints("network.lan=interface\nnetwork.lan.proto='dhcp'\n"
                                               "network.lan.dns='1.1.1.1' '8.8.8.8'\nnetwork.lan.note='it'\\''s'\n"));
    const std::string firewall = "firewall.@defaults[0]=defaults\nfirewall.@defaults[0].input='ACCEPT'\n"
                                 "firewall.@zone[0]=zone\nfirewall.@zone[0].name='lan'\nfirewall.named=zone\n"
                                 "firewall.@zone[2]=zone\nfirewall.@zone[2].name='wan'\n";
    EXPECT_EQ(run({"show", "firewall"}), prints(firewall));
    EXPECT_EQ(run({"-X", "show", "firewall"}),
              prints("firewall.cfg01e63d=defaults\nfirewall.cfg01e63d.input='ACCEPT'\nfirewall.cfg02dc81=zone\n"
                     "firewall.cfg02dc81.name='lan'\nfirewall.named=zone\nfirewall.cfg04dc81=zone\n"
                     "firewall.cfg04dc81.name='wan'\n"));
    EXPECT_EQ(run({"show", "firewall.@zone[0]"}), prints("firewall.@zone[0]=zone\nfirewall.@zone[0].name='lan'\n"));
    EXPECT_EQ(run({"show", "network.lan.proto"}), prints("network.lan.proto='dhcp'\n"));
    EXPECT_EQ(run({"show"}), prints(firewall + run({"show", "network"}).out));
    EXPECT_EQ(run({"show", "missing"}), NOT_FOUND);
    EXPECT_EQ(run({"show", "network.wan"}), NOT_FOUND);
}

TEST_F(UciCli, changes_are_staged_until_committed) {
    const std::string before = config("network");
    EXPECT_EQ(run({"set", "network.lan.proto=static"}), SILENT);
    EXPECT_EQ(run({"set", "network.wan=interface"}), SILENT);
    EXPECT_EQ(run({"set", "network.wan.note=a 'b'\nc"}), SILENT);
    EXPECT_EQ(run({"add_list", "network.lan.dns=9.9.9.9"}), SILENT);
    EXPECT_EQ(run({"delete", "network.lan.note"}), SILENT);
    EXPECT_EQ(config("network"), before);
    EXPECT_EQ(run({"get", "network.lan.proto"}), prints("static\n"));
    const std::string changes = "network.lan.proto='static'\nnetwork.wan='interface'\n"
                                "network.wan.note='a '\\''b'\\''\nc'\nnetwork.lan.dns+='9.9.9.9'\n-network.lan.note\n";
    EXPECT_EQ(run({"changes", "network"}), prints(changes));
    EXPECT_EQ(run({"changes"}), prints(changes));
    EXPECT_EQ(run({"changes", "firewall"}), SILENT);
    EXPECT_EQ(run({"changes", "missing"}), NOT_FOUND);
    EXPECT_EQ(run({"commit", "network"}), SILENT);
    EXPECT_EQ(config("network"),
              "\nconfig interface 'lan'\n\toption proto 'static'\n\tlist dns '1.1.1.1'\n\tlist dns '8.8.8.8'\n"
              "\tlist dns '9.9.9.9'\n\nconfig interface 'wan'\n\toption note 'a '\\''b'\\''\nc'\n");
    EXPECT_EQ(run({"changes"}), SILENT);
}

TEST_F(UciCli, anonymous_sections_are_changed_by_index) {
    EXPECT_EQ(run({"set", "firewall.@zone[-1].name=uplink"}), SILENT);
    EXPECT_EQ(run({"delete", "firewall.@zone[0]"}), SILENT);
    EXPECT_EQ(run({"changes"}), prints("firewall.cfg04dc81.name='uplink'\n-firewall.cfg02dc81\n"));
    EXPECT_EQ(run({"commit"}), SILENT);
    EXPECT_EQ(config("firewall"), "\nconfig defaults\n\toption input 'ACCEPT'\n\nconfig zone 'named'\n"
                                  "\nconfig zone\n\toption name 'uplink'\n");
}

TEST_F(UciCli, refused_changes) {
    EXPECT_EQ(run({"set", "network.wan.proto=dhcp"}), INVALID);
    EXPECT_EQ(run({"set", "network.lan.proto"}), INVALID);
    EXPECT_EQ(run({"set", "missing.lan.proto=x"}), NOT_FOUND);
    EXPECT_EQ(run({"add_list", "network.wan.dns=x"}), INVALID);
    EXPECT_EQ(run({"delete", "network.lan.mtu"}), NOT_FOUND);
    EXPECT_EQ(run({"delete", "network.wan"}), NOT_FOUND);
    EXPECT_EQ(run({"-q", "delete", "network.wan"}), (Outcome{"", "", 1}));
    EXPECT_EQ(run({"commit", "missing"}), NOT_FOUND);
    EXPECT_EQ(run({"changes"}), SILENT);
}

TEST_F(UciCli, a_file_that_does_not_parse) {
    write_config("broken", "config a 'b\n");
    EXPECT_EQ(run({"get", "broken.b.c"}), (Outcome{"", "uci: Parse error\n", 1}));
    EXPECT_EQ(run({"commit", "broken"}), (Outcome{"", "uci: Parse error\n", 1}));
    EXPECT_EQ(config("broken"), "config a 'b\n");
    EXPECT_EQ(run({"set", "network.lan.proto=static"}), SILENT);
    EXPECT_EQ(run({"commit"}).status, 1) << "says that something is wrong,";
    EXPECT_EQ(run({"changes", "network"}), SILENT) << "and commits the others all the same";
}

TEST_F(UciCli, wrong_usage) {
    for (const std::vector<std::string> &arguments : std::vector<std::vector<std::string>>{
             {}, {"frobnicate"}, {"get"}, {"set"}, {"get", "network.lan", "network.wan"}, {"-z", "show"}}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_NE(outcome.err.find("Usage: uci "), std::string::npos);
    }
}

} // namespace
} // namespace uci_test
