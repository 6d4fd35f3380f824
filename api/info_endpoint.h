// "/modem/info": everything about the configured modems, and how the router treats their link.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "api/handler.h"
#include "modem/configured_modems.h"

// The longest DNS server list that is looked at, its NUL included.
constexpr size_t DNS_LIST_SIZE = 256;

// Request: nothing. Reply: "passthrough" (boolean), and where it is true "gateway", "netmask", "subnet" (texts) and
// "pass_dns" (array of texts); then "hint_modify_wifi_channel" (integer: the 2.4 GHz channel that the modems' LTE bands
// would disturb less, 0 where there is nothing to recommend) and "modems" (array of the detailed reports of
// modem/detection.h).
//
// Returns API_OK; API_NO_SUCH_MODEM where no configured modem is there, with the passthrough keys alone in the reply;
// API_NOT_SUPPORTED, with nothing looked at and nothing added, on the boards quillo, ostrel3 and soltane. Aborts where
// a configured bus has 10 characters or more, a passthrough option 64, or its DNS list 256.
int32_t get_modem_info(json_object *request, json_object *reply);

// --- Without I/O ---

// Appends the DNS servers of a list with commas between them to the array, all but the first; clients know the list
// so. A server is what stands between two commas, an empty text too. Aborts where one has 256 characters or more.
void add_further_dns_servers(json_object *servers, std::string_view list);

// Whether all modems count as switched off, so that no Wi-Fi channel needs to be recommended. Of the list's positions
// the first `found` are asked, as many as there are modems, wherever in the list those are: with a single modem at the
// second position it is the flag of the first that counts. Clients know the hint so.
bool modems_are_switched_off(size_t found, const std::array<bool, MOST_MODEMS> &disabled);
