// The carrier for who knows only the bus. It runs detection, which itself reports the carrier with carrier.h; so it has
// a file of its own, above both.
#pragma once

#include <json-c/json.h>

// Adds the keys of modem_read_carrier to the reply, for the modem on `bus`. Returns its result, -1 also where there is
// no usable modem.
int modem_get_carrier(const char *bus, json_object *reply);
