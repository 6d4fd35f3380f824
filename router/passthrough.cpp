// A modem interface's link; see passthrough.h.
#include "router/passthrough.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netdb.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <syslog.h>

#include <linux/if_link.h>
#include <linux/ppp-ioctl.h>
#include <linux/ppp_defs.h>

#include "connection/interface_control.h"
#include "platform/board.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"
#include "platform/ubus.h"
#include "platform/uci.h"

namespace {

struct FreeAddresses {
    void operator()(ifaddrs *addresses) const { freeifaddrs(addresses); }
};
using Addresses = std::unique_ptr<ifaddrs, FreeAddresses>;

// Numbers are floating ones: JSON clients take them for what they are also above 2^31.
void add_traffic(json_object *reply, uint32_t received, uint32_t sent) {
    vjson_add_double(reply, "download", received);
    vjson_add_double(reply, "upload", sent);
}

bool passthrough_is_on() {
    char enabled[32] = {};
    UciHandle *configuration = vuci2_init();
    vuci2_get(configuration, "velaconfig.passthrough.enable", enabled);
    vuci2_free(configuration);
    return strcmp(enabled, "1") == 0;
}

int add_ipv4(json_object *reply, const sockaddr *address, const char *device) {
    char text[NI_MAXHOST];
    if (getnameinfo(address, sizeof(sockaddr_in), text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) {
        return -1;
    }
    if (!passthrough_is_on()) {
        vjson_add_string(reply, "ip_addr", text);
    }
    char gateway[INET_ADDRSTRLEN] = {};
    get_gateway_by_ifname(device, gateway);
    vjson_add_string(reply, "gateway", gateway);
    return 0;
}

// What SIOCGPPPSTATS takes and gives (struct ifpppstatsreq of <linux/if_ppp.h>, which does not go with <net/if.h>).
bool read_ppp_statistics(const char *device, ppp_stats *statistics) {
    ifreq request = {};
    text_copy_cut(request.ifr_name, device);
    request.ifr_data = reinterpret_cast<char *>(statistics);
    const Descriptor handle(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return handle.valid() && ioctl(handle.get(), SIOCGPPPSTATS, &request) == 0;
}

void add_point_to_point_traffic(json_object *reply, const char *device) {
    ppp_stats statistics = {};
    if (read_ppp_statistics(device, &statistics)) {
        add_traffic(reply, statistics.p.ppp_ibytes, statistics.p.ppp_obytes);
    } else {
        get_ppp_ifstats_by_proc_net_dev(reply, device);
    }
}

// The first "ipv4-address" of netifd's report; null where it has none.
const char *first_ipv4(json_object *status) {
    json_object *addresses = vjson_get_object(status, "ipv4-address");
    if (!json_object_is_type(addresses, json_type_array) || json_object_array_length(addresses) == 0) {
        return nullptr;
    }
    return vjson_get_string(json_object_array_get_idx(addresses, 0), "address");
}

bool has_ipv4_entry(json_object *status) {
    json_object *addresses = vjson_get_object(status, "ipv4-address");
    return json_object_is_type(addresses, json_type_array) && json_object_array_length(addresses) > 0;
}

// Adds what netifd's report says and what its Linux device has; returns the state.
int read_status(json_object *reply, json_object *status) {
    if (vjson_get_boolean(status, "pending")) {
        vjson_add_string(reply, "up", "connecting");
        return IFACE_PENDING;
    }
    const bool up = vjson_get_boolean(status, "up") != 0;
    vjson_add_string(reply, "up", up ? "on" : "off");
    const char *device = vjson_get_string(status, "l3_device");
    if (device != nullptr) {
        read_iface_info(reply, device);
    }
    return up ? IFACE_UP : IFACE_DOWN;
}

// The companion interface's address; its state where it is not the main interface's.
int read_companion_address(json_object *reply, const char *interface_name, int32_t timeout_seconds, int state) {
    const Ubus bus = ubus_open();
    if (bus == nullptr) {
        return state;
    }
    char companion[64];
    text_format(companion, "%s_4", interface_name);
    const Json status = ubus_interface_status(bus.get(), companion, timeout_seconds);
    if (status == nullptr) {
        return IFACE_DOWN;
    }
    vjson_add_string(reply, "ip_addr", first_ipv4(status.get()));
    return state;
}

} // namespace

int ubus_read_ifstatus(json_object *reply, const char *interface_name, int32_t timeout_seconds) {
    if (!ubus_interface_name_fits(interface_name)) {
        return IFACE_DOWN;
    }
    const Ubus bus = ubus_open();
    if (bus == nullptr) {
        return IFACE_DOWN;
    }
    const Json status = ubus_interface_status(bus.get(), interface_name, timeout_seconds);
    return status != nullptr ? read_status(reply, status.get()) : IFACE_DOWN;
}

int passthrough_ubus_read_ifstatus(json_object *reply, const char *interface_name, int32_t timeout_seconds) {
    if (!ubus_interface_name_fits(interface_name)) {
        return IFACE_DOWN;
    }
    Ubus bus = ubus_open();
    if (bus == nullptr) {
        return IFACE_DOWN;
    }
    Json status = ubus_interface_status(bus.get(), interface_name, timeout_seconds);
    if (status == nullptr) {
        return IFACE_DOWN;
    }
    const int state = read_status(reply, status.get());
    if (state == IFACE_PENDING) {
        return state;
    }
    if (has_ipv4_entry(status.get())) {
        vjson_add_string(reply, "ip_addr", first_ipv4(status.get()));
        return state;
    }
    status.reset();
    bus.reset();
    return read_companion_address(reply, interface_name, timeout_seconds, state);
}

int read_iface_info(json_object *reply, const char *device) {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) {
        return -1;
    }
    const Addresses addresses(list);
    bool point_to_point = false;
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (strcmp(entry->ifa_name, device) != 0 || entry->ifa_addr == nullptr) {
            continue;
        }
        point_to_point = point_to_point || (entry->ifa_flags & IFF_POINTOPOINT) != 0;
        const int family = entry->ifa_addr->sa_family;
        if (family == AF_PACKET && entry->ifa_data != nullptr) {
            const auto *statistics = static_cast<const rtnl_link_stats *>(entry->ifa_data);
            add_traffic(reply, statistics->rx_bytes, statistics->tx_bytes);
        } else if (family == AF_INET && add_ipv4(reply, entry->ifa_addr, device) != 0) {
            return -1;
        }
    }
    if (point_to_point) {
        add_point_to_point_traffic(reply, device);
    }
    return 0;
}

