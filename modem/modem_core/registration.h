// SIM and registration: whether the modem can be used, in the generic dialect and for any model.
#pragma once

#include <span>

#include "modem/model.h"

// Registration state 0 to 9 (3GPP TS 27.007, <stat> of +CREG: 1 at home, 5 roaming) of the modem at
// /dev/ttyUSB<tty_number>; -1 where the exchange fails or the reply has none.
int modem_get_register_status(int tty_number);

// The pure half of it, for a reply that says "OK": the first digit that follows a comma in the line after the first
// line break; -1 where there is none.
int read_register_status(const char *reply);

// Whether a reply to AT+CREG? or AT+CEREG? says so: a line whose last field is 1 (home) or 5 (roaming). With cell
// identities behind the state (AT+CREG=2) the last field is the access technology, and that is what is compared.
bool is_registered(const char *reply);

// 0 when the modem is registered, -1 when not. A modem that cannot be asked counts as registered, so that a busy port
// never raises an alarm.
int modem_check_register(const ModemModel &model);

// State of the SIM: 0 "READY", -1 "ERROR", -2 "NEED PIN", -4 "NEED PUK", with that word in `text`. 0 with nothing
// written where the modem cannot be asked or says none of these. `text` holds at least 9 bytes.
int modem_check_simcard(const ModemModel &model, std::span<char> text);

// The pure half of it.
int read_sim_state(const char *reply, std::span<char> text);

// What keeps the modem from being used, by its model's own operations: 0 nothing, -1 "NO_SIM", -2 "PIN_SIM",
// -3 "NO_REG", -4 "PUK_SIM", with that word in `text`, which holds at least 8 bytes.
int fault_analysis(const ModemModel &model, std::span<char> text);
