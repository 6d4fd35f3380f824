// Calls one operation of the program that no command and no endpoint reaches by itself, and prints what it returns. It
// runs in the simulated router like the shipped programs, and is never installed.
//
//   probe detect BUS               detection with full detail
//   probe brief BUS                the modem's object of the brief list;  probe app-brief BUS (both with debug lines)
//   probe status BUS               the status block of the modem on the bus
//   probe link INTERFACE           the link's status;  probe passthrough-link INTERFACE
//   probe device DEVICE            address, gateway and traffic of a network device
//   probe iface INTERFACE SECONDS  the interface's state
//   probe reload SECONDS           netifd's reload
//   probe disabled BUS             whether the interface is disabled
//   probe rssi BUS                 level by AT+CSQ
//   probe slot-rssi BUS            level by the model's own operation;  probe slot-simcard BUS
//   probe cat6 BUS                 carrier aggregation of a Sierra Wireless modem
//   probe band BUS OPTION          LTE band of the serving cell
//   probe set-mode TTY MODE        restricts a Quectel modem;  probe current-mode BUS;  probe bands BUS
//   probe register TTY             registration by tty number
//   probe reset PORT COMMAND       sends a reset command
//   probe wifi-channel             the configured Wi-Fi channel;  probe wifi-auto-channel;  probe wifi-set CHANNEL
//   probe wifi-hint BAND BAND BAND the channel that would be better for these bands
//   probe wifi-move                moves the automatic channel off the modems' bands
//   probe mcu BUS                  what the microcontroller is told
//   probe bring-up COUNT INTERFACE data interface up;  probe take-down COUNT INTERFACE
//   probe connect-serial BUS FLAGS DEVICE  as if the model had these flags;  probe connect-qcm BUS DEVICE ("-": none)
//   probe disconnect BUS           takes the interface of the modem on the bus down, as the process' current modem
//   probe mwan3 INTERFACE [VISIBILITY]  the interface's place in mwan3;  probe metric INTERFACE BUS
//   probe ttl INTERFACE TTL DEVICE forced TTL
//   probe send REQUEST             sends a message as the endpoint does, and says which modem is the current one then
//   probe set-apn BUS APN          writes the APN, or the APN with its credentials, into the modem; -17 where the model
//   probe set-ath BUS APN USER PASSWORD AUTHENTICATION                                           does not support it
//   probe commands                 the commands of vela_modem in their order
//
// Output: the JSON object where there is one, then "result N".
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "api/brief_info_endpoints.h"
#include "api/handler.h"
#include "cli/commands.h"
#include "connection/bring_up.h"
#include "connection/connect.h"
#include "connection/interface_control.h"
#include "connection/multiwan.h"
#include "modem/debug.h"
#include "modem/detection.h"
#include "modem/modem_core/mode_band.h"
#include "modem/modem_core/registration.h"
#include "modem/modem_core/signal.h"
#include "modem/modem_core/status_report.h"
#include "platform/owners.h"
#include "platform/text.h"
#include "router/mcu.h"
#include "router/passthrough.h"
#include "router/wifi_channel.h"
#include "router/wifi_interference.h"
#include "sms/sms_sending.h"
#include "vendor/sierra_registration.h"

namespace {

struct Call {
    std::vector<std::string> arguments;
    json_object *reply;

