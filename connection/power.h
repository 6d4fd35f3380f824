// Restarting a modem that stopped answering: by its supply, which a board-specific control file switches, or by the
// reset command of its dialect.
#pragma once

#include <cstdint>

// Switches the supply of the modem on the bus off and on again by the board's control file; takes a second. Does
// nothing on a board without a control file. Returns 0.
int modem_hw_power(const char *bus);

// The AT command that resets a model; null where it has none. For a reset by request and for a switch of SIMs they
// differ: in the second case models 6 and those without a command are switched by their supply.
const char *reset_command(int32_t modem_id);
const char *sim_switch_command(int32_t modem_id);

// Sends a reset command to the AT port at USB interface `port_number` of the modem on the bus. Whether the modem
// took it goes to the system log only: a modem that hangs may reset without an answer.
void modem_at_reset(const char *bus, int port_number, const char *command);
