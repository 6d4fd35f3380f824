// LTE against Wi-Fi; see wifi_interference.h.
#include "router/wifi_interference.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "modem/configured_modems.h"
#include "platform/board.h"
#include "platform/wifi.h"
#include "router/wifi_channel.h"

namespace {

struct Interference {
    bool band_7; // whether a modem is on it
    bool band_40;
    int32_t channel;
    int32_t better_channel;
};

// Whatever is not listed may stay. The channels next to the edges (2 to 5, 12, 13) are never moved, although they are
// not free of it.
constexpr Interference INTERFERENCES[] = {
    {true, true, 1, 6},
    {true, true, 11, 6},
    {false, true, 1, 11},
    {true, false, 11, 1},
};

constexpr int32_t MAY_STAY = 0;

constexpr char BOARDS_LEFT_ALONE[][8] = {"quillo", "dravik", "soltane"};

bool is_left_alone(const char *board) {
    return std::any_of(std::begin(BOARDS_LEFT_ALONE), std::end(BOARDS_LEFT_ALONE),
                       [board](const char *row) { return strcmp(row, board) == 0; });
}

} // namespace

int32_t handle_wifi_channel_fixed_interference(int32_t band1, int32_t band2, int32_t band3) {
    const int32_t channel = get_current_wifi24g_channel();
    return channel < 1 ? MAY_STAY : handle_wifi_channel_fixed_interference_two(band1, band2, band3, channel);
}

int32_t handle_wifi_channel_fixed_interference_two(int32_t band1, int32_t band2, int32_t band3, int32_t channel) {
    const auto is_present = [=](int32_t band) { return band1 == band || band2 == band || band3 == band; };
    const bool band_7 = is_present(7);
    const bool band_40 = is_present(40);
    for (const Interference &row : INTERFERENCES) {
        if (row.band_7 == band_7 && row.band_40 == band_40 && row.channel == channel) {
            return row.better_channel;
        }
    }
    return MAY_STAY;
}

void handle_wifi_channel_auto_interference() {
    if (is_left_alone(get_model_name())) {
        return;
    }
    const ConfiguredBuses buses = configured_buses();
    int32_t bands[MOST_MODEMS] = {};
    bool found = false;
    for (size_t position = 0; position < MOST_MODEMS; position++) {
        const ConfiguredModem modem = find_configured_modem(buses, position);
        bands[position] = modem.lte_band;
        found = found || modem.found();
    }
    if (found) {
        handle_wifi_channel_auto_interference_two(bands[0], bands[1], bands[2]);
    }
}

int32_t handle_wifi_channel_auto_interference_two(int32_t band1, int32_t band2, int32_t band3) {
    const int32_t channel = get_auto_wifi24g_channel();
    const int32_t better = handle_wifi_channel_fixed_interference_two(band1, band2, band3, channel);
    if (better == MAY_STAY) {
        return 0;
    }
    set_auto_wifi_channel(better);
    return wifi_restart();
}
