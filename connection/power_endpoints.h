// The endpoints that restart a modem and switch its SIM. Both take more than 20 seconds, most of it the modem's
// restart. Both abort before they do anything where the bus has more than 15 characters, which no USB path has, and
// count one that is no plain one (is_plain_bus) as missing.
#pragma once

#include <cstdint>

#include <json-c/json.h>

constexpr int32_t API_SIM_PARAMETER_MISSING = -22; // "bus" or "sim_num"

// "/modem/reset" (post): "modem_id", and optionally "bus" and "disable". Takes the interface down, restarts the
// modem (by its supply; with "disable" by its reset command), waits for it and brings everything back. Returns 0,
// API_PARAMETER_MISSING, or API_NO_SUCH_MODEM, also where the modem does not come back.
int32_t reset_modem(json_object *request, json_object *reply);

// "/modem/sim/switch" (post): "bus", "sim_num" ("2", anything else is the first) and "modem_id". Selects the SIM
// slot and restarts the modem. Returns 0, API_SIM_PARAMETER_MISSING, API_PARAMETER_MISSING or API_NO_SUCH_MODEM.
int32_t modem_sim_switch(json_object *request, json_object *reply);
