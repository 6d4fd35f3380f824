// Modem detection; see detection.h.
#include "modem/detection.h"

#include <cstring>

#include "modem/debug.h"
#include "modem/discovery.h"
#include "modem/modem_core/carrier.h"
#include "modem/modem_core/identity.h"
#include "modem/modem_core/status_report.h"
#include "platform/board.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "vendor/apn_database.h"

namespace {

// Enough for "/dev/ttyUSB" and a number; a longer name aborts.
constexpr size_t REPORTED_PORT_SIZE = 30;

// Reports the device paths of all ports of the device under "ports"; returns how many there are.
int report_ports(json_object *report, const char *device_directory, std::span<const InterfacePort> wanted = {}) {
    Json ports(json_object_new_array());
    const int found = modem_list_ports(device_directory, ports.get(), wanted);
    vjson_add_object(report, "ports", ports.release());
    return found;
}

// Only the halvor's second modem slot knows the hardware variant; everywhere else the keys are there and empty.
void report_board(json_object *report, const char *bus) {
    if (strcmp(get_model_name(), "halvor") == 0 && strcmp(bus, "2-1.2") == 0) {
        get_board_hw_and_sim_status(report);
        return;
    }
    vjson_add_string(report, "hw_version", "");
    vjson_add_string(report, "sim_num", "");
}

void report_apns(json_object *report, const ModemModel &model) {
    Json apns(json_object_new_array());
    if (get_custom_apns(model, nullptr, apns.get()) == 0) {
        vjson_add_object(report, "apns", apns.release());
    }
}

void report_detail(json_object *report, const ModemModel &model, const char *device_directory) {
    report_name(report, model, device_directory);
    report_imei(report, model);
    vjson_add_string(report, "bus", model.bus);
    report_board(report, model.bus);
    modem_read_carrier(report, model);
    modem_read_status(report, model);
    report_apns(report, model);
    Json operators(json_object_new_array());
    vjson_array_add_string(operators.get(), "Visible");
    vjson_add_object(report, "operators", operators.release());
}

ModemModel *no_ports(ModemModel *out) {
    DEBUG_printf("failed get ports\n");
    *out = no_modem();
    return out;
}

} // namespace

ModemModel *detect_modem(ModemModel *out, json_object *report, const char *bus, int detail) {
    *out = no_modem();
    UsbDevice device;
    if (find_usb_device(bus, &device) != 0) {
        return out;
    }
    if (device.row == nullptr) {
        return detect_unknow_modem(out, report, bus);
    }
    char data_port[REPORTED_PORT_SIZE] = {};
    char control_port[REPORTED_PORT_SIZE] = {};
    char qmi_port[REPORTED_PORT_SIZE] = {};
    const InterfacePort wanted[] = {
        {device.row->data_port, data_port},
        {device.row->control_port, control_port},
        {device.row->qmi_port, qmi_port},
    };
    if (report_ports(report, device.directory, wanted) < 1) {
        return no_ports(out);
    }
    *out = *device.row;
    replace_modem_struct(out, bus);
    vjson_add_int(report, "modem_id", out->modem_id);
    vjson_add_string(report, "data_port", data_port);
    vjson_add_string(report, "control_port", control_port);
    if (out->qmi_port >= 0) {
        vjson_add_string(report, "qmi_port", qmi_port);
    }
    if (detail != 0) {
        report_detail(report, *out, device.directory);
    }
    return out;
}

ModemModel *detect_unknow_modem(ModemModel *out, json_object *report, const char *bus) {
    char directory[SYSFS_PATH_SIZE] = {};
    modem_find_device(bus, directory);
    if (report_ports(report, directory) < 1) {
        return no_ports(out);
    }
    *out = *modem_list_find_id(modem_head, MODEM_ID_UNKNOWN);
    vjson_add_int(report, "modem_id", out->modem_id);
    vjson_add_string(report, "name", "-");
    replace_modem_struct(out, bus);
    vjson_add_string(report, "bus", bus);
    modem_read_carrier(report, *out);
    modem_read_status(report, *out);
    return out;
}

int find_usb_device(const char *bus, UsbDevice *device) {
    uint32_t vid = 0;
    uint32_t pid = 0;
    if (modem_find_device(bus, device->directory) != 0 || modem_read_usb_id(device->directory, &vid, &pid) != 0) {
        DEBUG_printf("please insert device\n");
        return -1;
    }
    DEBUG_printf("vid %X,pid %X\n", vid, pid);
    device->row = modem_list_find_usbid(modem_head, vid, pid);
    return 0;
}

ModemModel no_modem() {
    ModemModel model = {};
    model.modem_id = MODEM_ID_NONE;
    return model;
}

void report_name(json_object *report, const ModemModel &model, const char *device_directory) {
    char port[REPORTED_PORT_SIZE] = {};
    char name[IDENTITY_SIZE] = {};
    modem_find_port(device_directory, model.bus, model.control_port, port);
    vjson_add_string(report, "name", modem_get_identity(model.bus, port, name) == 0 ? name : model.name);
}

void report_imei(json_object *report, const ModemModel &model) {
    char imei[IMEI_BUFFER_SIZE] = {};
    if (get_modem_imei(model, imei) == 0) {
        vjson_add_string(report, "IMEI", imei);
    }
}
