// Signal level and generation, from whichever source a modem has for them.
//
// The level is 1 (weakest) to 4 (strongest), 0 for no usable measurement. The generation is 2 (GSM, TDMA, CDMA),
// 3 (WCDMA, HDR) or 4 (LTE); 1 stands for "unknown, ask the modem's mode operation".
//
// The signal file of a modem, /tmp/modem.<bus>/signal, is one JSON object written by the connection scripts of the QMI
// protocol: "type" ("lte", "wcdma", "hdr", "cdma", "gsm" or "tdma") and the integers "rssi" (dBm), "rsrp" (dBm), "rsrq"
// (dB), "snr" (tenths of a dB), "ecio" (dB) and "signal" (dBm). A "type" stands for the first technology, in that
// order, that begins with it, so an empty one counts as "lte"; clients rely on it.
#pragma once

#include <cstdint>
#include <span>

#include <json-c/json.h>

#include "modem/model.h"

// Level and generation of a parsed signal file. Returns the generation; -1, with the level untouched, where "type" is
// missing, no text, or no technology.
int read_qmi_signal(json_object *report, int32_t *level);

// Adds the measurements of a parsed signal file to `out`, as decimal texts under the keys that fit its technology.
// Nothing is added where "type" is missing, no text, or no technology.
void read_qmi_measurements(json_object *report, json_object *out);

// The value of the +CSQ line (3GPP TS 27.007) of a reply: 0 to 31, 99, or whatever the modem sent, 0 where there are no
// digits; -1 where there is no line or the number has more than 8 digits.
int32_t read_csq(const char *reply);

// Level and generation from the signal file of the modem on the bus. Returns the generation or -1.
int get_qmi_signal(const char *bus, int32_t *level);

// The same, with one object of measurements appended to `signals` first; it stays empty where the file cannot be used.
int conver_signal_file(const char *bus, json_object *signals, int32_t *level);

// Asks the modem (AT+CSQ). Returns 1 and the level, or -1.
int modem_get_rssi(const ModemModel &model, int32_t *level);

// Generation text ("2G", "3G", "4G", "4G+" on aggregated carriers) and level for the status block, from the model's
// signal information, its signal file or its signal slot, in this order. `mode` is zeroed and holds at least 8 bytes;
// where only the level is known, the model's mode operation fills it. The measurements go into `reply` as
// "signal_info". Returns 0, or -1 where nothing usable was measured.
int get_modem_signal(const ModemModel &model, std::span<char> mode, int32_t *level, json_object *reply);
