// Cells of Quectel modems: the carriers in use (AT+QCAINFO), the serving cells and their neighbours (AT+QENG).
//
// Each is an object with only string members, "type" first; a member is there only when its field was sent:
//   carrier         type ("PSS" primary, "SSS" secondary), freq, band, bandwidth, state, pcid, rsrp, rsrq, rssi, sinr
//   serving cell    type ("servingcell"), state, then by technology, "rat" last; the columns are in quectel_cells.cpp
//   neighbour cell  type ("neighbourcell"); for LTE earfcn, "cellid|pcid" and rat; for WCDMA uarfcn and rat; for GSM
//   rat
#pragma once

#include <cstdint>

#include <json-c/json.h>

#include "modem/model.h"

// The cell_info slot. Appends the carriers, the serving cells and the neighbour cells to `cells`, in that order. Where
// the modem does not answer one of the questions with "OK", that group is left out. Always returns 0.
int quectel_cell_info(const ModemModel &model, json_object *cells);

// The check_cat6 slot: 1 when the modem reports a primary and a secondary carrier, else 0.
int quectel_check_cat6(const ModemModel &model);

// The same from the replies to AT+QCAINFO, AT+QENG="servingcell" and AT+QENG="neighbourcell".
void read_quectel_carriers(const char *reply, json_object *cells);
void read_quectel_serving_cells(const char *reply, json_object *cells);
void read_quectel_neighbour_cells(const char *reply, json_object *cells);
bool is_quectel_aggregated(const char *reply); // lower-case words "pss" and "sss", or "pcc" and "scc"

// Reads one serving cell's record (see QuectelLines) into `cell`. Returns 0, or -1 with nothing added where it names no
// technology, as that of a modem which is still searching.
int read_quectel_serving_cell(const char *record, json_object *cell);

// The LTE band of the first LTE serving cell in a reply to AT+QENG="servingcell"; 0 where there is none.
int32_t read_quectel_lte_band(const char *reply);
