// Restarting a modem; see power.h.
#include "connection/power.h"

#include <cstring>
#include <span>
#include <string_view>
#include <syslog.h>

#include "modem/discovery.h"
#include "modem/modem_core/mode_band.h"
#include "platform/board.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace {

// --- Supply ---

struct BoardPower {
    const char *board;
    const char *command;
};

// One row a line.
// clang-format off
constexpr BoardPower BOARDS[] = {
    {"pellin", "echo 0 > /sys/class/gpio/lte_power/value;sleep 1;echo 1 > /sys/class/gpio/lte_power/value"},
    {"brimset", "echo 0 > /sys/class/gpio/lte_power/value;sleep 1;echo 1 > /sys/class/gpio/lte_power/value"},
    {"tamber", "echo 1 > /sys/class/gpio/gpio0/value;sleep 1;echo 0 > /sys/class/gpio/gpio0/value"},
    {"fennox", "echo 0 > /sys/class/gpio/gpio0/value;sleep 1;echo 1 > /sys/class/gpio/gpio0/value"},
    {"fennoxt", "echo 0 > /sys/class/gpio/gpio0/value;sleep 1;echo 1 > /sys/class/gpio/gpio0/value"},
    {"sparrin", "echo 0 > /sys/class/gpio/pci_power/value;sleep 1;echo 1 > /sys/class/gpio/pci_power/value"},
    {"colbet", "echo 0 > /sys/class/gpio/usb_power/value;sleep 1;echo 1 > /sys/class/gpio/usb_power/value"},
    {"wrenfield", "echo 0 > /sys/class/gpio/usb_power/value;sleep 1;echo 1 > /sys/class/gpio/usb_power/value"},
    {"dunmar", "echo 1 > /sys/class/gpio/gpio1/value;sleep 1;echo 0 > /sys/class/gpio/gpio1/value"},
};
// clang-format on

// Room for a pulse, which names its control file twice.
constexpr size_t PULSE_SIZE = 500;

// A pulse on the control file: to 1 and back to 0, or the other way round, as the switch of the supply is wired.
void pulse(bool high, const char *file) {
    char command[PULSE_SIZE];
    text_format(command, high ? "echo 1 > %s; sleep 1; echo 0 > %s" : "echo 0 > %s; sleep 1; echo 1 > %s", file, file);
    execCommand(command);
}

// The halvor has a line for each of its slots.
void power_halvor(std::string_view bus) {
    constexpr struct {
        std::string_view bus;
        const char *file;
        bool high;
    } SLOTS[] = {
        {"1-1.2", "/sys/class/gpio/gpio5/value", true},
        {"2-1.2", "/sys/class/gpio/gpio15/value", true},
        {"1-1.4", "/sys/class/gpio/gpio7/value", false},
    };
    for (const auto &slot : SLOTS) {
        if (slot.bus == bus) {
            pulse(slot.high, slot.file);
            return;
        }
    }
    pulse(true, "/sys/class/gpio/gpio7/value");
}

// The control file of a board that has no entry above, into `file`; an empty text where none is there.
void find_control_file(std::string_view bus, std::span<char> file) {
    const bool first_slot = bus == "1-1.2" || bus == "1-1";
    const char *const listings[] = {
        "ls /sys/class/leds/*:usbpow*/brightness",
        "ls /sys/class/gpio/usbpow/value",
        "ls /sys/class/leds/*:3gcontrol/brightness",
        first_slot ? "ls /sys/class/gpio/gpio0/value" : "ls /sys/class/gpio/gpio2/value",
        "ls /sys/class/gpio/gpio2/value",
    };
    for (const char *listing : listings) {
        getShellCommandReturnLine(listing, file);
        if (file[0] != '\0') {
            return;
        }
    }
}

void power_other(const char *board, const char *bus) {
    // A path that fills this does not fit the pulse either: it ends the process before another file is written.
    char file[PULSE_SIZE] = {};
    find_control_file(bus, file);
    if (file[0] != '\0') {
        const bool high =
            strcmp(board, "tovin") == 0 || strcmp(board, "larkin") == 0 || strstr(board, "ostrel") != nullptr;
        pulse(high, file);
    }
}

// --- Reset by command ---

struct ModelReset {
    int32_t modem_id;
    char reset[10];
    char sim_switch[10];
};

// No row: no command. An empty one: the supply is switched instead.
// clang-format off
constexpr ModelReset RESETS[] = {
    {0, "AT+QPOWD", "AT+QPOWD"},
    {1, "AT+QPOWD", "AT+QPOWD"},
    {2, "AT+QPOWD", "AT+QPOWD"},
    {3, "AT+QPOWD", "AT+QPOWD"},
    {5, "AT!RESET", "AT!RESET"},
    {6, "AT+QPOWD", ""},
    {20, "AT+CRESET", "AT+CRESET"},
    {30, "AT+ZRST", "AT+ZRST"},
};
// clang-format on

const ModelReset *reset_of(int32_t modem_id) {
    for (const ModelReset &row : RESETS) {
        if (row.modem_id == modem_id) {
            return &row;
        }
    }
    return nullptr;
}

} // namespace

int modem_hw_power(const char *bus) {
    const char *board = get_model_name();
    for (const BoardPower &row : BOARDS) {
        if (strcmp(row.board, board) == 0) {
            execCommand(row.command);
            return 0;
        }
    }
    if (strcmp(board, "halvor") == 0) {
        power_halvor(bus);
    } else {
        power_other(board, bus);
    }
    return 0;
}

const char *reset_command(int32_t modem_id) {
    const ModelReset *row = reset_of(modem_id);
    return row != nullptr ? row->reset : nullptr;
}

const char *sim_switch_command(int32_t modem_id) {
    const ModelReset *row = reset_of(modem_id);
    return row != nullptr && row->sim_switch[0] != '\0' ? row->sim_switch : nullptr;
}

void modem_at_reset(const char *bus, int port_number, const char *command) {
    char port[PORT_PATH_SIZE] = {};
    modem_search_port(bus, port_number, port);
    if (soft_reset_mode(port, command) != 0) {
        syslog(LOG_DEBUG, "reset failed\n");
    }
    // Said after a failure, too: whoever reads the log knows the two lines so.
    syslog(LOG_DEBUG, "reset success\n");
}
