// The status block; see status_report.h.
#include "modem/modem_core/status_report.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "connection/interface_control.h"
#include "modem/bus_name.h"
#include "modem/modem_core/registration.h"
#include "modem/modem_core/signal.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"
#include "router/passthrough.h"
#include "sms/sms_store.h"

namespace {

constexpr int32_t MODEM_ID_BG95 = 7;
constexpr int32_t MODEM_ID_EC100Y = 9;
constexpr int32_t LINK_TIMEOUT_SECONDS = 100;

struct LinkConfiguration {
    char proto[32] = {};
    char disabled[32] = {};
    char passthrough[32] = {};

    explicit LinkConfiguration(const char *ifname) {
        UciHandle *configuration = vuci2_init();
        vuci2_get_name(configuration, "network", ifname, "proto", proto);
        vuci2_get_name(configuration, "network", ifname, "disabled", disabled);
        vuci2_get(configuration, "velaconfig.passthrough.enable", passthrough);
        vuci2_free(configuration);
    }
    bool is_disabled() const { return strcmp(disabled, "1") == 0; }
    bool is_passed_through() const { return strcmp(passthrough, "1") == 0; }
};

void add_link(json_object *reply, const ModemModel &model, const LinkConfiguration &configuration) {
    const auto read_status = configuration.is_passed_through() ? passthrough_ubus_read_ifstatus : ubus_read_ifstatus;
    if (read_status(reply, model.ifname, LINK_TIMEOUT_SECONDS) != IFACE_DOWN) {
        return;
    }
    // An interface that is configured and not up is about to be dialled again.
    const bool will_connect = !configuration.is_disabled() && configuration.proto[0] != '\0';
    vjson_add_string(reply, "up", will_connect ? "connecting" : "off");
}

int fault_of(const ModemModel &model, const LinkConfiguration &configuration) {
    const bool only_when_disabled = model.modem_id == MODEM_ID_BG95 || model.modem_id == MODEM_ID_EC100Y;
    if (only_when_disabled && !configuration.is_disabled()) {
        return 0;
    }
    char text[64] = {};
    return fault_analysis(model, text);
}

// Whether mwan3's tracker has found the interface to be online.
bool is_online(const char *ifname) {
    char path[64];
    text_format(path, "/var/run/mwan3track/%s/STATUS", ifname);
    // O_NONBLOCK: whatever somebody puts there, no query may hang on it.
    const Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    char status[17] = {};
    return file.valid() && read(file.get(), status, sizeof status - 1) > 0 && strstr(status, "online") != nullptr;
}

void add_signal(json_object *reply, const ModemModel &model) {
    char mode[16] = {};
    int32_t level = 0;
    if (get_modem_signal(model, mode, &level, reply) == 0) {
        vjson_add_int(reply, "signal", level);
        vjson_add_string(reply, "mode", mode);
    }
}

// One byte of the factory partition in lower-case hexadecimal; empty where it cannot be read.
struct FactoryByte {
    char text[8] = {};
    explicit FactoryByte(const char *command) { getShellCommandReturn(command, text); }
    bool is(const char *value) const { return strcmp(text, value) == 0; }
};

const char *hardware_version() {
    const FactoryByte variant("hexdump -v -n 1 -s $((0x9c)) -e '1/1 \"%x\"' /dev/mtd2");
    if (variant.is("53")) { // "S"
        return "VELA-HALVOR-S";
    }
    const FactoryByte revision("hexdump -v -n 1 -s $((0x9d)) -e '1/1 \"%x\"' /dev/mtd2");
    return revision.is("31") ? "VELA-HALVOR-D1" : "VELA-HALVOR-D2"; // "1"
}

} // namespace

int modem_read_status(json_object *reply, const ModemModel &model) {
    const LinkConfiguration configuration(model.ifname);
    add_link(reply, model, configuration);
    if (model.modem_id != MODEM_ID_UNKNOWN) {
        const int fault = fault_of(model, configuration);
        vjson_add_int(reply, "SIM_status", fault);
        if (fault != 0) {
            return 0;
        }
        vjson_add_boolean(reply, "online", is_online(model.ifname));
        add_signal(reply, model);
    }
    vjson_add_int(reply, "newsms", modem_check_new_sms(model.bus));
    return 0;
}

int get_board_hw_and_sim_status(json_object *reply) {
    vjson_add_string(reply, "hw_version", hardware_version());
    char sim_count[32] = {};
    UciHandle *configuration = vuci2_init();
    vuci2_get(configuration, "velamodem.sim.sim_num", sim_count);
    vuci2_free(configuration);
    vjson_add_string(reply, "sim_num", strcmp(sim_count, "2") == 0 ? "2" : "1");
    return 0;
}

int get_modem_network_status(const char *bus) {
    char underscored[16] = {};
    char section[20];
    char disabled[32] = {};
    replace_bus_name(bus, underscored);
    text_format(section, "modem_%s", underscored);
    UciHandle *configuration = vuci2_init();
    vuci2_get_name(configuration, "network", section, "disabled", disabled);
    vuci2_free(configuration);
    return strcmp(disabled, "1") == 0 ? 1 : 0;
}
