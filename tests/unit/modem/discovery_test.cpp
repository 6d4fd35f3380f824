// What is asked by the bus: in a /sys with an EC25 on bus 1-1.2, and without one. More of it is tested with a router
// around it.
#include "modem/discovery.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "discovery_fixture.h"
#include "platform/owners.h"
#include "support/aborts.h"
#include "support/child.h"
#include "support/files.h"

namespace {

constexpr const char *SYSFS_DEVICE = "/sys/devices/platform/soc/usb1/1-1/1-1.2";

void with_ec25_in_sysfs(const std::function<void()> &body) {
    in_child_with_empty({"/sys"}, [&] {
        const std::string device = SYSFS_DEVICE;
        plug_in_ec25(device);
        write_file(device + "/idProduct", "0125\n");
        body();
    });
}

TEST(DiscoveryByBus, usb_ids) {
    with_ec25_in_sysfs([] {
        uint32_t vid = 0;
        uint32_t pid = 0;
        EXPECT_EQ(modem_get_usb_id("1-1.2", &vid, &pid), 0);
        EXPECT_EQ(vid, 0x2c7cu);
        EXPECT_EQ(pid, 0x0125u);
        EXPECT_EQ(modem_get_usb_id("1-1.3", &vid, &pid), -1);
    });
}

TEST(DiscoveryByBus, the_port_of_an_interface) {
    with_ec25_in_sysfs([] {
        std::array<char, PORT_PATH_SIZE> out = {};
        EXPECT_EQ(modem_search_port("1-1.2", 2, out), 1);
        EXPECT_STREQ(out.data(), "/dev/ttyUSB2");
        EXPECT_EQ(modem_search_port_by_node("1-1.2:1.4", out), 1);
        EXPECT_STREQ(out.data(), "/dev/cdc-wdm0");
        EXPECT_EQ(modem_search_port("1-1.2", 5, out), -1);
    });
}

TEST(DiscoveryByBus, all_ports) {
    with_ec25_in_sysfs([] {
        const Json ports(json_object_new_array());
        EXPECT_EQ(modem_get_ports("1-1.2", ports.get()), 5);
        EXPECT_EQ(json_object_array_length(ports.get()), 5u);
    });
}

TEST(DiscoveryByBus, the_network_device_whose_name_contains_the_fragment) {
    with_ec25_in_sysfs([] {
        std::filesystem::create_directories(SYSFS_DEVICE + std::string("/1-1.2:1.5/net/xeth1"));
        std::array<char, 16> out = {};
        EXPECT_GE(modem_get_net_dev("1-1.2", "wwan", out), 1);
        EXPECT_STREQ(out.data(), "wwan0");
        EXPECT_GE(modem_get_net_dev("1-1.2", "eth", out), 1);
        EXPECT_STREQ(out.data(), "xeth1");
        EXPECT_LT(modem_get_net_dev("1-1.2", "usb0", out), 1);
        EXPECT_STREQ(out.data(), "xeth1");
    });
}

// Without a bus, the usual ones in their order; a null content leaves the file out.

struct UsualBus {
    const char *bus;
    const char *product;
    const char *vendor;
};

// The result and the ids, 0xAAAA where they were left alone.
std::string ids_without_bus(const std::vector<UsualBus> &buses) {
    std::string text;
    ScratchDirectory result;
    in_child_with_empty({"/sys"}, [&] {
        for (const UsualBus &bus : buses) {
            const std::string device = std::string("/sys/bus/usb/devices/") + bus.bus;
            std::filesystem::create_directories(device);
            if (bus.product != nullptr) {
                write_file(device + "/idProduct", bus.product);
            }
            if (bus.vendor != nullptr) {
                write_file(device + "/idVendor", bus.vendor);
            }
        }
        uint32_t vid = 0xAAAA;
        uint32_t pid = 0xAAAA;
        const int read = modem_get_usb_id(nullptr, &vid, &pid);
        char line[64];
        snprintf(line, sizeof line, "%d %04x:%04x", read, vid, pid);
        write_file(result / "ids", line);
    });
    return read_file(result / "ids");
}

TEST(DiscoveryWithoutBus, the_usual_buses_are_tried_in_their_order) {
    EXPECT_EQ(ids_without_bus({{"1-1", "0003", "1003"}}), "0 1003:0003");
    EXPECT_EQ(ids_without_bus({{"1-1", "0003", "1003"}, {"1-1.3", "0002", "1002"}}), "0 1002:0002");
    EXPECT_EQ(ids_without_bus({{"1-1", "0003", "1003"}, {"1-1.3", "0002", "1002"}, {"1-1.2", "0001", "1001"}}),
              "0 1001:0001");
}

TEST(DiscoveryWithoutBus, each_id_is_looked_for_on_its_own) {
    EXPECT_EQ(ids_without_bus({{"1-1.2", "0001", nullptr}, {"1-1", "0003", "1003"}}), "0 1003:0001");
    EXPECT_EQ(ids_without_bus({{"1-1.2", nullptr, "1001"}, {"1-1.3", "0002", "1002"}}), "0 1001:0002");
}

TEST(DiscoveryWithoutBus, a_file_that_is_there_counts_even_when_it_is_empty) {
    EXPECT_EQ(ids_without_bus({{"1-1.2", "0001", ""}, {"1-1.3", "0002", "1002"}}), "0 aaaa:0001");
    EXPECT_EQ(ids_without_bus({{"1-1.2", "", "1001"}, {"1-1.3", "0002", "1002"}}), "0 aaaa:aaaa");
}

TEST(DiscoveryWithoutBus, another_bus_or_an_id_that_is_nowhere_is_a_failure) {
    EXPECT_EQ(ids_without_bus({}), "-1 aaaa:aaaa");
    EXPECT_EQ(ids_without_bus({{"2-1.2", "0001", "1001"}}), "-1 aaaa:aaaa");
    EXPECT_EQ(ids_without_bus({{"1-1.2", "0001", nullptr}, {"1-1", "0003", nullptr}}).substr(0, 2), "-1");
    EXPECT_EQ(ids_without_bus({{"1-1.2", nullptr, "1001"}}).substr(0, 2), "-1");
}

// A bus that no machine has, so that it does not matter what this one has in /sys.
TEST(DiscoveryOfNothing, a_bus_that_is_not_there) {
    uint32_t vid = 1;
    uint32_t pid = 2;
    EXPECT_EQ(modem_get_usb_id("9-9.9.9.9", &vid, &pid), -1);
    EXPECT_EQ(vid, 1u);
    EXPECT_EQ(pid, 2u);
    std::array<char, PORT_PATH_SIZE> out;
    out.fill('x');
    EXPECT_EQ(modem_search_port("9-9.9.9.9", 2, out), -1);
    EXPECT_EQ(modem_search_port_by_node("9-9.9.9.9:1.2", out), -1);
    EXPECT_EQ(modem_get_net_dev("9-9.9.9.9", "wwan", out), -1);
    EXPECT_EQ(std::string(out.data(), out.size()), std::string(PORT_PATH_SIZE, 'x'));
    const Json ports(json_object_new_array());
    EXPECT_EQ(modem_get_ports("9-9.9.9.9", ports.get()), -1);
    EXPECT_EQ(json_object_array_length(ports.get()), 0u);
}

TEST(DiscoveryOfNothing, no_bus_has_no_port) {
    std::array<char, PORT_PATH_SIZE> out;
    out.fill('x');
    EXPECT_EQ(modem_search_port(nullptr, 2, out), -1);
    EXPECT_EQ(modem_search_port_by_node(nullptr, out), -1);
    EXPECT_EQ(modem_find_device(nullptr, out), -1);
    EXPECT_EQ(std::string(out.data(), out.size()), std::string(PORT_PATH_SIZE, 'x'));
}

// The name of an interface's directory has at most 19 characters.
TEST(DiscoveryOfNothing, a_bus_too_long_for_the_name_of_an_interface_aborts) {
    std::array<char, PORT_PATH_SIZE> out = {};
    EXPECT_EQ(modem_search_port("9-9.9.9.9.9.9.9", 2, out), -1); // 19
    EXPECT_ABORT(modem_search_port("9-9.9.9.9.9.9.99", 2, out));
    EXPECT_ABORT(modem_search_port("9-9.9.9", INT32_MAX, out)); // 20
}

} // namespace
