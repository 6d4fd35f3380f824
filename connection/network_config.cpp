// The section of a modem's interface; see network_config.h.
#include "connection/network_config.h"

#include <cstring>
#include <string_view>

#include "connection/multiwan.h"
#include "modem/discovery.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"

namespace {

constexpr size_t LED_DEVICE_SIZE = 32;
constexpr size_t NODE_SIZE = 64;

// Packets of this carrier's network do not get through with the usual size.
constexpr const char *VERIZON_MTU = "1428";

// The option `name` of the interface; nothing is set where there is no value.
void set_option(const char *ifname, const char *name, const char *value) {
    if (value != nullptr) {
        vuci_set_name("network", ifname, name, value);
    }
}

bool is_empty(const char *text) {
    return text == nullptr || *text == '\0';
}

bool has_verizon_sim() {
    char type[20] = {};
    getShellCommandReturn("cat /tmp/sim_type", type);
    return std::string_view(type).starts_with("verizon");
}

// The MTU to write; null for none. An empty one is none.
const char *mtu_to_write(const char *mtu) {
    if (!is_empty(mtu)) {
        return mtu;
    }
    return has_verizon_sim() ? VERIZON_MTU : nullptr;
}

// Where the device is on USB: its name may be another one after the modem has restarted, its place is not.
void set_node(const char *ifname, const char *device) {
    const char *slash = strrchr(device, '/');
    char node[NODE_SIZE] = {};
    int32_t counter = 0;
    if (modem_search_usb_node("/sys/devices/platform/", slash != nullptr ? slash + 1 : device, node, &counter) > 0) {
        set_option(ifname, "node", node);
    }
}

void write_section(const ModemModel &model, const InterfaceProtocol &protocol, const ConnectionSettings &settings) {
    const char *ifname = model.ifname;
    // There is none, if the deletion before has succeeded; what is left of an old one must not mix with this one.
    vuci_set_name("network", ifname, nullptr, nullptr);
    vuci_set_name("network", ifname, nullptr, "interface");
    set_option(ifname, "ifname", protocol.ifname);
    set_option(ifname, "service", settings.service);
    set_option(ifname, "apn", settings.apn);
    set_option(ifname, "proto", protocol.proto);
    set_option(ifname, "device", settings.device);
    set_node(ifname, settings.device);
    set_option(ifname, "pincode", settings.pincode);
    set_option(ifname, "dialnumber", settings.dialnumber);
    set_option(ifname, "username", settings.username);
    set_option(ifname, "password", settings.password);
    set_option(ifname, "auth", settings.auth);
    if (model.raw_ip != 0 && strcmp(settings.device, "/dev/cdc-wdm0") == 0) {
        set_option(ifname, "raw_ip", "1");
    }
    set_option(ifname, "mtu", mtu_to_write(settings.mtu));
    set_option(ifname, "metric", "40");
    set_option(ifname, "disabled", "0");
}

// The network device that the modem's LED shows, into `led`, which stays empty where a direct IP modem has none.
void find_led_device(const ModemModel &model, const InterfaceProtocol &protocol, const char *device,
                     std::span<char> led) {
    const std::string_view proto(protocol.proto);
    if (proto == "3g") {
        text_format(led, "3g-%s", model.ifname);
    } else if (proto == "directip") {
        text_copy(led, protocol.ifname != nullptr ? protocol.ifname : "");
    } else {
        const bool second = strstr(device, "wdm1") != nullptr && strstr(device, "wdm0") == nullptr;
        text_copy(led, second ? "wwan1" : "wwan0");
    }
}

} // namespace

int uci_add_config(const ModemModel &model, const InterfaceProtocol &protocol, const ConnectionSettings &settings) {
    char led[LED_DEVICE_SIZE] = {};
    find_led_device(model, protocol, settings.device, led);
    vuci_init();
    write_section(model, protocol, settings);
    vuci_commit("network");
    if (settings.apn != nullptr && model.ops.set_apn != nullptr) {
        model.ops.set_apn(model, settings.apn);
    }
    if (settings.auth != nullptr && model.ops.set_ath != nullptr) {
        model.ops.set_ath(model, settings.apn, settings.username, settings.password, settings.auth);
    }
    if (led[0] != '\0') {
        vuci_set("system.led_3gnet.dev", led);
    }
    vuci_commit("system");
    if (settings.isp_operator != nullptr) {
        vuci_set("velaconfig.modem.operator", settings.isp_operator);
        vuci_commit("velaconfig");
    }
    vuci_free();
    execCommand("/etc/init.d/led reload 2>&1 >/dev/null");
    set_mwan3(model.ifname, settings.isp_operator);
    // The TTL of a direct IP modem goes with no device.
    modem_set_ttl(model, strcmp(protocol.proto, "directip") == 0 ? "" : led);
    return 0;
}

int uci_del_config(const char *ifname) {
    char section[64];
    text_format(section, "network.%s", ifname);
    vuci_init();
    vuci_delete(section);
    vuci_commit("network");
    vuci_free();
    return 0;
}
