// What all request handlers share: their form, their status codes, and how a request names its modem.
#pragma once

#include <cstdint>

#include <json-c/json.h>

#include "modem/model.h"

// Serves one request: reads the keys of `request`, adds keys to `reply` (both belong to the caller) and returns 0 or a
// negative code. A handler that fails usually adds nothing.
using ApiHandler = int32_t (*)(json_object *request, json_object *reply);

constexpr int32_t API_OK = 0;
constexpr int32_t API_NOT_SUPPORTED = -17;      // by this model or board; or it was tried and failed
constexpr int32_t API_NO_SUCH_MODEM = -250;     // "modem_id" names no row; or there is no modem
constexpr int32_t API_PARAMETER_MISSING = -251; // "modem_id", or another required key
constexpr int32_t API_EXCHANGE_FAILED = -255;   // the AT exchange; or a required key of /modem/at is missing

// The row that the request's "modem_id" names. Returns API_OK, API_PARAMETER_MISSING (no "modem_id", or -1) or
// API_NO_SUCH_MODEM.
int32_t pick_row(json_object *request, const ModemModel **row);

// Fills `model` with the row that the request's "modem_id" names and, where the request has a "bus", with the run-time
// fields for it. Returns API_OK, API_PARAMETER_MISSING (no "modem_id", or -1) or API_NO_SUCH_MODEM. Aborts where the
// bus does not fit.
int32_t pick_modem(json_object *request, ModemModel *model);

// The same for a handler that cannot do without the bus: API_PARAMETER_MISSING also where the request has no "bus", or
// one that is no text.
int32_t pick_modem_on_bus(json_object *request, ModemModel *model);

// The bus that the request names; "1-1.2", where the first modem sits on all boards, where it names none.
const char *requested_bus(json_object *request);

// The row that "modem_id" names and the bus, for a handler that puts the bus into commands. Returns what pick_row does,
// and API_PARAMETER_MISSING also for a bus that is no plain one.
int32_t pick_row_and_bus(json_object *request, const ModemModel **row, const char **bus);

// Whether a bus may stand in a shell command and in a path: letters, digits, "._:-". What a client names may be
// anything, and goes into commands that remove files.
bool is_plain_bus(const char *bus);
