// Searches from a start directory of the caller's, and those that begin in a /sys of the test's own. More of them are
// tested with a router around them.
#include "modem/discovery.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/owners.h"
#include "support/aborts.h"
#include "support/child.h"
#include "support/files.h"
#include "support/tree.h"

namespace {

struct Found {
    int count;
    std::string where;
    int32_t opened;
};

Found search_bus(const std::string &start, const char *name) {
    std::array<char, SYSFS_PATH_SIZE> out = {};
    int32_t counter = 0;
    const int count = modem_search_bus(start.c_str(), name, out, &counter);
    return {count, out.data(), counter};
}

Found search_node(const std::string &start, const char *name) {
    std::array<char, SYSFS_PATH_SIZE> out = {};
    int32_t counter = 0;
    const int count = modem_search_usb_node(start.c_str(), name, out, &counter);
    return {count, out.data(), counter};
}

constexpr const char *EC25 = "soc/usb1/1-1/1-1.2/";

class Discovery : public testing::Test {
protected:
    // An EC25 as sysfs shows it: four serial ports and a QMI port with its network device.
    void plug_in_ec25() {
        for (int i = 0; i < 4; i++) {
            const std::string number = std::to_string(i);
            std::filesystem::create_directories(
                root / (EC25 + ("1-1.2:1." + number) + "/ttyUSB" + number + "/tty/ttyUSB" + number + "/power"));
        }
        std::filesystem::create_directories(root / (EC25 + std::string("1-1.2:1.4/usbmisc/cdc-wdm0")));
        std::filesystem::create_directories(root / (EC25 + std::string("1-1.2:1.4/net/wwan0/queues/rx-0")));
        std::filesystem::create_directories(root / "soc/serial/tty/ttyS0");
        write_file(root / (EC25 + std::string("idVendor")), "2c7c\n");
    }

    ScratchDirectory root;
};

TEST_F(Discovery, the_directory_of_a_bus) {
    plug_in_ec25();
    const Found found = search_bus(root.path(), "1-1.2");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, root / "soc/usb1/1-1/1-1.2");
}

TEST_F(Discovery, the_directory_of_an_interface) {
    plug_in_ec25();
    const Found found = search_bus(root.path(), "1-1.2:1.2");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, root / "soc/usb1/1-1/1-1.2/1-1.2:1.2");
}

TEST_F(Discovery, a_bus_that_is_not_there) {
    plug_in_ec25();
    for (const char *name : {"1-1.3", "1-1.", "-1.2", "1-1.2:", "", ".", ".."}) {
        EXPECT_EQ(search_bus(root.path(), name).count, 0) << name;
    }
}

TEST_F(Discovery, the_start_itself_is_no_match) {
    make_tree(root, {"1-1.2"});
    EXPECT_EQ(search_bus(root / "1-1.2", "1-1.2").count, 0);
}

TEST_F(Discovery, a_file_or_link_of_that_name_is_no_match) {
    make_tree(root, {"real"});
    write_file(root / "1-1.2", "");
    ASSERT_EQ(symlink("real", (root / "1-1.3").c_str()), 0);
    EXPECT_EQ(search_bus(root.path(), "1-1.2").count, 0);
    EXPECT_EQ(search_bus(root.path(), "1-1.3").count, 0);
}

TEST_F(Discovery, a_bus_behind_a_symbolic_link_is_not_found) {
    ScratchDirectory elsewhere;
    make_tree(elsewhere, {"1-1.2"});
    ASSERT_EQ(symlink(elsewhere.path().c_str(), (root / "devices").c_str()), 0);
    EXPECT_EQ(search_bus(root.path(), "1-1.2").count, 0);
}

TEST_F(Discovery, the_first_match_in_reading_order_wins_and_the_walk_goes_on) {
    make_tree(root, {"a/1-1.2", "b/1-1.2", "c/1-1.2"});
    const Found found = search_bus(root.path(), "1-1.2");
    EXPECT_EQ(found.count, 3);
    EXPECT_EQ(found.where, root / (in_reading_order(root.path()).front() + "/1-1.2"));
    EXPECT_EQ(found.opened, 4);
}

TEST_F(Discovery, a_match_ends_the_directory_that_it_stands_in) {
    make_tree(root, {"1-1.2/inside/1-1.2", "before", "behind"});
    const Found found = search_bus(root.path(), "1-1.2");
    EXPECT_EQ(found.count, 1) << "what is inside a match is not looked at";
    const auto order = in_reading_order(root.path());
    const auto position = std::find(order.begin(), order.end(), "1-1.2") - order.begin();
    EXPECT_EQ(found.opened, 1 + position) << "the start and what was read before the match";
}

