// Whether a Sierra Wireless modem can be used: registration, SIM, and whether it is on aggregated LTE carriers.
//
// The checks lean toward a usable modem: one that is busy (see sierra_busy.h) or cannot be asked counts as registered
// and its SIM as ready, so that a busy port never raises an alarm.
#pragma once

#include <span>

#include "modem/model.h"

// The check_register slot, by AT+CREG?: 0 when registered or not checkable, -1 when not registered.
int sierra_check_register(const ModemModel &model);

// The check_simcard slot, by AT+CPIN?: 0 ready or not checkable, -1 the modem says "ERROR", -2 it wants the PIN. A SIM
// that wants its PUK counts as ready. The text stays untouched.
int sierra_check_simcard(const ModemModel &model, std::span<char> text);

// 1 when carriers are aggregated (AT!GSTATUS?), else 0, also where the modem cannot be asked. It is asked even while it
// is busy.
int sierra_check_cat6(const ModemModel &model);

// The same from the replies; for the second, one that says "OK".
int read_sierra_sim_state(const char *reply); // "ERROR" anywhere, before a line that ends in "PIN"
bool is_sierra_aggregated(const char *reply); // "LTE CA state:" with a value that does not contain "NOT ASSIGNED"
