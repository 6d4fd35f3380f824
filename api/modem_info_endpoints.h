// "/modem/modem_info/get" and "/modem/cells/get": one modem in detail, and the cells around it.
#pragma once

#include "api/handler.h"

// Request: "bus" (text, at most 9 characters, a longer one aborts) and "modem_id". What the modem does not answer is
// reported as empty; whether it is on the bus, and is that model, is not looked at.
//
// Reply: "modem_info", see report_modem_info. Returns API_OK; with nothing added API_PARAMETER_MISSING,
// API_NO_SUCH_MODEM, or API_NOT_SUPPORTED for a model that has no signal operation.
int32_t modem_get_modem_info(json_object *request, json_object *reply);

// Reply: "cells", an array of objects, serving cell and neighbours, as the model's own reader has them. Returns the
// same, API_NOT_SUPPORTED for a model that has no cell operation.
int32_t modem_get_cells(json_object *request, json_object *reply);

// The part of modem_get_modem_info for a model that is bound to its bus. Adds "modem_info", an object with those of the
// following keys that the model has an operation for: "iccid", "imsi", "sim_status" ("READY", "NEED PIN", "NEED PUK",
// "ERROR"), "current_mode" ("AUTO", "GSM only" ...), all texts, "band" (an object with the keys of modem_get_band), and
// "signal", the level 1 to 4 as a text of one character with that code ("\u0004"), empty for level 0. Returns API_OK,
// or API_NOT_SUPPORTED with nothing added.
int32_t report_modem_info(const ModemModel &model, json_object *reply);

// The part of modem_get_cells for a model that is bound to its bus.
int32_t report_cells(const ModemModel &model, json_object *reply);
