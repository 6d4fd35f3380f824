// The carrier by the bus alone, in a /sys, a /tmp and a /usr/share of the test's own. Detection asks the modem nothing
// here, and its IMSI is in the state directory.
#include "modem/modem_core/carrier_by_bus.h"

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "platform/owners.h"
#include "support/child.h"
#include "support/files.h"
#include "support/json_text.h"

namespace {

const std::string DEVICE = "/sys/devices/platform/soc/usb1/1-1/1-1.2";

// An EC25 on bus 1-1.2, with or without its port.
void with_ec25(bool with_port, const std::function<void()> &body) {
    in_child_with_empty({"/sys", "/tmp", "/usr/share"}, [&] {
        std::filesystem::create_directories(DEVICE + "/1-1.2:1.2");
        if (with_port) {
            std::filesystem::create_directories(DEVICE + "/1-1.2:1.2/ttyUSB2");
        }
        write_file(DEVICE + "/idVendor", "2c7c\n");
        write_file(DEVICE + "/idProduct", "0125\n");
        std::filesystem::create_directory("/tmp/modem.1-1.2");
        write_file("/tmp/modem.1-1.2/cimi", "262011000000017\n");
        std::filesystem::create_directory("/usr/share/modem");
        write_file("/usr/share/modem/operator.dat", "26201,Telekom.de\n");
        body();
    });
}

struct Carrier {
    int result;
    std::string reply;
    bool operator==(const Carrier &) const = default;
};
void PrintTo(const Carrier &carrier, std::ostream *out) {
    *out << carrier.result << " " << carrier.reply;
}

Carrier carrier_on(const char *bus) {
    const Json reply(json_object_new_object());
    const int result = modem_get_carrier(bus, reply.get());
    return {result, plain_json(reply.get())};
}

TEST(CarrierByBus, of_the_modem_that_is_there_and_nothing_else_of_it) {
    with_ec25(true, [] {
        EXPECT_EQ(carrier_on("1-1.2"), (Carrier{0, R"({"mnc":"011","mcc":"262","carrier":"Telekom.de"})"}));
    });
}

TEST(CarrierByBus, an_imsi_that_cannot_be_had_fails_with_an_empty_carrier) {
    with_ec25(true, [] {
        write_file("/tmp/modem.1-1.2/cimi", "");
        EXPECT_EQ(carrier_on("1-1.2"), (Carrier{-1, R"({"carrier":""})"}));
    });
}

TEST(CarrierByBus, without_a_usable_modem_there_is_no_key_at_all) {
    with_ec25(false, [] {
        EXPECT_EQ(carrier_on("1-1.2"), (Carrier{-1, "{}"}));
        EXPECT_EQ(carrier_on("1-1.3"), (Carrier{-1, "{}"}));
    });
}

} // namespace
