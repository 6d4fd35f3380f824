// Signal of Fibocom modems: the measurements as the modem counts them (AT+CESQ, AT+CSQ?, both of 3GPP TS 27.007), and
// the level of bars that they are worth.
//
// The signal object has only string members: rxlev, ber, rscp, ecno, rsrq, rsrp, which are the indexes of +CESQ and no
// dBm, and rssi, which is in dBm.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <json-c/json.h>

#include "modem/model.h"
#include "vendor/fibocom_fields.h"

// The signal_info slot. Appends one signal object to `signals`, in any case, and writes a level of 1 to 4 into `level`.
// Where the modem does not answer a question with "OK", what it would have told is left out and counts as 0. Always
// returns 0, as the generation is not told.
int fibocom_signal_info(const ModemModel &model, json_object *signals, int32_t *level);

// The same from the replies to AT+CESQ and AT+CSQ?, either of them empty where there is none; adds to `signal`.
//
// A member of +CESQ is there only when its value was sent; "rssi" is there, perhaps empty, where there is a +CSQ line.
// The level is the mean of the grades of rsrp, rsrq and the value of +CSQ, whatever the network, although the first two
// are quantities of LTE. The numbers 99 and 255, which stand for "not known", have the best grade as well.
void read_fibocom_signal(std::string_view cesq, std::string_view csq, json_object *signal, int32_t *level);

// The values of the +CSQ line, and the member "rssi" that is made of the first: 2 * value - 113, in dBm.
void fibocom_rssi_of_csq(std::span<char> value);
inline constexpr FibocomList FIBOCOM_CSQ = {"+CSQ:", 6};
inline constexpr FibocomColumn FIBOCOM_RSSI_COLUMNS[] = {{0, "rssi", fibocom_rssi_of_csq}};
