// What is asked of a device whose directory is known.
#include "modem/discovery.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "discovery_fixture.h"
#include "platform/owners.h"
#include "support/aborts.h"
#include "support/files.h"

namespace {

class Device : public Discovery {
protected:
    Device() {
        plug_in();
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

} // namespace
