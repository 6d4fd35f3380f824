// netifd over the message bus; see interface_control.h.
#include "connection/interface_control.h"

#include <cstdlib>
#include <syslog.h>

extern "C" {
#include <libubus.h>
}

#include "platform/json.h"
#include "platform/ubus.h"

namespace {

// The connection of a reload that failed: one at most, so that a long-lived host does not collect them.
ubus_context *failed_connection = nullptr;

void forget_failed_connection() {
    const Ubus owner(failed_connection);
    failed_connection = nullptr;
}

int reload_failed(Ubus &bus, const char *message, int status) {
    syslog(LOG_DEBUG, "%s", message);
    failed_connection = bus.release();
    return status;
}

} // namespace

int ubus_network_reload(int32_t timeout_seconds) {
    forget_failed_connection();
    Ubus bus = ubus_open();
    if (bus == nullptr) {
        return -1;
    }
    uint32_t id = 0;
    int status = ubus_lookup_id(bus.get(), "network", &id);
    if (status != UBUS_STATUS_OK) {
        return reload_failed(bus, "lookup network.interface failed\n", status);
    }
    status = ubus_invoke_fd(bus.get(), id, "reload", nullptr, nullptr, nullptr, ubus_timeout_ms(timeout_seconds), -1);
    if (status != UBUS_STATUS_OK) {
        return reload_failed(bus, "meth network.interface failed\n", status);
    }
    return 0;
}

int iface_status(const char *interface_name, int32_t timeout_seconds) {
    if (!ubus_interface_name_fits(interface_name)) {
        return IFACE_DOWN;
    }
    const Ubus bus = ubus_open();
    if (bus == nullptr) {
        return IFACE_DOWN;
    }
    const Json status = ubus_interface_status(bus.get(), interface_name, timeout_seconds);
    if (status == nullptr) {
        return IFACE_DOWN;
    }
    if (vjson_get_boolean(status.get(), "pending")) {
        return IFACE_PENDING;
    }
    return vjson_get_boolean(status.get(), "up") ? IFACE_UP : IFACE_DOWN;
}