    const char *text(size_t index) const { return arguments.at(index).c_str(); }
    int number(size_t index) const { return atoi(text(index)); }
    ModemModel modem() const {
        const Json ignored(json_object_new_object());
        ModemModel model;
        detect_modem(&model, ignored.get(), text(0), 0);
        return model;
    }
};

int detect(const Call &call) {
    ModemModel model;
    return detect_modem(&model, call.reply, call.text(0), 1)->modem_id;
}

template <ModemModel (*detect_brief)(const char *bus, json_object *object)> int brief(const Call &call) {
    DEBUG = 1;
    return detect_brief(call.text(0), call.reply).modem_id;
}

int level_by(int (*read)(const ModemModel &model, int32_t *level), const ModemModel &model, json_object *reply) {
    int32_t level = -1;
    const int result = read(model, &level);
    json_object_object_add(reply, "level", json_object_new_int(level));
    return result;
}

int rssi(const Call &call) {
    return level_by(modem_get_rssi, call.modem(), call.reply);
}

int slot_rssi(const Call &call) {
    const ModemModel model = call.modem();
    return level_by(model.ops.get_rssi, model, call.reply);
}

int slot_simcard(const Call &call) {
    const ModemModel model = call.modem();
    char text[32] = "untouched";
    const int result = model.ops.check_simcard(model, std::span(text));
    json_object_object_add(call.reply, "text", json_object_new_string(text));
    return result;
}

int band(const Call &call) {
    const ModemModel model = call.modem();
    return modem_get_current_band(model.bus, model.control_port, call.text(1));
}

int current_mode(const Call &call) {
    char mode[32] = {};
    const int result = modem_get_current_mode(call.modem(), mode);
    json_object_object_add(call.reply, "mode", json_object_new_string(mode));
    return result;
}

int set_apn(const Call &call) {
    const ModemModel model = call.modem();
    return model.ops.set_apn == nullptr ? API_NOT_SUPPORTED : model.ops.set_apn(model, call.text(1));
}

int set_ath(const Call &call) {
    const ModemModel model = call.modem();
    return model.ops.set_ath == nullptr
               ? API_NOT_SUPPORTED
               : model.ops.set_ath(model, call.text(1), call.text(2), call.text(3), call.text(4));
}

// The modem that the process works on then, -1 where there is none.
int with_current_modem(int result, json_object *reply) {
    const ModemModel *current = current_modem();
    json_object_object_add(reply, "current", json_object_new_int(current != nullptr ? current->modem_id : -1));
    return result;
}

int connect_serial(const Call &call) {
    ModemModel model = call.modem();
    model.proto_flags = static_cast<uint32_t>(strtoul(call.text(1), nullptr, 0));
    return with_current_modem(modem_connect_serial(model, {.device = call.text(2)}), call.reply);
}

int connect_qcm(const Call &call) {
    const char *device = strcmp(call.text(1), "-") == 0 ? nullptr : call.text(1);
    return with_current_modem(modem_connect_qcm(call.modem(), {.device = device}), call.reply);
}

int send(const Call &call) {
    const Json request(json_tokener_parse(call.text(0)));
    return with_current_modem(send_modem_sms(request.get(), call.reply), call.reply);
}

int disconnect(const Call &call) {
    const ModemModel model = call.modem();
    if (model.modem_id != MODEM_ID_NONE) {
        set_current_modem(model);
    }
    return with_current_modem(modem_iface_disconnect(), call.reply);
}

int force_ttl(const Call &call) {
    ModemModel model = *modem_head;
    text_copy(model.ifname, call.text(0));
    model.ttl = static_cast<uint8_t>(call.number(1));
    return modem_set_ttl(model, call.text(2));
}

int commands(const Call &call) {
    json_object *names = json_object_new_array();
    for (const Command &command : all_commands()) {
        json_object_array_add(names, json_object_new_string(command.name));
    }
    json_object_object_add(call.reply, "commands", names);
    return 0;
}

struct Operation {
    const char *name;
    size_t arguments;
    int (*run)(const Call &call);
};

// One row a line.
// clang-format off
constexpr Operation OPERATIONS[] = {
    {"detect", 1, detect},
    {"brief", 1, brief<detect_modem_brief_info>},
    {"app-brief", 1, brief<detect_modem_app_brief_info>},
    {"status", 1, [](const Call &call) { return modem_read_status(call.reply, call.modem()); }},
    {"link", 1, [](const Call &call) { return ubus_read_ifstatus(call.reply, call.text(0), 5); }},
    {"passthrough-link", 1,
     [](const Call &call) { return passthrough_ubus_read_ifstatus(call.reply, call.text(0), 5); }},
    {"device", 1, [](const Call &call) { return read_iface_info(call.reply, call.text(0)); }},
    {"iface", 2, [](const Call &call) { return iface_status(call.text(0), call.number(1)); }},
    {"reload", 1, [](const Call &call) { return ubus_network_reload(call.number(0)); }},
    {"disabled", 1, [](const Call &call) { return get_modem_network_status(call.text(0)); }},
    {"rssi", 1, rssi},
    {"slot-rssi", 1, slot_rssi},
    {"slot-simcard", 1, slot_simcard},
    {"cat6", 1, [](const Call &call) { return sierra_check_cat6(call.modem()); }},
    {"band", 2, band},
    {"set-mode", 2, [](const Call &call) { return modem_set_mode(call.number(0), call.number(1)); }},
    {"current-mode", 1, current_mode},
    {"bands", 1, [](const Call &call) { return modem_get_band(call.modem(), call.reply); }},
    {"register", 1, [](const Call &call) { return modem_get_register_status(call.number(0)); }},
    {"reset", 2, [](const Call &call) { return soft_reset_mode(call.text(0), call.text(1)); }},
    {"wifi-channel", 0, [](const Call &) { return get_current_wifi24g_channel(); }},
    {"wifi-auto-channel", 0, [](const Call &) { return get_auto_wifi24g_channel(); }},
    {"wifi-set", 1, [](const Call &call) { return set_auto_wifi_channel(call.number(0)), 0; }},
    {"wifi-hint", 3,
     [](const Call &call) {
         return handle_wifi_channel_fixed_interference(call.number(0), call.number(1), call.number(2));
     }},
    {"wifi-move", 0, [](const Call &) { return handle_wifi_channel_auto_interference(), 0; }},
    {"mcu", 1, [](const Call &call) { return modem_mcu_interface(call.text(0), call.reply); }},
    {"bring-up", 2, [](const Call &call) { return modem_serial_connect(call.number(0), call.text(1)); }},
    {"take-down", 2, [](const Call &call) { return modem_disconnect(call.number(0), call.text(1)); }},
    {"connect-serial", 3, connect_serial},
    {"connect-qcm", 2, connect_qcm},
    {"disconnect", 1, disconnect},
    {"mwan3", 1, [](const Call &call) { return set_mwan3(call.text(0), nullptr), 0; }},
    {"mwan3", 2, [](const Call &call) { return set_mwan3(call.text(0), call.text(1)), 0; }},
    {"ttl", 3, force_ttl},
    {"metric", 2, [](const Call &call) { return change_metric_value(call.text(0), call.text(1)); }},
    {"send", 1, send},
    {"set-apn", 2, set_apn},
    {"set-ath", 5, set_ath},
    {"commands", 0, commands},
};
// clang-format on

} // namespace

int main(int argc, char **argv) {
    for (const Operation &operation : OPERATIONS) {
        if (argc >= 2 && strcmp(argv[1], operation.name) == 0 && argc - 2 == static_cast<int>(operation.arguments)) {
            const Json reply(json_object_new_object());
            const int result = operation.run({{argv + 2, argv + argc}, reply.get()});
            puts(json_object_to_json_string_ext(reply.get(), JSON_C_TO_STRING_PRETTY));
            printf("result %d\n", result);
            return 0;
        }
    }
    fputs("Usage: probe OPERATION ARGUMENT...\n", stderr);
    return 2;
}
