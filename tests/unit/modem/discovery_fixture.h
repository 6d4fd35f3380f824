// An EC25 on bus 1-1.2 as sysfs shows it, in a directory of the test's own or in its own /sys.
#pragma once

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/files.h"

// Makes the device's directory: four serial ports, and a QMI port with its network device.
inline void plug_in_ec25(const std::string &device) {
    for (int i = 0; i < 4; i++) {
        const std::string number = std::to_string(i);
        std::filesystem::create_directories(device + "/1-1.2:1." + number + "/ttyUSB" + number + "/tty/ttyUSB" +
                                            number + "/power");
    }
    std::filesystem::create_directories(device + "/1-1.2:1.4/usbmisc/cdc-wdm0");
    std::filesystem::create_directories(device + "/1-1.2:1.4/net/wwan0/queues/rx-0");
    write_file(device + "/idVendor", "2c7c\n");
}

class Discovery : public testing::Test {
protected:
    // Beside a serial port of the board's own.
    void plug_in() const {
        plug_in_ec25(root / "soc/usb1/1-1/1-1.2");
        std::filesystem::create_directories(root / "soc/serial/tty/ttyS0");
    }

    ScratchDirectory root;
};
