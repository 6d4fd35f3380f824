// One question to a modem: find its AT port, send the command, see whether the modem said "OK".
#pragma once

#include <span>

#include "modem/model.h"

// The command of any query fits this many characters; a longer one aborts.
constexpr size_t LONGEST_QUERY = 255;

// Sends the command to the tty at `port` and collects the reply into `reply`, which is zeroed first. Returns
// send_command's result: 0 when anything came back, negative when not.
int at_send(const char *port, const char *command, std::span<char> reply);

// The same on the model's AT port, which is looked up afresh; negative also where it is not there.
int at_query(const ModemModel &model, const char *command, std::span<char> reply);

// Like at_query, with 0 only for a reply that says "OK" (see is_ok), else -1.
int at_query_ok(const ModemModel &model, const char *command, std::span<char> reply);

// Sends a command that changes a setting and has no answer but a short one (an echo and it fit 199 characters). Returns
// -1 where the modem answers anything but "OK", else 0: a modem that cannot be reached has refused nothing.
int at_set(const ModemModel &model, const char *command);
