// Connecting a modem; see connect.h.
#include "connection/connect.h"

#include <cstring>
#include <unistd.h>

#include "connection/interface_control.h"
#include "connection/multiwan.h"
#include "modem/discovery.h"
#include "platform/json.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace {

// How often the link is asked for, once a second: where the device was named, once.
constexpr int WAIT_FOR_NAMED_DEVICE = 1;
constexpr int WAIT_FOR_FOUND_DEVICE = 15;
// A wait shorter than this tells nothing about the link.
constexpr int TELLING_WAIT = 11;

constexpr const char *SERVICE = "fdd_lte";

constexpr size_t NETWORK_DEVICE_SIZE = 16;

// An unknown modem has its only known port at interface 0.
int port_number(const ModemModel &model, int known) {
    return model.modem_id == MODEM_ID_UNKNOWN ? 0 : known;
}

// What a tty modem connects with: the first row with a bit that the model has.
struct SerialProtocol {
    uint32_t flag;
    char proto[9];
    char device_fragment[5];            // the network device on the bus whose name contains this, if it is not empty,
    char (ModemModel::*row_device)[16]; // or else the row's
};

// One row a line.
// clang-format off
constexpr SerialProtocol SERIAL_PROTOCOLS[] = {
    {PROTO_DIRECTIP, "directip", "eth", nullptr},
    {PROTO_CALLIP, "callip", "wwan", &ModemModel::ppp_ifname},
    {PROTO_NCM, "ncm", "", &ModemModel::ecm_ifname},
    {0, "3g", "", &ModemModel::ppp_ifname},
};
// clang-format on

const SerialProtocol &serial_protocol(uint32_t flags) {
    const SerialProtocol *row = SERIAL_PROTOCOLS;
    while (row->flag != 0 && (flags & row->flag) == 0) {
        row++;
    }
    return *row;
}

// The device's name goes into `name` where it has to be looked for.
InterfaceProtocol interface_of(const ModemModel &model, const SerialProtocol &row, std::span<char> name) {
    if (row.device_fragment[0] != '\0' && modem_get_net_dev(model.bus, row.device_fragment, name) > 0) {
        return {row.proto, name.data()};
    }
    return {row.proto, row.row_device != nullptr ? model.*row.row_device : nullptr};
}

// The device that the settings name, or else the model's port, into `port`; null where there is none.
const char *device_of(const ModemModel &model, int number, const ConnectionSettings &settings, std::span<char> port) {
    if (settings.device != nullptr) {
        return settings.device;
    }
    return modem_search_port(model.bus, number, port) > 0 ? port.data() : nullptr;
}

int wait_count(const ConnectionSettings &settings) {
    return settings.device != nullptr ? WAIT_FOR_NAMED_DEVICE : WAIT_FOR_FOUND_DEVICE;
}

void write_interface(const ModemModel &model, const InterfaceProtocol &protocol, ConnectionSettings settings,
                     const char *device) {
    settings.device = device;
    forget_failures(model.bus);
    uci_del_config(model.ifname);
    uci_add_config(model, protocol, settings);
    change_metric_value(model.ifname, model.bus);
}

int bring_up(const ModemModel &model, int count) {
    if (model.ops.serial_connect(count, model.ifname) == IFACE_UP) {
        set_current_modem(model);
        return 0;
    }
    return count < TELLING_WAIT ? 0 : -1;
}

// QMI and QCM: `drops_session` where an old session of the modem is to be dropped first.
int connect_over_control_device(const ModemModel &model, const ConnectionSettings &settings, const char *proto,
                                bool drops_session) {
    const bool known = model.modem_id != MODEM_ID_UNKNOWN;
    char port[PORT_PATH_SIZE] = {};
    const char *device = device_of(model, port_number(model, model.qmi_port), settings, port);
    if (device == nullptr || (known && settings.device == nullptr && access(device, F_OK) != 0)) {
        return -1;
    }
    char drop_session[100] = {};
    if (drops_session && known) {
        text_format(drop_session, "timeout -t 2 uqmi -d %s --stop-network 4294967295 --autoconnect 2>/dev/null",
                    device);
    }
    write_interface(model, {proto, model.net_ifname}, settings, device);
    execCommand("killall uqmi 2>/dev/null");
    if (drop_session[0] != '\0' && is_shell_word(device)) {
        execCommand(drop_session);
    }
    return bring_up(model, wait_count(settings));
}

// Whether an APN is for the Internet. Those for multimedia messages alone, and the like, connect to nothing else.
bool is_for_internet(json_object *entry) {
    if (!vjson_contain_key(entry, "-type")) {
        return true;
    }
    const char *type = vjson_get_string(entry, "-type");
    return type != nullptr && (strstr(type, "default") != nullptr || strstr(type, "hipri") != nullptr);
}

} // namespace

void forget_failures(const char *bus) {
    char path[50];
    text_format(path, "/tmp/modem.%s/fail_count", bus);
    unlink(path);
}

int modem_connect_serial(const ModemModel &model, const ConnectionSettings &settings) {
    char port[PORT_PATH_SIZE] = {};
    const char *device = device_of(model, port_number(model, model.data_port), settings, port);
    if (device == nullptr) {
        return -1;
    }
    char network_device[NETWORK_DEVICE_SIZE] = {};
    const SerialProtocol &row = serial_protocol(model.proto_flags);
    write_interface(model, interface_of(model, row, network_device), settings, device);
    return bring_up(model, wait_count(settings));
}

int modem_connect_qmi(const ModemModel &model, const ConnectionSettings &settings) {
    return connect_over_control_device(model, settings, "qmi", true);
}

int modem_connect_qcm(const ModemModel &model, const ConnectionSettings &settings) {
    return connect_over_control_device(model, settings, "qcm", false);
}

int modem_connect_auto(const ModemModel &model, json_object *entries, const ConnectionSettings &settings) {
    ConnectionSettings attempt = settings;
    attempt.device = nullptr;
    attempt.service = SERVICE;
    if (entries == nullptr) {
        return modem_connect_serial(model, attempt) == 0 ? 0 : -1;
    }
    for (size_t index = 0; index < json_object_array_length(entries); index++) {
        json_object *entry = json_object_array_get_idx(entries, index);
        if (!is_for_internet(entry)) {
            continue;
        }
        attempt.apn = vjson_get_string(entry, "-apn");
        attempt.username = vjson_get_string(entry, "-user");
        attempt.password = vjson_get_string(entry, "-password");
        if (model.qmi_port >= 0 && modem_connect_qmi(model, attempt) == 0) {
            return 0;
        }
        if (modem_connect_serial(model, attempt) == 0) {
            return 0;
        }
    }
    return -1;
}

int modem_iface_disconnect() {
    constexpr int WAIT_COUNT = 5;
    const ModemModel *model = current_modem();
    if (model == nullptr || model->ops.disconnect(WAIT_COUNT, model->ifname) != IFACE_DOWN) {
        return -1;
    }
    cur_dev = MODEM_ID_NONE;
    return 0;
}
