// Cells of Sierra Wireless modems, from their status block (AT!GSTATUS?).
//
// Each is an object with only string members, "type" first and "rat" last; a member is there only where its label is.
// Values are as the modem words them ("20 MHz", "0A1B2C3D (169552957)"), at most 100 characters; where a firmware
// separates the columns with blanks, a value holds the rest of its line.
//   PSS          primary LTE carrier    state, cellid, band, bandwidth, tx-chan, rx-chan, M-rssi, D-rssi, M-rsrp,
//                                       D-rsrp, rsrq, sinr, tac, rat ("LTE")
//   SSS          secondary LTE carrier  band, bandwidth, chan, M-rssi, D-rssi, M-rsrp, D-rsrp, rat ("LTE")
//   servingcell  WCDMA cell             state, cellid, band, chan, M-rssi-c0, M-rssi-c1, D-rssi-c0, D-rssi-c1, lac,
//                                       rat ("WCDMA")
#pragma once

#include <json-c/json.h>

#include "modem/model.h"

// The cell_info slot. Appends the objects to `cells`, in the order above. The modem is asked even while it is busy (see
// sierra_busy.h). Returns 0, also with nothing appended where it does not answer "OK" within 2048 bytes; -1 where
// memory runs out.
int sierra_cell_info(const ModemModel &model, json_object *cells);

// The same from the reply.
int read_sierra_cells(const char *reply, json_object *cells);
