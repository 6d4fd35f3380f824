// Whether a Fibocom modem is registered, and the generation of the network that it is registered on.
#pragma once

#include <span>
#include <string_view>

#include "modem/model.h"

// The check_register slot: 0 when registered on the home network, else -1. A modem that roams does not count as
// registered here, other than on the other makers' modems.
int fibocom_check_register(const ModemModel &model);

// Whether a reply to AT+CREG? (3GPP TS 27.007) says so: the second value, counted from the tenth character on, is "1".
// The tenth is where the values begin in a reply without an echo; the echo has no comma in it, so that with one the
// second value is the same.
bool is_fibocom_registered(std::string_view reply);

// The get_mode slot: "2G", "3G" or "4G" into `mode`, which holds at least 3 bytes. Returns 0, or -1 with `mode`
// untouched where the modem does not answer AT+GTCCINFO? with "OK", or names no serving cell of a known technology.
int fibocom_get_mode(const ModemModel &model, std::span<char> mode);
