// "/modem/brief_info" and "/modem/app/brief_info"; see brief_info_endpoints.h.
#include "api/brief_info_endpoints.h"

#include "modem/configured_modems.h"
#include "modem/debug.h"
#include "modem/detection.h"
#include "modem/discovery.h"
#include "modem/modem_core/carrier.h"
#include "modem/modem_core/firmware_version.h"
#include "modem/modem_core/identity.h"
#include "modem/modem_core/status_report.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace {

// Both models are asked for by a command of our own, which takes the modem on its usual bus: on another bus it is still
// that one's version that is reported.
void add_version(json_object *object) {
    char of_ep06[128] = {};
    char of_ec25[128] = {};
    char version[FIRMWARE_VERSION_SIZE];
    getShellCommandReturn("vela_modem AT AT+QGMR | grep EP06", of_ep06);
    getShellCommandReturn("vela_modem AT AT+QGMR | grep EC25", of_ec25);
    keep_version_characters(of_ep06[0] != '\0' ? of_ep06 : of_ec25, version);
    vjson_add_string(object, "version", version);
}

// What is kept of the modem's identity, as the shell hands it on; empty where nothing is kept.
struct KeptIdentity {
    char imei[IMEI_BUFFER_SIZE] = {};
    char name[IDENTITY_SIZE] = {};

    explicit KeptIdentity(const char *bus) {
        char command[80];
        text_format(command, "cat /tmp/modem.%s/modem-imei", bus);
        getUciReturn(command, imei);
        text_format(command, "cat /tmp/modem.%s/modem-name | xargs echo -n", bus);
        getUciReturn(command, name);
    }
};

void add_identity(json_object *object, const ModemModel &model, const char *device_directory) {
    const KeptIdentity kept(model.bus);
    if (kept.name[0] != '\0') {
        vjson_add_string(object, "name", kept.name);
    } else {
        report_name(object, model, device_directory);
    }
    if (kept.imei[0] != '\0') {
        vjson_add_string(object, "IMEI", kept.imei);
    } else {
        report_imei(object, model);
    }
}

int32_t list_modems(json_object *reply, ModemModel (*detect)(const char *bus, json_object *object)) {
    Json modems(json_object_new_array());
    bool found = false;
    for (const auto &bus : configured_buses()) {
        if (bus[0] == '\0') {
            continue;
        }
        Json object(json_object_new_object());
        if (detect(bus.data(), object.get()).modem_id >= 0) {
            vjson_array_add_object(modems.get(), object.release());
            found = true;
        }
    }
    if (!found) {
        return API_NO_SUCH_MODEM;
    }
    vjson_add_object(reply, "modems", modems.release());
    return API_OK;
}

} // namespace

int32_t get_modem_brief_info(json_object * /*request*/, json_object *reply) {
    return list_modems(reply, detect_modem_brief_info);
}

int32_t get_modem_app_brief_info(json_object * /*request*/, json_object *reply) {
    return list_modems(reply, detect_modem_app_brief_info);
}

ModemModel detect_modem_brief_info(const char *bus, json_object *object) {
    UsbDevice device;
    if (find_usb_device(bus, &device) != 0 || device.row == nullptr) {
        return no_modem();
    }
    const Json ports(json_object_new_array());
    if (modem_list_ports(device.directory, ports.get()) < 1) {
        DEBUG_printf("failed get ports\n");
        return no_modem();
    }
    ModemModel model = *device.row;
    replace_modem_struct(&model, bus);
    add_version(object);
    add_identity(object, model, device.directory);
    vjson_add_string(object, "bus", bus);
    return model;
}

ModemModel detect_modem_app_brief_info(const char *bus, json_object *object) {
    UsbDevice device;
    if (find_usb_device(bus, &device) != 0) {
        return no_modem();
    }
    ModemModel model;
    if (device.row == nullptr) {
        return *detect_unknow_modem(&model, object, bus);
    }
    model = *device.row;
    replace_modem_struct(&model, bus);
    vjson_add_string(object, "bus", bus);
    modem_read_carrier(object, model);
    modem_read_status(object, model);
    return model;
}
