// Cells of Fibocom modems: the LTE serving cell and its neighbours (AT+GTCCINFO?), and the received strength of the
// serving cell (AT+CSQ?).
//
// Each is an object with only string members; a member is there only when its value was sent:
//   serving cell    IsServiceCell, rat, mcc, mnc, tac, cellid, earfcn, physicalcellId, band, bandwidth, rssnr_value,
//                   rxlev, rsrp, rsrq, rssi
//   neighbour cell  IsServiceCell, rat, mcc, mnc, tac, cellid, earfcn, physicalcellId, bandwidth, rxlev, rsrp, rsrq
// "rssi" is in dBm, "band" is the number of an LTE band where the modem sent a known code for one, and all others are
// as the modem sent them.
#pragma once

#include <string_view>

#include <json-c/json.h>

#include "modem/model.h"

// The cell_info slot. Appends the serving cell and then its neighbours to `cells`; nothing where the modem does not
// answer AT+GTCCINFO? with "OK", in which case AT+CSQ? is not asked. Always returns 0.
int fibocom_cell_info(const ModemModel &model, json_object *cells);

// The same from the replies to AT+GTCCINFO? and AT+CSQ?, the second one empty where there is none.
//
// The serving cell is the line below "LTE service cell:". A line that has fewer values than it should is read on beyond
// its end, so that the missing ones come from what follows it; clients have always been shown them so. The neighbours
// are the lines below "LTE neighbor cell:", up to one that begins with "OK". Each of them is read for itself.
void read_fibocom_cells(std::string_view reply, std::string_view csq, json_object *cells);

// Generation in use, "2G", "3G" or "4G", from the technology of the serving cell in a reply to AT+GTCCINFO?; null where
// there is no serving cell or its technology is another.
const char *read_fibocom_mode(std::string_view reply);
