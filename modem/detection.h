// Modem detection: which modem is on a USB bus, and on which ports.
#pragma once

#include <json-c/json.h>

#include "modem/model.h"
#include "modem/sysfs_walk.h"

// Finds the modem on `bus`, such as "1-1.2", and fills `out`: a copy of its row with the run-time fields for that bus.
// Returns out. Where there is no usable modem (no device, or its ports are not there yet) only out->modem_id is
// meaningful: MODEM_ID_NONE. A device that is in no row is taken for the unknown modem as long as it has ports. Aborts
// where there is a modem and the bus does not fit its fields (replace_modem_struct). `bus` does not lie in `out`. What
// went wrong is told with DEBUG_printf.
//
// `report` receives what was found: "ports" (array of device paths), "modem_id", "data_port", "control_port" and, where
// the model has one, "qmi_port" (device paths, empty where the port is not there). With `detail` not 0 also "name" (the
// modem's own, or its row's), "IMEI", "bus", "hw_version", "sim_num", the keys of modem_read_carrier and
// modem_read_status, "apns" where the SIM has prescribed ones, and "operators" (always ["Visible"]). The unknown modem
// is reported with "ports", "modem_id", "name" ("-"), "bus" and the keys of these two, whatever the detail.
ModemModel *detect_modem(ModemModel *out, json_object *report, const char *bus, int detail);

// The part of detect_modem for a device whose ids are in no row. The same contract.
ModemModel *detect_unknow_modem(ModemModel *out, json_object *report, const char *bus);

// --- Pieces of it, for the shorter reports ---

// The USB device on a bus.
struct UsbDevice {
    char directory[SYSFS_PATH_SIZE] = {}; // in sysfs
    const ModemModel *row = nullptr;      // that its ids name; null where they are in no row
};

// Finds the device on the bus and tells of it with DEBUG_printf ("vid %X,pid %X" or "please insert device"). Returns 0,
// or -1 where there is none or its ids cannot be read.
int find_usb_device(const char *bus, UsbDevice *device);

// A model whose modem_id is MODEM_ID_NONE: what detection gives where there is no usable modem.
ModemModel no_modem();

// Adds "name": the modem's own, asked for on the AT port of its device, or else that of its row.
void report_name(json_object *report, const ModemModel &model, const char *device_directory);

// Adds "IMEI" where it can be had.
void report_imei(json_object *report, const ModemModel &model);
