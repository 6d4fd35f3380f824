// Whose network the SIM belongs to: the carrier's display name, the name that the network itself reports, and the APNs
// that fit the SIM.
//
// The display name comes from the operator list of the system image, /usr/share/modem/operator.dat: lines of fields
// with commas between, where a line that contains the SIM's country and network code anywhere is the carrier's, and its
// second field the name.
#pragma once

#include <span>

#include <json-c/json.h>

#include "modem/model.h"

// --- Without I/O ---

// What the operator list gave, as it is reported: one line feed at the end is dropped, unless it is all there is, and
// of the rest, several lines or not, the first 16 bytes stay.
void cut_carrier_name(char *text);

// The text after the first double quote in the reply to AT+COPS?, up to the next one or to the line's end, into `name`
// (cut where it does not fit: a network may call itself what it likes). Returns -1, with an empty `name`, where there
// is none.
int parse_operator_name(const char *reply, std::span<char> name);

// --- Queries ---

// Adds "mnc" (always three characters of the IMSI), "mcc" and "carrier" to the reply; "carrier" is empty where the list
// does not know the network, neither with a network code of three digits nor of two. Returns 0; -1, with an empty
// "carrier" alone, where the SIM's IMSI cannot be had.
int modem_read_carrier(json_object *reply, const ModemModel &model);

// Slot get_operator. The name that the network reports. Returns 0 or -1.
int modem_get_operator(const ModemModel &model, std::span<char> name);

// Appends the APN entries that fit the SIM to the array: the one that its IMSI is known to need or else those of the
// loaded database, isp_object, that have its country and network code, read with three digits or, where there are none
// of those, with two. Returns 0, or -1 where there are none.
int modem_get_isp(const ModemModel &model, json_object *entries);
