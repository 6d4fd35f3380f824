// A modem interface's link as clients see it: state, address, gateway, traffic; with and without IP passthrough.
//
// The readers add to `reply`, in this order as far as known: "up" ("on", "off" or "connecting"), "download" and
// "upload" (bytes), "ip_addr" (IPv4) and "gateway". With passthrough on ("velaconfig.passthrough.enable" is "1") the
// address belongs to the device behind the router, is what netifd knows and not what the Linux device has, and comes
// last.
#pragma once

#include <cstdint>

#include <json-c/json.h>

// State of the link of a logical interface: the IFACE_ values of connection/interface_control.h. An interface that is
// coming up is reported with "up" alone. Everything that goes wrong is IFACE_DOWN; where netifd does not answer,
// nothing is added.
int ubus_read_ifstatus(json_object *reply, const char *interface_name, int32_t timeout_seconds);

// The same for passthrough: "ip_addr" is the first "ipv4-address" that netifd reports for the interface, or else for
// its companion "<name>_4".
int passthrough_ubus_read_ifstatus(json_object *reply, const char *interface_name, int32_t timeout_seconds);

// Adds address, gateway and traffic of a Linux network device. The counters are the link's 32-bit ones, as numbers; of
// a point-to-point device the PPP driver's, or, where that does not answer, those of /proc/net/dev as texts. Returns 0,
// or -1 where the addresses cannot be listed or one cannot be printed.
int read_iface_info(json_object *reply, const char *device);

// The device's received and sent bytes in /proc/net/dev, as texts under "download" and "upload". Nothing is added where
// the device is not listed.
void get_ppp_ifstats_by_proc_net_dev(json_object *reply, const char *device);
