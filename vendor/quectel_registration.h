// Whether a Quectel modem is registered, on the circuit-switched or on the EPS network.
#pragma once

#include "modem/model.h"

// The check_register slot: 0 when registered at home or roaming, else -1.
int quectel_check_register(const ModemModel &model);

// Whether a reply to AT+CREG? or AT+CEREG? says so: a line whose last field is 1 (home) or 5 (roaming). With cell
// identities behind the state (AT+CREG=2) the last field is the access technology, and that is what is compared.
bool is_quectel_registered(const char *reply);
