// "/modem/info"; see info_endpoint.h.
#include "api/info_endpoint.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "modem/modem_core/status_report.h"
#include "platform/board.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"
#include "router/wifi_interference.h"

namespace {

constexpr char BOARDS_WITHOUT[][8] = {"quillo", "ostrel3", "soltane"};

bool board_is_supported() {
    const char *board = get_model_name();
    return std::none_of(std::begin(BOARDS_WITHOUT), std::end(BOARDS_WITHOUT),
                        [board](const char *name) { return strcmp(board, name) == 0; });
}

// The router's other ways to the Internet. Where the passed-through link runs over one of them, it is no modem's.
constexpr char WIRED_LINKS[][10] = {"eth1", "pppoe-wan"};

struct Passthrough {
    char enable[64] = {};
    char subnet[64] = {};
    char netmask[64] = {};
    char gateway[64] = {};
    char running[64] = {}; // network device of the link that is passed through
    char dns[DNS_LIST_SIZE] = {};

    Passthrough() {
        UciHandle *configuration = vuci2_init();
        vuci2_get(configuration, "velaconfig.passthrough.enable", enable);
        vuci2_get(configuration, "velaconfig.passthrough.subnet", subnet);
        vuci2_get(configuration, "velaconfig.passthrough.netmask", netmask);
        vuci2_get(configuration, "velaconfig.passthrough.gateway", gateway);
        vuci2_get(configuration, "velaconfig.passthrough.running", running);
        vuci2_get(configuration, "velaconfig.passthrough.dns", dns);
        vuci2_free(configuration);
    }
    bool is_active() const {
        return strcmp(enable, "1") == 0 && running[0] != '\0' &&
               std::none_of(std::begin(WIRED_LINKS), std::end(WIRED_LINKS),
                            [this](const char *link) { return strcmp(running, link) == 0; });
    }
};

// Whether the LAN bridge has the gateway for an address (or one that the gateway's text is found in).
bool bridge_has(const char *gateway) {
    // The gateway is whatever somebody left in the configuration.
    if (!is_shell_word(gateway)) {
        return false;
    }
    char command[128];
    char found[64] = {};
    text_format(command, "ifconfig br-lan | grep %s", gateway);
    getShellCommandReturn(command, found);
    return found[0] != '\0';
}

void add_passthrough(json_object *reply) {
    const Passthrough configured;
    const bool active = configured.is_active();
    vjson_add_boolean(reply, "passthrough", active ? 1 : 0);
    if (!active) {
        return;
    }
    vjson_add_string(reply, "gateway", configured.gateway);
    vjson_add_string(reply, "netmask", configured.netmask);
    vjson_add_string(reply, "subnet", bridge_has(configured.gateway) ? configured.subnet : "");
    Json servers(json_object_new_array());
    add_further_dns_servers(servers.get(), configured.dns);
    vjson_add_object(reply, "pass_dns", servers.release());
}

// What is gathered over the configured modems, each at its position in the list of buses.
struct Modems {
    Json reports{json_object_new_array()};
    size_t found = 0;
    std::array<int32_t, MOST_MODEMS> lte_bands = {};
    std::array<bool, MOST_MODEMS> disabled = {};

    explicit Modems(const ConfiguredBuses &buses) {
        for (size_t position = 0; position < MOST_MODEMS; position++) {
            ConfiguredModem modem = find_configured_modem(buses, position);
            if (modem.found()) {
                found++;
                vjson_array_add_object(reports.get(), modem.report.release());
                lte_bands[position] = modem.lte_band;
                disabled[position] = get_modem_network_status(modem.model.bus) != 0;
            }
        }
    }
    int32_t recommended_wifi_channel() const {
        return modems_are_switched_off(found, disabled)
                   ? 0
                   : handle_wifi_channel_fixed_interference(lte_bands[0], lte_bands[1], lte_bands[2]);
    }
};

} // namespace

void add_further_dns_servers(json_object *servers, std::string_view list) {
    for (size_t comma = list.find(','); comma != list.npos; comma = list.find(',')) {
        list = text_from(list, comma + 1);
        char server[DNS_LIST_SIZE];
        text_copy(server, text_before(list, list.find(',')));
        vjson_array_add_string(servers, server);
    }
}

bool modems_are_switched_off(size_t found, const std::array<bool, MOST_MODEMS> &disabled) {
    const auto is_set = [](bool flag) { return flag; };
    return std::all_of(disabled.begin(), disabled.begin() + std::min(found, MOST_MODEMS), is_set);
}

int32_t get_modem_info(json_object * /*request*/, json_object *reply) {
    if (!board_is_supported()) {
        return API_NOT_SUPPORTED;
    }
    const ConfiguredBuses buses = configured_buses();
    add_passthrough(reply);
    Modems modems(buses);
    if (modems.found == 0) {
        return API_NO_SUCH_MODEM;
    }
    vjson_add_int(reply, "hint_modify_wifi_channel", modems.recommended_wifi_channel());
    vjson_add_object(reply, "modems", modems.reports.release());
    return API_OK;
}
