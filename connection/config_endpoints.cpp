// Writing and reading a modem's network configuration; see config_endpoints.h.
#include "connection/config_endpoints.h"

#include <cstring>
#include <span>

#include "api/handler.h"
#include "connection/connect.h"
#include "modem/bus_name.h"
#include "modem/discovery.h"
#include "platform/board.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"

namespace {

// A value of the configuration that is longer than what anybody configures aborts.
constexpr size_t VALUE_SIZE = 1024;

constexpr size_t IFNAME_SIZE = 20; // "modem_1_1_2"

// A text of the request. One that could not be read back aborts before anything is written.
const char *setting(json_object *request, const char *key) {
    const char *text = vjson_get_string(request, key);
    char readable[VALUE_SIZE];
    text_copy(readable, text != nullptr ? text : "");
    return text;
}

bool is_at_port(const ModemModel &model, const char *device) {
    char port[PORT_PATH_SIZE] = {};
    return modem_search_port(model.bus, model.control_port, port) > 0 && strcmp(port, device) == 0;
}

bool is_tty(const char *device) {
    return strstr(device, "ttyUSB") != nullptr || strstr(device, "ttyACM") != nullptr;
}

int32_t connect(const ModemModel &model, const char *proto, const ConnectionSettings &settings) {
    if (strcmp(proto, "qcm") == 0) {
        return modem_connect_qcm(model, settings);
    }
    if (strstr(settings.device, "cdc-wdm") != nullptr) {
        return modem_connect_qmi(model, settings);
    }
    if (!is_tty(settings.device)) {
        return API_DEVICE_UNKNOWN;
    }
    const int32_t result = modem_connect_serial(model, settings);
    if (strcmp(get_model_name(), "tamber") == 0) {
        execCommand("sleep 10 ;/etc/init.d/led reload 2>&1 >/dev/null");
    }
    return result;
}

// An option of the interface and the key that it is reported as.
struct ReportedOption {
    char option[11];
    char key[15];
};

constexpr ReportedOption OPTIONS_BEFORE_DEVICE[] = {{"service", "service"}};
constexpr ReportedOption OPTIONS_BEFORE_OPERATOR[] = {{"apn", "apn"}, {"mtu", "mtu"}};
constexpr ReportedOption OPTIONS_AFTER_OPERATOR[] = {
    {"pincode", "pincode"},   {"dialnumber", "dialnum"},  {"username", "username"},
    {"password", "password"}, {"auth", "authentication"},
};

// One interface of the network configuration.
struct InterfaceReader {
    UciHandle *configuration;
    const char *ifname;
    json_object *config;

    void read(const char *option, std::span<char> value) const {
        text_clear(value);
        vuci2_get_name(configuration, "network", ifname, option, value);
    }
    void report(std::span<const ReportedOption> options) const {
        for (const ReportedOption &one : options) {
            char value[VALUE_SIZE];
            read(one.option, value);
            vjson_add_string(config, one.key, value);
        }
    }
    // The device by its place on USB, as its name may have changed since; by its name only where the place is unknown.
    void report_device() const {
        char node[VALUE_SIZE];
        char device[VALUE_SIZE];
        read("node", node);
        if (node[0] != '\0') {
            text_clear(device);
            modem_search_port_by_node(node, std::span(device).first(PORT_PATH_SIZE));
        } else {
            read("device", device);
        }
        vjson_add_string(config, "device", device);
    }
};

void find_ifname(const char *bus, std::span<char> ifname) {
    char underscored[IFNAME_SIZE] = {};
    replace_bus_name(bus, underscored);
    text_format(ifname, "modem_%s", underscored);
}

void report_config(const InterfaceReader &reader) {
    char value[VALUE_SIZE] = {};
    reader.report(OPTIONS_BEFORE_DEVICE);
    reader.report_device();
    reader.report(OPTIONS_BEFORE_OPERATOR);
    vuci2_get(reader.configuration, "velaconfig.modem.operator", value);
    vjson_add_string(reader.config, "operator", value);
    reader.report(OPTIONS_AFTER_OPERATOR);
    reader.read("proto", value);
    if (strcmp(value, "qcm") == 0) {
        vjson_add_string(reader.config, "proto", value);
    }
    text_clear(value);
    vuci2_get_name(reader.configuration, "velamodem", reader.ifname, "ttl", value);
    if (value[0] != '\0') {
        vjson_add_int(reader.config, "ttl", text_to_int(value));
    }
}

} // namespace

int32_t set_modem_config(json_object *request, json_object * /*reply*/) {
    const ModemModel *row = nullptr;
    const char *bus = nullptr;
    const int32_t picked = pick_row_and_bus(request, &row, &bus);
    if (picked != API_OK) {
        return picked;
    }
    ModemModel model = *row;
    replace_modem_struct(&model, bus);
    const ConnectionSettings settings = {
        .device = setting(request, "device"),
        .service = setting(request, "service"),
        .apn = setting(request, "apn"),
        .pincode = setting(request, "pincode"),
        .dialnumber = setting(request, "dianum"),
        .username = setting(request, "username"),
        .password = setting(request, "password"),
        .auth = setting(request, "ath"),
        .mtu = setting(request, "mtu"),
        .isp_operator = setting(request, "operator"),
    };
    if (settings.device == nullptr) {
        return API_DEVICE_MISSING;
    }
    const char *proto = vjson_get_string(request, "proto");
    if (vjson_contain_key(request, "ttl")) {
        model.ttl = static_cast<uint8_t>(vjson_get_int(request, "ttl"));
    }
    if ((model.skip_port_check & 1) == 0 && is_at_port(model, settings.device)) {
        return API_DEVICE_IS_AT_PORT;
    }
    const int32_t result = connect(model, proto != nullptr ? proto : "auto", settings);
    return result == -1 ? API_CONNECT_FAILED : result;
}

int32_t get_modem_config(json_object *request, json_object *reply) {
    char ifname[IFNAME_SIZE];
    find_ifname(requested_bus(request), ifname);
    Json config(json_object_new_object());
    UciHandle *configuration = vuci2_init();
    report_config({configuration, ifname, config.get()});
    vuci2_free(configuration);
    vjson_add_object(reply, "config", config.release());
    return API_OK;
}
