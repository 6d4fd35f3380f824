// Texts made from a bus path.
#include "modem/bus_name.h"

#include <array>
#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/child.h"
#include "support/files.h"

namespace {

std::string replaced(const char *bus) {
    std::array<char, 32> out = {};
    replace_bus_name(bus, out);
    return out.data();
}

TEST(BusName, every_dash_and_dot_becomes_an_underscore) {
    EXPECT_EQ(replaced("1-1.2"), "1_1_2");
    EXPECT_EQ(replaced("2-1.2"), "2_1_2");
    EXPECT_EQ(replaced("1-1"), "1_1");
    EXPECT_EQ(replaced("--..--"), "______");
}

TEST(BusName, everything_else_stays) {
    EXPECT_EQ(replaced("abc_:/ 9"), "abc_:/ 9");
    EXPECT_EQ(replaced("\xFF\x80"), "\xFF\x80");
    EXPECT_EQ(replaced(""), "");
}

TEST(BusName, no_terminator_is_written) {
    std::array<char, 8> out;
    out.fill('x');
    replace_bus_name("1-1.2", out);
    EXPECT_EQ(std::string(out.data(), out.size()), "1_1_2xxx");
}

TEST(BusName, the_text_and_a_terminator_must_fit) {
    std::array<char, 6> fits = {};
    replace_bus_name("1-1.2", fits);
    EXPECT_STREQ(fits.data(), "1_1_2");
    std::array<char, 5> small = {};
    EXPECT_ABORT(replace_bus_name("1-1.2", small));
    EXPECT_ABORT(replace_bus_name("", std::span<char>()));
}

TEST(UsbNode, devices_and_interfaces) {
    EXPECT_EQ(is_usb_node("1-1.2:1.0"), 1);
    EXPECT_EQ(is_usb_node("1-1.2"), 1);
    EXPECT_EQ(is_usb_node("2-1"), 1);
    EXPECT_EQ(is_usb_node("7"), 1);
}

TEST(UsbNode, other_names) {
    for (const char *name : {"tty", "ttyUSB2", "usb1", "1-1.2:1.0 ", "1_1", "1/1", "cdc-wdm0", "a", "1-1.2a"}) {
        EXPECT_EQ(is_usb_node(name), 0) << name;
    }
}

TEST(UsbNode, an_empty_name_is_one) {
    EXPECT_EQ(is_usb_node(""), 1);
}

TEST(UsbNode, every_single_character) {
    for (int c = 0; c < 256; c++) {
        const char name = static_cast<char>(c);
        const bool allowed = (c >= '0' && c <= '9') || c == ':' || c == '-' || c == '.';
        EXPECT_EQ(is_usb_node(std::string_view(&name, 1)), allowed ? 1 : 0) << c;
    }
}

TEST(ModemDirectory, is_made_for_the_bus_with_its_mode) {
    in_child_with_empty({"/tmp"}, [] {
        umask(0);
        EXPECT_EQ(make_modem_dir("1-1.2"), 0);
        struct stat made = {};
        ASSERT_EQ(stat("/tmp/modem.1-1.2", &made), 0);
        EXPECT_EQ(made.st_mode, static_cast<mode_t>(S_IFDIR | 0751));
    });
}

TEST(ModemDirectory, one_that_is_there_stays_as_it_is_and_gives_minus_1) {
    in_child_with_empty({"/tmp"}, [] {
        ASSERT_EQ(mkdir("/tmp/modem.1-1.2", 0700), 0);
        write_file("/tmp/modem.1-1.2/modem-imei", "350000000000017");
        EXPECT_EQ(make_modem_dir("1-1.2"), -1);
        EXPECT_EQ(read_file("/tmp/modem.1-1.2/modem-imei"), "350000000000017");
        struct stat found = {};
        ASSERT_EQ(stat("/tmp/modem.1-1.2", &found), 0);
        EXPECT_EQ(found.st_mode, static_cast<mode_t>(S_IFDIR | 0700));
    });
}

} // namespace
