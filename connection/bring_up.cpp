// Bringing a data interface up and taking it down; see bring_up.h.
#include "connection/bring_up.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "connection/interface_control.h"
#include "platform/board.h"
#include "platform/clock.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace {

constexpr int32_t BUS_TIMEOUT_S = 100;
constexpr int64_t CONNECT_PAUSE_MS = 1000;
constexpr int64_t DISCONNECT_PAUSE_MS = 100;

constexpr size_t COMMAND_SIZE = 100;
constexpr size_t ZONE_COMMAND_SIZE = 1024;
constexpr char BLANKS[] = " \t";

bool is_board(const char *name) {
    return strcmp(get_model_name(), name) == 0;
}

void commit(const char *package) {
    char command[COMMAND_SIZE];
    // On ketrin a change goes to the flash at once.
    text_format(command, "uci commit %s%s", package, is_board("ketrin") ? ";sync" : "");
    execCommand(command);
}

// The interfaces of the firewall's second zone, separated by blanks: the first line of what a command prints, however
// long it is, without the blanks at its end.
class Zone {
public:
    explicit Zone(const char *command) : output_(getShellCommandReturnDynamic(command, &known_)) {
        std::string_view line(output_ != nullptr ? output_.get() : "");
        line = text_before(line, line.find('\n'));
        length_ = line.find_last_not_of(BLANKS) + 1; // npos + 1 is 0
    }

    const char *text() const { return length_ > 0 ? output_.get() : ""; }
    int length() const { return static_cast<int>(length_); }

    // Whether the list can be written again: it has been read, or the new one would lack all others, and stands for itself
    // between double quotes. A list with what a shell would expand there names no interfaces, and is not run.
    bool is_writable() const {
        return known_ && std::string_view(text(), length_).find_first_of("\"$`\\") == std::string_view::npos;
    }

    // Whether the interface is one of them. A longer name that contains it is another interface.
    bool has(std::string_view ifname) const {
        std::string_view rest(text(), length_);
        while (!rest.empty()) {
            rest = text_from(rest, rest.find_first_not_of(BLANKS));
            const std::string_view word = text_before(rest, rest.find_first_of(BLANKS));
            if (word == ifname) {
                return true;
            }
            rest = text_from(rest, word.size());
        }
        return false;
    }

private:
    bool known_ = false; // before output_, whose making sets it
    Allocated<char> output_;
    size_t length_;
};

void set_zone(const char *command) {
    execCommand(command);
    commit("firewall");
    execCommand("/etc/init.d/firewall reload");
}

void enter_zone(const char *ifname) {
    const Zone zone("uci get firewall.@zone[1].network");
    if (zone.has(ifname)) {
        execCommand("vela-firewall");
        return;
    }
    if (!zone.is_writable()) {
        return;
    }
    char command[ZONE_COMMAND_SIZE];
    text_format(command, "uci set firewall.@zone[1].network=\"%.*s %s\"", zone.length(), zone.text(), ifname);
    set_zone(command);
}

void leave_zone(const char *list_without_interface) {
    const Zone zone(list_without_interface);
    if (!zone.is_writable()) {
        return;
    }
    char command[ZONE_COMMAND_SIZE];
    text_format(command, "uci set firewall.@zone[1].network=\"%.*s\"", zone.length(), zone.text());
    set_zone(command);
}

// Whether the interface gets into the state while it is asked for that often, each time after a pause.
bool reaches(int state, const char *ifname, int wait_count, int64_t pause_ms) {
    for (int count = 0; count < wait_count; count++) {
        sleep_whole(pause_ms);
        if (iface_status(ifname, BUS_TIMEOUT_S) == state) {
            return true;
        }
    }
    return false;
}

} // namespace

int modem_serial_connect(int wait_count, const char *ifname) {
    char up[COMMAND_SIZE];
    text_format(up, "ubus call network.interface.%s up", ifname);
    ubus_network_reload(BUS_TIMEOUT_S);
    execCommand(up);
    enter_zone(ifname);
    return reaches(IFACE_UP, ifname, wait_count, CONNECT_PAUSE_MS) ? IFACE_UP : iface_status(ifname, BUS_TIMEOUT_S);
}

int modem_disconnect(int wait_count, const char *ifname) {
    char disable[COMMAND_SIZE];
    text_format(disable, "uci set network.%s.disabled=\"1\"", ifname);
    char list_without_interface[COMMAND_SIZE];
    text_format(list_without_interface, "uci get firewall.@zone[1].network | sed -e \"s/%s//g\"", ifname);
    if (is_board("halvor")) {
        execCommand("/etc/init.d/shortcut-fe stop");
    }
    execCommand(disable);
    commit("network");
    ubus_network_reload(BUS_TIMEOUT_S);
    if (!reaches(IFACE_DOWN, ifname, wait_count, DISCONNECT_PAUSE_MS)) {
        return iface_status(ifname, BUS_TIMEOUT_S);
    }
    leave_zone(list_without_interface);
    return IFACE_DOWN;
}
