// LTE against Wi-Fi: band 40 lies just below the 2.4 GHz band and band 7 just above it, and either disturbs the Wi-Fi
// channels at its edge.
//
// Where the user chose the channel, a better one is recommended; where the radio chose it itself, it is moved.
#pragma once

#include <cstdint>

// The channel that would be better than the configured one for modems on these LTE bands (0: none there, or unknown);
// 0 where it may stay, is chosen automatically, or the 2.4 GHz Wi-Fi is off.
int32_t handle_wifi_channel_fixed_interference(int32_t band1, int32_t band2, int32_t band3);

// The same for a known channel: 1, 6, 11, or 0 where it may stay. Only the channels 1 and 11 are ever judged.
int32_t handle_wifi_channel_fixed_interference_two(int32_t band1, int32_t band2, int32_t band3, int32_t channel);

// Detects the configured modems and moves the automatically chosen channel off their bands. Does nothing on the
// boards quillo, dravik and soltane, and where there is no modem.
void handle_wifi_channel_auto_interference();

// The same for known bands: the channel is set for good, so that the radio does not drift back, and the Wi-Fi is
// restarted. The result carries no meaning.
int32_t handle_wifi_channel_auto_interference_two(int32_t band1, int32_t band2, int32_t band3);
