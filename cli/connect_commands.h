// The commands that connect and disconnect.
#pragma once

#include "cli/commands.h"

// connect serial|qmi <device> <server> <apn>: with these arguments and nothing else.
int run_connect(const CommandContext &context);
// connect-auto: with the APNs that fit the SIM, one after the other.
int run_connect_auto(const CommandContext &context);
// new-connect-auto: as the network configuration says.
int run_new_connect_auto(const CommandContext &context);
// disconnect: takes the interface of the modem down.
int run_disconnect(const CommandContext &context);
