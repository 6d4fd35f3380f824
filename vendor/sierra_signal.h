// Signal level of Sierra Wireless modems, from the measurements in their status block (AT!GSTATUS?).
//
// On LTE it is the mean of the grades of RSSI, RSRP, RSRQ and SINR, on WCDMA the grade of RSSI.
#pragma once

#include <cstdint>

#include "modem/model.h"

// The get_rssi slot. Writes the level, 1 to 4, and returns the generation: 4 LTE, 3 WCDMA. Otherwise the level is
// untouched: -1 while the modem is busy (see sierra_busy.h), where a measurement is missing or there is neither
// technology; 0 where the modem does not answer "OK" within 1024 bytes.
int sierra_get_signal(const ModemModel &model, int32_t *level);

// The same from the reply: 4, 3 or -1. A reply that names both technologies is LTE.
int read_sierra_signal(const char *reply, int32_t *level);
