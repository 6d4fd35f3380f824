// The router's network daemon, netifd, over the message bus: reload its configuration, ask for an interface's state.
#pragma once

#include <cstdint>

// State of a logical interface.
constexpr int IFACE_UP = 0;
constexpr int IFACE_PENDING = 1;
constexpr int IFACE_DOWN = 2;

// Asks netifd to reload its whole configuration. Returns 0; -1 where there is no bus; otherwise the ubus status of the
// step that failed, with a line in the system log. A connection that failed stays open until the next call, as scripts
// and the daemon's log know it.
int ubus_network_reload(int32_t timeout_seconds);

// State of the interface, IFACE_PENDING where it is coming up, whatever else netifd says of it. Everything that goes
// wrong is IFACE_DOWN: no bus, an unknown interface, a name of 46 characters or more, no reply within the time.
int iface_status(const char *interface_name, int32_t timeout_seconds);
