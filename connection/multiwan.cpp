// mwan3, TTL and metric of a modem's interface; see multiwan.h.
#include "connection/multiwan.h"

#include <cstring>
#include <string_view>

#include "platform/board.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"

namespace {

constexpr size_t PATH_SIZE = 64;
constexpr size_t LIST_PATH_SIZE = 100;

struct Option {
    char name[12];
    char value[5];
};

constexpr Option TRACKING_OPTIONS[] = {
    {"family", "ipv4"}, {"reliability", "2"}, {"count", "1"}, {"timeout", "2"},
    {"interval", "5"},  {"down", "3"},        {"up", "5"},
};
constexpr char TRACKED_ADDRESSES[][15] = {"8.8.4.4", "8.8.8.8", "208.67.222.222", "208.67.220.220"};
constexpr Option MEMBER_OPTIONS[] = {{"metric", "4"}, {"weight", "3"}};

struct BusMetric {
    char bus[6];
    char metric[3];
};

constexpr BusMetric HALVOR_METRICS[] = {{"1-1.2", "40"}, {"2-1.2", "60"}, {"1-1.4", "70"}};
constexpr const char *OTHER_METRIC = "40";

bool begins_visible(const char *visibility) {
    return visibility != nullptr && std::string_view(visibility).starts_with("Visible");
}

// Returns whether the section could be made: not where there is no such package, or where no section can have the name.
// The policy must get no member then, and not one more each time.
bool add_interface(UciHandle *configuration, const char *ifname, bool visible) {
    char addresses[LIST_PATH_SIZE];
    text_format(addresses, "mwan3.%s.track_ip", ifname);
    char member[LIST_PATH_SIZE];
    text_format(member, "%s_only", ifname);
    if (vuci2_set_name(configuration, "mwan3", ifname, nullptr, "interface") != 0) {
        return false;
    }
    vuci2_set_name(configuration, "mwan3", ifname, "enabled", visible ? "0" : "1");
    for (const Option &option : TRACKING_OPTIONS) {
        vuci2_set_name(configuration, "mwan3", ifname, option.name, option.value);
    }
    for (const char *address : TRACKED_ADDRESSES) {
        vuci2_add_list(configuration, addresses, address);
    }
    vuci2_set_name(configuration, "mwan3", member, nullptr, "member");
    vuci2_set_name(configuration, "mwan3", member, "interface", ifname);
    for (const Option &option : MEMBER_OPTIONS) {
        vuci2_set_name(configuration, "mwan3", member, option.name, option.value);
    }
    vuci2_add_list(configuration, "mwan3.default_poli.use_member", member);
    return true;
}

// What "enabled" of a section that is there is to become; null where it stays. A section without the option is somebody
// else's and stays as it is.
const char *changed_enabled(char enabled, const char *visibility) {
    if (enabled == '\0') {
        return nullptr;
    }
    if (enabled == '1') {
        return begins_visible(visibility) ? "0" : nullptr;
    }
    return begins_visible(visibility) ? nullptr : "1";
}

// Returns whether anything was set.
bool set_sections(UciHandle *configuration, const char *ifname, const char *visibility) {
    char type[30] = {};
    vuci2_get_name(configuration, "mwan3", ifname, nullptr, type);
    if (type[0] == '\0') {
        return add_interface(configuration, ifname, begins_visible(visibility));
    }
    char path[PATH_SIZE];
    text_format(path, "mwan3.%s.enabled", ifname);
    char enabled[30] = {};
    vuci2_get(configuration, path, enabled);
    const char *value = changed_enabled(enabled[0], visibility);
    if (value != nullptr) {
        vuci2_set(configuration, path, value);
    }
    return value != nullptr;
}

} // namespace

void set_mwan3(const char *ifname, const char *visibility) {
    UciHandle *configuration = vuci2_init();
    if (set_sections(configuration, ifname, visibility)) {
        vuci2_commit(configuration, "mwan3");
        fork_exec2("mwan3 restart");
    }
    vuci2_free(configuration);
}

int modem_set_ttl(const ModemModel &model, const char *device) {
    char section[PATH_SIZE];
    text_format(section, "velamodem.%s", model.ifname);
    UciHandle *configuration = vuci2_init();
    if (model.ttl != 0) {
        char ttl[4];
        text_format(ttl, "%d", model.ttl);
        vuci2_set_name(configuration, "velamodem", model.ifname, nullptr, "forceTTL");
        vuci2_set_name(configuration, "velamodem", model.ifname, "dev", device);
        vuci2_set_name(configuration, "velamodem", model.ifname, "ttl", ttl);
    } else {
        vuci2_delete(configuration, section);
    }
    vuci2_commit(configuration, "velamodem");
    vuci2_free(configuration);
    return 0;
}

int change_metric_value(const char *ifname, const char *bus) {
    if (strcmp(get_model_name(), "halvor") != 0) {
        return 0;
    }
    const char *metric = OTHER_METRIC;
    for (const BusMetric &row : HALVOR_METRICS) {
        if (strcmp(row.bus, bus) == 0) {
            metric = row.metric;
        }
    }
    vuci_init();
    vuci_set_name("network", ifname, "metric", metric);
    vuci_commit("network");
    vuci_free();
    return 0;
}
