// What the router says of itself: its board name and its gateways.
#pragma once

#include <span>

// The board's name in lower case, such as "halvor": static storage, never null, empty where the system publishes none.
//
// OpenWrt publishes the board as "vendor,board" in /tmp/sysinfo/board_name; the name is what follows the last comma.
// Where that file is missing or empty, it is the last word of the device tree's model (/proc/device-tree/model,
// "Vendor Board"). A name, once read, is kept for the life of the process.
const char *get_model_name();

// Writes the IPv4 default gateway of the network interface as dotted quad; an empty text where it has none. Of several,
// the one with the lowest metric. `out` holds 16 bytes.
void get_gateway_by_ifname(const char *ifname, std::span<char> out);
