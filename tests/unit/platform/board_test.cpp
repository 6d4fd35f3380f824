// What the router says of itself, where a test can say it: the board's name in private file systems, gateways in a network of
// its own. The name is read once in a process' life, so each name has a child.
#include "platform/board.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <sys/mount.h>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/files.h"

namespace {

using namespace std::string_view_literals;

void expect_board(const std::string &published, const char *name) {
    in_child_with_empty({"/tmp"}, [&] {
        std::filesystem::create_directory("/tmp/sysinfo");
        write_file("/tmp/sysinfo/board_name", published);
        EXPECT_STREQ(get_model_name(), name);
    });
}

TEST(BoardName, what_follows_the_vendor) {
    expect_board("acme,halvor\n", "halvor");
}

TEST(BoardName, in_lower_case) {
    expect_board("ACME,Pellin-V2\n", "pellin-v2");
}

TEST(BoardName, without_a_line_end) {
    expect_board("acme,tamber", "tamber");
}

TEST(BoardName, what_follows_the_last_of_several_commas) {
    expect_board("acme,series,ostrel\n", "ostrel");
}

TEST(BoardName, a_name_once_read_is_kept) {
    in_child_with_empty({"/tmp"}, [] {
        std::filesystem::create_directory("/tmp/sysinfo");
        write_file("/tmp/sysinfo/board_name", "acme,halvor\n");
        const char *first = get_model_name();
        write_file("/tmp/sysinfo/board_name", "acme,tamber\n");
        EXPECT_EQ(get_model_name(), first);
        EXPECT_STREQ(first, "halvor");
    });
}

TEST(BoardName, a_system_that_publishes_no_board_gives_a_text_all_the_same) {
    in_child_with_empty({"/tmp"}, [] { ASSERT_NE(get_model_name(), nullptr); });
}

// The device tree's texts end in a NUL, which the given one has by itself.
void expect_board_of_model(std::string_view model, const std::optional<std::string> &published, const char *name) {
    in_child_with_empty({"/tmp", "/proc"}, [&] {
        std::filesystem::create_directory("/proc/device-tree");
        write_file("/proc/device-tree/model", model);
        if (published) {
            std::filesystem::create_directory("/tmp/sysinfo");
            write_file("/tmp/sysinfo/board_name", *published);
        }
        EXPECT_STREQ(get_model_name(), name);
        EXPECT_EQ(umount("/proc"), 0); // a leak check at the end of the child looks there
    });
}

TEST(BoardName, a_system_without_a_published_one_is_named_by_its_device_tree) {
    expect_board_of_model("Acme Halvor\0"sv, std::nullopt, "halvor");
    expect_board_of_model("Acme Series,Tamber\0"sv, "", "tamber");
    expect_board_of_model("Pellin\0"sv, "\n", "pellin");
    expect_board_of_model("\0"sv, std::nullopt, "");
}

TEST(BoardName, what_is_published_comes_before_the_device_tree) {
    expect_board_of_model("Acme Halvor\0"sv, "acme,tamber\n", "tamber");
}

std::string gateway(const char *interface) {
    std::array<char, 16> out = {};
    get_gateway_by_ifname(interface, out);
    return out.data();
}

TEST(Gateway, an_interface_that_is_not_there_has_none) {
    EXPECT_EQ(gateway("nosuch0"), "");
    EXPECT_EQ(gateway(""), "");
    EXPECT_EQ(gateway("an-interface-name-that-is-longer-than-any-can-be"), "");
}

TEST(Gateway, a_used_buffer_is_emptied) {
    std::array<char, 16> out;
    out.fill('x');
    get_gateway_by_ifname("nosuch0", out);
    EXPECT_STREQ(out.data(), "");
}

// A line of /proc/net/route. The kernel prints addresses as the number that lies in memory, so by the machine's byte order.
std::string route(const char *mask, const char *gateway, const char *flags, int metric) {
    const auto number = [](const char *address) { return static_cast<unsigned>(inet_addr(address)); };
    std::array<char, 100> line;
    snprintf(line.data(), line.size(), "wwan0\t00000000\t%08X\t%s\t0\t0\t%d\t%08X\n", number(gateway), flags, metric,
             number(mask));
    return line.data();
}

// In no order that the kernel would choose.
TEST(Gateway, only_a_route_to_everywhere_that_is_up_counts_whatever_the_order) {
    in_child_with_empty({"/proc"}, [] {
        std::filesystem::create_directory("/proc/net");
        write_file("/proc/net/route",
                   "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\n" +
                       route("0.0.0.0", "203.0.113.9", "0003", 30) + route("0.0.0.0", "203.0.113.8", "0003", 20) +
                       route("0.0.0.0", "203.0.113.7", "0003", 25) + route("0.0.0.0", "203.0.113.6", "0002", 10) +
                       route("128.0.0.0", "203.0.113.5", "0003", 10));
        EXPECT_EQ(gateway("wwan0"), "203.0.113.8");
        EXPECT_EQ(umount("/proc"), 0);
    });
}

TEST(Gateway, a_system_without_a_list_of_routes_has_none) {
    in_child_with_empty({"/proc"}, [] {
        EXPECT_EQ(gateway("lo"), "");
        EXPECT_EQ(umount("/proc"), 0);
    });
}

// Routes are made with ip(8); where it cannot make them, there is nothing to test.
bool made(const char *command) {
    return system((std::string(command) + " 2>/dev/null").c_str()) == 0;
}

TEST(Gateway, the_default_route_with_the_lowest_metric) {
    in_child_with_empty_network([] {
        EXPECT_EQ(gateway("lo"), "");
        if (!made("ip link set lo up && ip route add default via 203.0.113.9 dev lo onlink metric 30")) {
            return;
        }
        EXPECT_EQ(gateway("lo"), "203.0.113.9");
        EXPECT_EQ(gateway("l"), "");
        EXPECT_EQ(gateway("lo0"), "");
        ASSERT_TRUE(made("ip route add default via 203.0.113.7 dev lo onlink metric 10"));
        ASSERT_TRUE(made("ip route add default via 203.0.113.8 dev lo onlink metric 20"));
        EXPECT_EQ(gateway("lo"), "203.0.113.7");
    });
}

TEST(Gateway, routes_to_networks_and_without_a_gateway_do_not_count) {
    in_child_with_empty_network([] {
        if (!made("ip link set lo up && ip route add 198.51.100.0/24 via 203.0.113.9 dev lo onlink")) {
            return;
        }
        EXPECT_EQ(gateway("lo"), "");
        ASSERT_TRUE(made("ip route add default dev lo metric 5"));
        EXPECT_EQ(gateway("lo"), "");
        ASSERT_TRUE(made("ip route add default via 203.0.113.7 dev lo onlink metric 10"));
        EXPECT_EQ(gateway("lo"), "203.0.113.7");
    });
}

TEST(Gateway, the_longest_address) {
    in_child_with_empty_network([] {
        if (!made("ip link set lo up && ip route add default via 203.100.113.254 dev lo onlink")) {
            return;
        }
        EXPECT_EQ(gateway("lo"), "203.100.113.254");
    });
}

} // namespace
