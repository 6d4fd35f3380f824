// Signal of Quectel modems: the measurements of each radio technology, and the level of bars that they are worth.
//
// Most models answer AT+QCSQ with one line for each technology in use. The EP06 is asked for its serving cells instead,
// whose lines carry more than its AT+QCSQ does.
//
// A signal object has only string members, "type" first:
//   LTE              type, rssi, rsrp, sinr, rsrq            (EP06: type, rsrp, rsrq, rssi, sinr)
//   WCDMA, TDSCDMA   type, rssi, rscp, ecio                  (EP06, WCDMA only: type, rscp, ecio)
//   GSM              type, rssi
//   CDMA             type, rssi, ecio
//   EVDO             type, rssi, ecio, sinr
//   CDMA-EVDO        type, rssi0, ecio0, rssi1, ecio1, sinr
#pragma once

#include <cstdint>

#include <json-c/json.h>

#include "modem/model.h"

// The signal_info slots. Appends a signal object for each line of a known technology to `signals`, writes the level of
// the best technology (of several lines of it, the first's) into `level`, and returns that technology's rank: 4 LTE,
// 3 WCDMA, TDSCDMA, EVDO and CDMA-EVDO, 2 GSM and CDMA; -1 with `level` untouched where the modem does not answer "OK"
// or no line is known. A level is 1 to 4, on an EP06 on 3G 0 to 3 (see quectel_signal_level).
int quectel_signal_info(const ModemModel &model, json_object *signals, int32_t *level);
int ep06_signal_info(const ModemModel &model, json_object *signals, int32_t *level);

// The same from a reply to AT+QCSQ, and from one to AT+QENG="servingcell".
int read_quectel_signals(const char *reply, json_object *signals, int32_t *level);
int read_ep06_signals(const char *reply, json_object *signals, int32_t *level);

// Level and rank of one signal object; rank 0 with `level` untouched where it has no known "type". A type that is only
// the beginning of a known name counts as that name, the first one in the order of the technology table; an empty one
// is LTE. A missing measurement counts as 0, so for most as excellent.
//
// For WCDMA and TDSCDMA with `ep06`, `level` goes in as well: the new level is half of (old level + grade of "ecio" +
// grade of "rscp"). The caller starts a reply with -1.
int quectel_signal_level(json_object *signal, int32_t *level, bool ep06);