TEST_F(Discovery, a_tree_of_more_than_1000_directories_fails_every_search) {
    make_tree(root, {"a/1-1.2"});
    for (int i = 0; i < 998; i++) {
        ASSERT_TRUE(std::filesystem::create_directory(root / ("d" + std::to_string(i))));
    }
    EXPECT_EQ(search_bus(root.path(), "1-1.2").count, 1) << "1000 with the start";
    ASSERT_TRUE(std::filesystem::create_directory(root / "one-more"));
    EXPECT_EQ(search_bus(root.path(), "1-1.2").count, -1);
    EXPECT_EQ(search_bus(root.path(), "1-1.3").count, -1);
    EXPECT_EQ(search_node(root.path(), "1-1.2").count, -1);
}

TEST_F(Discovery, a_start_that_is_not_there_fails) {
    EXPECT_EQ(search_bus("/nonexistent/platform", "1-1.2").count, -1);
    EXPECT_EQ(search_node("/nonexistent/platform", "wwan0").count, -1);
}

TEST_F(Discovery, the_callers_counter_goes_on) {
    plug_in_ec25();
    std::array<char, SYSFS_PATH_SIZE> out = {};
    int32_t counter = 999;
    EXPECT_EQ(modem_search_bus(root.path().c_str(), "1-1.2", out, &counter), -1);
}

TEST_F(Discovery, nothing_is_printed_and_no_descriptor_stays) {
    plug_in_ec25();
    const int before = open_descriptors();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    search_bus(root.path(), "1-1.2");
    search_bus(root.path(), "none");
    search_bus("/nonexistent", "none");
    search_node(root.path(), "wwan0");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Discovery, a_path_that_does_not_fit_the_buffer_aborts) {
    const std::string name(200, 'd');
    std::filesystem::create_directories(root / (name + "/" + name + "/" + name));
    EXPECT_ABORT(search_bus(root.path(), "1-1.2"));
    EXPECT_ABORT(search_node(root.path(), "1-1.2"));
}

TEST_F(Discovery, the_node_of_a_network_device) {
    plug_in_ec25();
    const Found found = search_node(root.path(), "wwan0");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, "1-1.2:1.4");
}

TEST_F(Discovery, the_node_of_a_control_device) {
    plug_in_ec25();
    const Found found = search_node(root.path(), "cdc-wdm0");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, "1-1.2:1.4");
}

TEST_F(Discovery, the_node_of_a_serial_port) {
    plug_in_ec25();
    const Found found = search_node(root.path(), "ttyUSB2");
    EXPECT_EQ(found.count, 1) << "the second directory of that name is inside the first";
    EXPECT_EQ(found.where, "1-1.2:1.2");
}

TEST_F(Discovery, the_node_of_an_interface_is_its_device) {
    plug_in_ec25();
    const Found found = search_node(root.path(), "1-1.2:1.2");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, "1-1.2");
}

TEST_F(Discovery, of_several_nodes_the_first_in_reading_order) {
    make_tree(root, {"1-1.2/net/wwan0", "1-1.3/net/wwan0"});
    const Found found = search_node(root.path(), "wwan0");
    EXPECT_EQ(found.count, 2);
    EXPECT_EQ(found.where, in_reading_order(root.path()).front());
}

TEST_F(Discovery, a_match_that_a_node_holds_itself) {
    make_tree(root, {"1-1.2/net"});
    EXPECT_EQ(search_node(root.path(), "net").where, "1-1.2");
    EXPECT_EQ(search_node(root / "1-1.2", "net").where, "1-1.2");
}

TEST_F(Discovery, a_node_above_the_start_counts) {
    make_tree(root, {"1-1.2/start/net/eth1"});
    const Found found = search_node(root / "1-1.2/start", "eth1");
    EXPECT_EQ(found.count, 1);
    EXPECT_EQ(found.where, "1-1.2");
}

TEST_F(Discovery, the_root_hub_is_no_node) {
    make_tree(root, {"soc/usb1/net/eth1"});
    EXPECT_EQ(search_node(root.path(), "eth1").count, 0);
}