void get_ppp_ifstats_by_proc_net_dev(json_object *reply, const char *device) {
    constexpr size_t LINE_SIZE = 1024;
    constexpr int HEADER_READ = 4;
    const File file(fopen("/proc/net/dev", "re"));
    if (file == nullptr) {
        syslog(LOG_ERR, "Function:%s Line:%d can't open 'proc/net/dev': No such file or directory\n", __func__, 141);
        return;
    }
    const Allocated<char> line(static_cast<char *>(malloc(LINE_SIZE)));
    if (line == nullptr) {
        syslog(LOG_ERR, "Function:%s Line:%d malloc failed\n", __func__, 147);
        return;
    }
    // Two reads of three characters each. They leave most of the two header lines to the loop, which passes over them
    // as lines without a colon.
    if (fgets(line.get(), HEADER_READ, file.get()) == nullptr ||
        fgets(line.get(), HEADER_READ, file.get()) == nullptr) {
        return;
    }
    while (fgets(line.get(), LINE_SIZE, file.get()) != nullptr) {
        char name[32] = {};
        char received[32] = {};
        char sent[32] = {};
        const int fields =
            sscanf(line.get(), " %31[^:]: %31s %*s %*s %*s %*s %*s %*s %*s %31s .*", name, received, sent);
        if (fields == 3 && strcmp(name, device) == 0) {
            vjson_add_string(reply, "download", received);
            vjson_add_string(reply, "upload", sent);
            return;
        }
    }
}
