// The device that was found last: the answers to a question, and to another one after something has happened.
#include "modem/discovery.h"

#include <array>
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "support/child.h"
#include "support/files.h"

namespace {

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
