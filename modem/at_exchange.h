// One AT exchange: open the port, lock it, send one command line, collect the reply, close.
#pragma once

#include <span>

#include "modem/at_reply.h"
#include "modem/debug.h"

// What send_command appends to a command: a carriage return, a line feed and the terminating NUL. A command buffer that
// admits texts of up to N characters has N + COMMAND_TAIL bytes.
constexpr size_t COMMAND_TAIL = 3;

constexpr int EXCHANGE_NO_REPLY = -1; // the port could not be opened, or nothing came back
constexpr int EXCHANGE_LOCKED = -2;   // another process held the port

// Sends the AT command to the tty at `port` and collects what comes back into `reply`, a zero-filled buffer of `size`
// bytes (a size below 1 stands for 4096). `command` is changed in place: its line end is appended. Aborts where the
// line end does not fit `command`.
//
// The reply ends with the first "OK" or "ERROR" anywhere in it, with a full buffer (whose last byte becomes the NUL),
// or with the silence limit: 30 silent reads of half a second, 300 for a reboot ("AT+CFUN=1,1"), 30000 for an operator
// scan ("AT+COPS=?"). The echo of the command is left in it.
//
// Returns 0 when any bytes came, EXCHANGE_NO_REPLY or EXCHANGE_LOCKED.
int send_command(const char *port, std::span<char> command, char *reply, int size);
