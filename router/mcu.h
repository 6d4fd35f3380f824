// What the board's microcontroller is told of a modem: one small object, or the one fault that keeps the modem from
// being used.
#pragma once

#include <json-c/json.h>

// Detects the modem on the bus and adds to `reply`, in this order: "carrier" (empty where it is unknown), "sms" (number
// of unread messages, where there are any), for a model that reports measurements "signal_info" (array),
// "signal" (level, one digit) and "modem_mode" ("4G", or empty), and "modem_up" ("1", where its interface is up). All
// but the array are texts. With a SIM or registration fault it adds only "SIM", the fault's word (fault_analysis).
//
// Returns 1 when all was added, 0 for a fault, -1 with nothing added where no modem was found or memory is short. What
// is not 1 leaves a line in the system log.
int modem_mcu_interface(const char *bus, json_object *reply);
