// The channel of the router's 2.4 GHz Wi-Fi: what the user chose, what the radio chose, and setting it.
//
// Which radio that is depends on the board. The Wi-Fi is on as long as its default access point or the guests' one is,
// so it is off where "wireless.default_radioN.disabled" and "wireless.guest2g.disabled" are both "1". The channel is
// automatic where "wireless.radioN.channel" is "auto" or empty. A flag or channel has at most 15 characters; a longer
// one aborts. Channels are read as atoi() does: a number may have a sign and anything behind it, and other text is 0;
// what is larger than the result can say becomes the largest.
#pragma once

#include <cstdint>

constexpr int32_t AUTOMATIC_CHANNEL = 0;
constexpr int32_t NO_CHANNEL = -1;

// The configured channel; AUTOMATIC_CHANNEL where the radio chooses, NO_CHANNEL where the Wi-Fi is off.
int32_t get_current_wifi24g_channel();

// The channel that the radio has chosen, as iwinfo reports it, 0 where that reports none; NO_CHANNEL where the Wi-Fi is
// off or the radio does not choose.
int32_t get_auto_wifi24g_channel();

// Writes the channel of the radio into the configuration, in place of an automatic one. It takes effect at the next
// restart of the Wi-Fi.
void set_auto_wifi_channel(int32_t channel);
