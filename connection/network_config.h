// The modem's logical interface in the network configuration: section network.modem_<bus>, which netifd brings up.
#pragma once

#include "modem/model.h"

// How to connect, as a request or a command says it. Each is null where it is not given; an empty text is given.
// `isp_operator` is the request's "operator", which doubles as the interface's visibility to mwan3.
struct ConnectionSettings {
    const char *device = nullptr; // control device: "/dev/cdc-wdm0", "/dev/ttyUSB3"
    const char *service = nullptr;
    const char *apn = nullptr;
    const char *pincode = nullptr;
    const char *dialnumber = nullptr;
    const char *username = nullptr;
    const char *password = nullptr;
    const char *auth = nullptr;
    const char *mtu = nullptr;
    const char *isp_operator = nullptr;
};

// What the connect procedure chose for the device.
struct InterfaceProtocol {
    const char *proto;  // "3g", "ncm", "directip", "callip", "qmi", "qcm"
    const char *ifname; // Linux network device, null where there is none
};

// Writes the section of the modem's interface, commits it, and brings everything that goes with it in line: APN and
// credentials in the modem, the LED, the chosen operator, mwan3 (multiwan.h) and the TTL. The settings' `device` is not
// null. Returns 0.
int uci_add_config(const ModemModel &model, const InterfaceProtocol &protocol, const ConnectionSettings &settings);

// Deletes the section and commits. Returns 0.
int uci_del_config(const char *ifname);
