// The bands that a Quectel modem leaves the factory with. Somebody who has locked the modem to the wrong ones gets it
// back with these; which they are depends on the exact variant, so on its firmware's revision.
#pragma once

#include <span>

// The variant is none that is known here, or one of the exchanges failed or did not end in "OK".
constexpr int DEFAULT_BAND_FAILED = -2;

// Asks the modem at the AT port for its revision and sends it the band command of its variant. What the modem answers
// to that goes into `reply`, which holds at least 500 bytes and becomes empty where no band command is sent or nothing
// comes back. Returns 0 or DEFAULT_BAND_FAILED.
int quectel_set_default_band(const char *port, std::span<char> reply);

// The band command (AT+QCFG="band", in the AT commands manual of each model) for a reply to ATI, by what follows its
// first "Revision:" on that line, of which 60 characters are looked at; null where there is none.
const char *read_default_band_command(const char *reply);
