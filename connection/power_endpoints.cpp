// Restarting a modem and switching its SIM; see power_endpoints.h.
#include "connection/power_endpoints.h"

#include <cstring>
#include <unistd.h>

#include "api/handler.h"
#include "connection/power.h"
#include "modem/bus_name.h"
#include "modem/discovery.h"
#include "platform/clock.h"
#include "platform/json.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"

namespace {

constexpr size_t COMMAND_SIZE = 100;
constexpr size_t BUS_SIZE = 16; // the ports of a bus with a longer name cannot be looked up
constexpr int64_t RESTART_MS = 20'000;
constexpr int64_t SETTLE_MS = 1000;

// --- Reset ---

// Whether the modem is back on the bus, by the port of its interface 0. Its restart has been waited for already, so the
// attempts follow each other without a pause.
bool is_back(const char *bus) {
    constexpr int ATTEMPTS = 30;
    char port[PORT_PATH_SIZE] = {};
    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        if (modem_search_port(bus, 0, port) > 0) {
            return true;
        }
    }
    return false;
}

// --- SIM ---

#define SIM_GPIO "/sys/class/gpio/gpio1"

struct SimSlot {
    char number[2];
    char command[37];
};

constexpr SimSlot FIRST_SIM = {"1", "echo 0 > " SIM_GPIO "/value"};
constexpr SimSlot SECOND_SIM = {"2", "echo 1 > " SIM_GPIO "/value"};

void prepare_sim_gpio() {
    if (access(SIM_GPIO "/value", F_OK) != 0) {
        execCommand("echo 1 >/sys/class/gpio/export");
        execCommand("echo out >" SIM_GPIO "/direction");
    }
}

void select_sim(const SimSlot &slot) {
    UciHandle *configuration = vuci2_init();
    vuci2_set(configuration, "velamodem.sim.sim_num", slot.number);
    execCommand(slot.command);
    sleep_whole(SETTLE_MS);
    vuci2_commit(configuration, "velamodem");
    vuci2_free(configuration);
}

} // namespace

int32_t reset_modem(json_object *request, json_object * /*reply*/) {
    const ModemModel *row = nullptr;
    const char *bus = nullptr;
    const int32_t picked = pick_row_and_bus(request, &row, &bus);
    if (picked != API_OK) {
        return picked;
    }
    char underscored[BUS_SIZE] = {};
    replace_bus_name(bus, underscored);
    char interface_down[COMMAND_SIZE];
    text_format(interface_down, "ifdown modem_%s", underscored);
    char interface_up[COMMAND_SIZE];
    text_format(interface_up, "ifup modem_%s", underscored);
    char forget_modem[COMMAND_SIZE];
    text_format(forget_modem, "rm -rf /tmp/modem.%s;/etc/init.d/smstools3 stop", bus);

    execCommand("/usr/bin/reactivate_mbn");
    execCommand(interface_down);
    execCommand(forget_modem);
    if (vjson_get_boolean(request, "disable") == 0) {
        modem_hw_power(bus);
    } else if (const char *command = reset_command(row->modem_id); command != nullptr) {
        modem_at_reset(bus, row->control_port, command);
    }
    sleep_whole(RESTART_MS);
    execCommand("sleep 20 && /usr/bin/check_verizon &");
    if (!is_back(bus)) {
        return API_NO_SUCH_MODEM;
    }
    fork_exec2("sleep 3 && /etc/init.d/smstools3 start");
    execCommand(interface_up);
    sleep_whole(SETTLE_MS);
    return API_OK;
}

int32_t modem_sim_switch(json_object *request, json_object * /*reply*/) {
    const char *requested = vjson_get_string(request, "bus");
    const char *sim_number = vjson_get_string(request, "sim_num");
    if (requested == nullptr || sim_number == nullptr) {
        return API_SIM_PARAMETER_MISSING;
    }
    const ModemModel *row = nullptr;
    const int32_t picked = pick_row(request, &row);
    if (picked == API_PARAMETER_MISSING) {
        return picked;
    }
    if (!is_plain_bus(requested)) {
        return API_SIM_PARAMETER_MISSING;
    }
    char bus[BUS_SIZE];
    text_copy(bus, requested);
    char show_signal[COMMAND_SIZE];
    text_format(show_signal, "sleep 15 && modem_signal_led.sh %s", bus[0] != '\0' ? bus : "2-1.2");
    prepare_sim_gpio();
    select_sim(strcmp(sim_number, "2") == 0 ? SECOND_SIM : FIRST_SIM);
    // What is kept about the SIM. The bus is this one whatever the request says; other scripts rely on it.
    execCommand("rm -rf /tmp/modem.2-1.2/signal*");
    execCommand("rm -rf /tmp/modem.2-1.2/cimi");
    if (picked != API_OK) {
        return picked;
    }
    if (const char *command = sim_switch_command(row->modem_id); command != nullptr) {
        modem_at_reset(bus, row->control_port, command);
    } else {
        modem_hw_power(bus);
    }
    sleep_whole(RESTART_MS);
    fork_exec2(show_signal);
    return API_OK;
}
