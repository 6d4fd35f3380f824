// Whether a Quectel modem is registered, on the circuit-switched or on the EPS network.
#pragma once

#include "modem/model.h"

// The check_register slot: 0 when registered at home or roaming, else -1.
int quectel_check_register(const ModemModel &model);
