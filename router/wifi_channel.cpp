// The channel of the 2.4 GHz Wi-Fi; see wifi_channel.h.
#include "router/wifi_channel.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "platform/board.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"

namespace {

constexpr size_t VALUE_SIZE = 16;

struct Radio {
    char board[7]; // empty: every other
    char channel_option[24];
    char disabled_option[33]; // of the default access point
    char device[6];           // network device of that access point,
    char guest_device[6];     // and the one to look at where it is disabled
};

// One row a line.
// clang-format off
constexpr Radio RADIOS[] = {
    {"tamber", "wireless.radio0.channel", "wireless.default_radio0.disabled", "wlan0", "wlan1"},
    {"pellin", "wireless.radio0.channel", "wireless.default_radio0.disabled", "wlan0", "wlan1"},
    {"", "wireless.radio1.channel", "wireless.default_radio1.disabled", "wlan1", "wlan3"},
};
// clang-format on

const Radio &radio_of_this_board() {
    const char *board = get_model_name();
    return *std::find_if(std::begin(RADIOS), std::end(RADIOS) - 1,
                         [board](const Radio &row) { return strcmp(row.board, board) == 0; });
}

// What the configuration says of the Wi-Fi.
struct Wifi {
    const Radio &radio;
    bool off;
    bool guests_only;
    char channel[VALUE_SIZE]; // empty where it is off

    bool is_automatic() const { return channel[0] == '\0' || strcmp(channel, "auto") == 0; }
};

bool is_disabled(UciHandle *configuration, const char *option) {
    char value[VALUE_SIZE] = {};
    vuci2_get(configuration, option, value);
    return strcmp(value, "1") == 0;
}

Wifi read_wifi() {
    Wifi wifi = {.radio = radio_of_this_board(), .off = false, .guests_only = false, .channel = {}};
    UciHandle *configuration = vuci2_init();
    if (is_disabled(configuration, wifi.radio.disabled_option)) {
        wifi.off = is_disabled(configuration, "wireless.guest2g.disabled");
        wifi.guests_only = !wifi.off;
    }
    if (!wifi.off) {
        vuci2_get(configuration, wifi.radio.channel_option, wifi.channel);
    }
    vuci2_free(configuration);
    return wifi;
}

} // namespace

int32_t get_current_wifi24g_channel() {
    const Wifi wifi = read_wifi();
    if (wifi.off) {
        return NO_CHANNEL;
    }
    return wifi.is_automatic() ? AUTOMATIC_CHANNEL : text_to_int(wifi.channel);
}

int32_t get_auto_wifi24g_channel() {
    const Wifi wifi = read_wifi();
    if (wifi.off || !wifi.is_automatic()) {
        return NO_CHANNEL;
    }
    char command[80];
    char channel[VALUE_SIZE] = {};
    text_format(command, "iwinfo %s info 2>/dev/null | grep Channel | awk '{print $4}'",
                wifi.guests_only ? wifi.radio.guest_device : wifi.radio.device);
    getShellCommandReturnLine(command, channel);
    return text_to_int(channel);
}

void set_auto_wifi_channel(int32_t channel) {
    char value[12];
    text_format(value, "%d", channel);
    UciHandle *configuration = vuci2_init();
    vuci2_set(configuration, radio_of_this_board().channel_option, value);
    vuci2_commit(configuration, "wireless");
    vuci2_free(configuration);
}
