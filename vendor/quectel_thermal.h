// Thermal limits of Quectel modems: at which temperatures the modem slows itself down, as the router is configured.
#pragma once

#include "modem/model.h"

// The thermal_ctrl slot: writes what these options of velaconfig.modem say into the modem.
//   en_limt   sent as the modem's limit on data rates, "0" where it is unset
//   tigger    the temperature at which the modem begins to slow down, "95"
//   clear     the temperature at which it stops that, "90"
// Returns 0, also where the modem cannot be reached, and -1 where it refuses one of the two settings; the second is not
// sent when it has refused the first. Aborts where an option holds more than 31 characters.
int quectel_thermal_ctrl(const ModemModel &model);
