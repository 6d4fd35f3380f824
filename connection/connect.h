// Connecting a modem: writing its interface with the protocol that fits it, and waiting for netifd to bring it up.
//
// There is a procedure for each control path. Each returns 0 for success and -1 for failure. Where the settings name a
// device, a link that is slow to come up counts as success: who named the device asks again by himself. Where they name
// none, the device is looked for and the link waited for, 15 seconds at most.
#pragma once

#include <json-c/json.h>

#include "connection/network_config.h"
#include "modem/model.h"

// Over a tty or an Ethernet device of the modem ("3g", "ncm", "directip" or "callip", by the model's proto_flags).
int modem_connect_serial(const ModemModel &model, const ConnectionSettings &settings);
// Over the QMI device, "/dev/cdc-wdm0".
int modem_connect_qmi(const ModemModel &model, const ConnectionSettings &settings);
// The same with the protocol "qcm".
int modem_connect_qcm(const ModemModel &model, const ConnectionSettings &settings);

// Tries the entries of an APN list (vendor/apn_database.h), each over QMI, where the model has that, and then over the
// tty, until one connects. Entries for other uses than the Internet are passed over. A null list makes one try over the
// tty without an APN. What the settings hold beside device, service, APN and credentials is used for each try.
int modem_connect_auto(const ModemModel &model, json_object *entries, const ConnectionSettings &settings);

// Takes the interface of the current modem (set_current_modem) down. Returns 0; -1 where there is none, or its link
// does not go down in time.
int modem_iface_disconnect();

// Deletes the count of failed attempts that the connection scripts keep for the modem on the bus.
void forget_failures(const char *bus);