TEST_F(Discovery, a_device_below_no_usb_node_gives_0) {
    make_tree(root, {"soc/ethernet/net/eth0"});
    EXPECT_EQ(search_node(root.path(), "eth0").count, 0);
    EXPECT_EQ(search_node(root.path(), "eth1").count, 0);
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

// What is asked of a device whose directory is known.

class Device : public Discovery {
protected:
    Device() {
        plug_in_ec25();
        device = root / "soc/usb1/1-1/1-1.2";
    }
    // The tty of an interface, "(none)" where there is none; that the buffer is left alone then is checked too.
    std::string port(int interface_number, int expected = 1) const {
        std::array<char, PORT_PATH_SIZE> out;
        out.fill('x');
        const int found = modem_find_port(device.c_str(), "1-1.2", interface_number, out);
        EXPECT_EQ(found, expected);
        if (found < 1) {
            EXPECT_EQ(std::string(out.data(), out.size()), std::string(PORT_PATH_SIZE, 'x'));
            return "(none)";
        }
        return out.data();
    }
    std::vector<std::string> ports(int expected) const {
        const Json array(json_object_new_array());
        EXPECT_EQ(modem_list_ports(device.c_str(), array.get()), expected);
        std::vector<std::string> texts;
        for (size_t i = 0; i < json_object_array_length(array.get()); i++) {
            texts.push_back(json_object_get_string(json_object_array_get_idx(array.get(), i)));
        }
        return texts;
    }
    // The ids with 0xAAAA where they were left alone.
    int read_ids() {
        vid = pid = 0xAAAA;
        return modem_read_usb_id(device.c_str(), &vid, &pid);
    }

    std::string device;
    uint32_t vid = 0;
    uint32_t pid = 0;
};

TEST_F(Device, usb_ids_are_hexadecimal) {
    write_file(device + "/idVendor", "2c7c\n");
    write_file(device + "/idProduct", "0125\n");
    EXPECT_EQ(read_ids(), 0);
    EXPECT_EQ(vid, 0x2c7cu);
    EXPECT_EQ(pid, 0x0125u);
}

TEST_F(Device, usb_ids_in_capitals_and_without_a_line_end) {
    write_file(device + "/idVendor", "2C7C");
    write_file(device + "/idProduct", "6026");
    EXPECT_EQ(read_ids(), 0);
    EXPECT_EQ(vid, 0x2c7cu);
    EXPECT_EQ(pid, 0x6026u);
}

TEST_F(Device, an_empty_id_file_keeps_the_callers_value) {
    write_file(device + "/idVendor", "");
    write_file(device + "/idProduct", "0125\n");
    EXPECT_EQ(read_ids(), 0);
    EXPECT_EQ(vid, 0xAAAAu);
    EXPECT_EQ(pid, 0x0125u);
}

TEST_F(Device, an_empty_product_id_is_no_failure) {
    write_file(device + "/idVendor", "2c7c\n");
    write_file(device + "/idProduct", "");
    EXPECT_EQ(read_ids(), 0);
    EXPECT_EQ(pid, 0xAAAAu);
}

TEST_F(Device, a_missing_id_file_fails) {
    EXPECT_EQ(read_ids(), -1) << "no idProduct";
    write_file(device + "/idProduct", "0125\n");
    std::filesystem::remove(device + "/idVendor");
    EXPECT_EQ(read_ids(), -1) << "no idVendor";
    device = "/nonexistent/1-1.2";
    EXPECT_EQ(read_ids(), -1);
}

TEST_F(Device, id_files_with_anything_in_them) {
    for (const std::string &content :
         {std::string("\n"), std::string("xyz"), std::string(5000, 'f'), std::string(5000, '\0'), std::string("-1"),
          std::string("ffffffffffffff"), std::string("0x2c7c"), std::string("\xFF\xFE")}) {
        write_file(device + "/idVendor", content);
        write_file(device + "/idProduct", content);
        EXPECT_EQ(read_ids(), 0);
        EXPECT_EQ(vid, pid);
    }
}

TEST_F(Device, of_an_id_file_14_characters_count) {
    write_file(device + "/idVendor", "00000000002c7cff");
    write_file(device + "/idProduct", "000000000001253");
    EXPECT_EQ(read_ids(), 0);
    EXPECT_EQ(vid, 0x2c7cu);
    EXPECT_EQ(pid, 0x0125u);
}

TEST_F(Device, the_port_of_each_interface) {
    EXPECT_EQ(port(0), "/dev/ttyUSB0");
    EXPECT_EQ(port(2), "/dev/ttyUSB2");
    EXPECT_EQ(port(4), "/dev/cdc-wdm0");
}

TEST_F(Device, an_interface_that_is_not_there_has_no_port) {
    EXPECT_EQ(port(5, -1), "(none)");
    EXPECT_EQ(port(-1, -1), "(none)");
    EXPECT_EQ(port(INT32_MAX, -1), "(none)");
}

TEST_F(Device, an_interface_without_a_tty_has_no_port) {
    std::filesystem::create_directories(device + "/1-1.2:1.7/net/usb0");
    const int result = [this] {
        std::array<char, PORT_PATH_SIZE> out = {};
        return modem_find_port(device.c_str(), "1-1.2", 7, out);
    }();
    EXPECT_EQ(result, -1);
}

TEST_F(Device, a_port_of_the_other_kind_of_driver) {
    std::filesystem::create_directories(device + "/1-1.2:1.8/tty/ttyACM3");
    EXPECT_EQ(port(8), "/dev/ttyACM3");
}

TEST_F(Device, a_port_name_of_any_length_that_fits) {
    const std::string name = "ttyUSB" + std::string(PORT_PATH_SIZE - 1 - strlen("/dev/ttyUSB"), '9');
    std::filesystem::create_directories(device + "/1-1.2:1.9/" + name);
    EXPECT_EQ(port(9), "/dev/" + name);
    std::filesystem::create_directories(device + "/1-1.2:1.10/" + name + "9");
    EXPECT_ABORT(port(10));
}

TEST_F(Device, all_ports_of_an_ec25_each_once) {
    EXPECT_THAT(ports(5), testing::UnorderedElementsAre("/dev/ttyUSB0", "/dev/ttyUSB1", "/dev/ttyUSB2", "/dev/ttyUSB3",
                                                        "/dev/cdc-wdm0"));
}

TEST_F(Device, listing_the_ports_finds_those_of_single_interfaces_too) {
    std::filesystem::create_directories(device + "/1-1.2:1.12/tty/ttyACM12");
    std::filesystem::create_directories(device + "/1-1.2:1.2/ttyUSB8");
    std::filesystem::create_directories(device + "/1-1.2:1.9/net/usb0");
    std::filesystem::create_directories(device + "/1-1.2.1/1-1.2:1.5/ttyUSB9");
    for (const int number : {0, 1, 2, 3, 4, 5, 9, 12, -1, 100}) {
        std::array<char, PORT_PATH_SIZE> listed = {};
        std::array<char, PORT_PATH_SIZE> found = {};
        const InterfacePort wanted[] = {{number, listed}};
        const Json array(json_object_new_array());
        modem_list_ports(device.c_str(), array.get(), wanted);
        modem_find_port(device.c_str(), "1-1.2", number, found);
        EXPECT_STREQ(listed.data(), found.data()) << number;
    }
}

TEST_F(Device, a_port_of_the_communication_class_is_listed_once) {
    std::filesystem::remove_all(device);
    std::filesystem::create_directories(device + "/1-1.2:1.0/tty/ttyACM0/power");
    EXPECT_THAT(ports(1), testing::ElementsAre("/dev/ttyACM0"));
}

TEST_F(Device, a_device_whose_ports_are_not_there_yet) {
    std::filesystem::remove_all(device);
    std::filesystem::create_directories(device + "/1-1.2:1.0/power");
    EXPECT_THAT(ports(0), testing::IsEmpty());
}

TEST_F(Device, a_device_that_is_gone_lists_nothing) {
    device = "/nonexistent/1-1.2";
    EXPECT_THAT(ports(-1), testing::IsEmpty());
}

// What is asked by the bus, in a /sys with an EC25 on bus 1-1.2.

constexpr const char *SYSFS_DEVICE = "/sys/devices/platform/soc/usb1/1-1/1-1.2";

void with_ec25_in_sysfs(const std::function<void()> &body) {
    in_child_with_empty({"/sys"}, [&] {
        const std::string device = SYSFS_DEVICE;
        for (int i = 0; i < 4; i++) {
            const std::string number = std::to_string(i);
            std::filesystem::create_directories(device + "/1-1.2:1." + number + "/ttyUSB" + number + "/tty/ttyUSB" +
                                                number);
        }
        std::filesystem::create_directories(device + "/1-1.2:1.4/usbmisc/cdc-wdm0");
        std::filesystem::create_directories(device + "/1-1.2:1.4/net/wwan0/queues/rx-0");
        write_file(device + "/idVendor", "2c7c\n");
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

// The device that was found last: the answers to a question, and to another one after something has happened.

const std::string TOP = "/sys/devices/platform";
const std::string HUB = TOP + "/soc/usb1/1-1";

void plug_in(const std::string &device, const char *bus, int tty) {
    const std::string name = "ttyUSB" + std::to_string(tty);
    std::filesystem::create_directories(device + "/" + bus + ":1.2/" + name + "/tty/" + name);
    std::filesystem::create_directories(device + "/" + bus + ":1.4/net/wwan" + std::to_string(tty));
}

void grow_beyond_a_search() {
    for (int i = 0; i < 1000; i++) {
        std::filesystem::create_directories(TOP + "/other/d" + std::to_string(i));
    }
}

std::string port_of(const char *bus) {
    std::array<char, PORT_PATH_SIZE> out = {};
    const int found = modem_search_port(bus, 2, out);
    return found > 0 ? out.data() : std::to_string(found);
}

std::string second_answer(const std::function<void()> &between, const std::function<std::string()> &question) {
    ScratchDirectory result;
    in_child_with_empty({"/sys"}, [&] {
        plug_in(HUB + "/1-1.2", "1-1.2", 2);
        std::string first = port_of("1-1.2");
        between();
        write_file(result / "answers", first + " then " + question());
    });
    return read_file(result / "answers");
}

std::string second_port() {
    return port_of("1-1.2");
}

TEST(KnownDevice, is_not_searched_from_the_top_again) {
    EXPECT_EQ(second_answer(grow_beyond_a_search, second_port), "/dev/ttyUSB2 then /dev/ttyUSB2");
    EXPECT_EQ(second_answer(grow_beyond_a_search,
                            [] {
                                std::array<char, PORT_PATH_SIZE> out = {};
                                modem_get_net_dev("1-1.2", "wwan", out);
                                return std::string(out.data());
                            }),
              "/dev/ttyUSB2 then wwan2");
}

TEST(KnownDevice, is_searched_from_the_top_once_it_is_forgotten) {
    EXPECT_EQ(second_answer(
                  [] {
                      grow_beyond_a_search();
                      modem_forget_device();
                  },
                  second_port),
              "/dev/ttyUSB2 then -1");
}

TEST(KnownDevice, is_searched_from_the_top_for_its_directory_and_its_ids) {
    EXPECT_EQ(second_answer(grow_beyond_a_search,
                            [] {
                                std::array<char, SYSFS_PATH_SIZE> out = {};
                                return std::to_string(modem_find_device("1-1.2", out));
                            }),
              "/dev/ttyUSB2 then -1");
}

TEST(KnownDevice, may_get_other_ports) {
    EXPECT_EQ(second_answer(
                  [] {
                      std::filesystem::remove_all(HUB + "/1-1.2");
                      plug_in(HUB + "/1-1.2", "1-1.2", 7);
                  },
                  second_port),
              "/dev/ttyUSB2 then /dev/ttyUSB7");
}

TEST(KnownDevice, may_lose_its_port) {
    EXPECT_EQ(second_answer([] { std::filesystem::remove_all(HUB + "/1-1.2/1-1.2:1.2/ttyUSB2"); }, second_port),
              "/dev/ttyUSB2 then -1");
    EXPECT_EQ(second_answer([] { std::filesystem::remove_all(HUB + "/1-1.2/1-1.2:1.2"); }, second_port),
              "/dev/ttyUSB2 then -1");
}

TEST(KnownDevice, may_turn_up_in_another_place) {
    EXPECT_EQ(second_answer(
                  [] {
                      std::filesystem::create_directories(TOP + "/pcie/usb1");
                      std::filesystem::rename(HUB, TOP + "/pcie/usb1/1-1");
                  },
                  second_port),
              "/dev/ttyUSB2 then /dev/ttyUSB2");
}

TEST(KnownDevice, may_leave) {
    EXPECT_EQ(second_answer([] { std::filesystem::remove_all(HUB + "/1-1.2"); }, second_port), "/dev/ttyUSB2 then -1");
}

TEST(KnownDevice, is_no_other_one) {
    EXPECT_EQ(second_answer([] { plug_in(HUB + "/1-1.3", "1-1.3", 5); }, [] { return port_of("1-1.3"); }),
              "/dev/ttyUSB2 then /dev/ttyUSB5");
    EXPECT_EQ(second_answer([] {}, [] { return port_of("1-1"); }), "/dev/ttyUSB2 then -1");
    EXPECT_EQ(second_answer([] {}, [] { return port_of(""); }), "/dev/ttyUSB2 then -1");
}

TEST(KnownDevice, has_nothing_that_is_named_by_a_path) {
    for (const char *node : {"1-1.2/1-1.2:1.2", "1-1.2:1.2/ttyUSB2", "1-1.2:1.2/.", "1-1.2/", "../1-1.2"}) {
        EXPECT_EQ(second_answer([] {},
                                [=] {
                                    std::array<char, PORT_PATH_SIZE> out = {};
                                    return std::to_string(modem_search_port_by_node(node, out)) + out.data();
                                }),
                  "/dev/ttyUSB2 then -1")
            << node;
    }
}

} // namespace
