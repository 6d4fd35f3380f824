// "/modem/at": one AT command for the web interface.
#pragma once

#include "api/handler.h"

// Request: "at-command" (text of at most 256 characters, a longer one aborts) and "at-port" (path of a tty, used as it
// stands). Reply: "message", what the modem sent back, up to the first NUL in it. Returns 0; API_EXCHANGE_FAILED, with
// nothing added, where a key is missing or no text, or the exchange failed.
//
// The command "default_band" is never sent to the modem: it names the procedure that gives a Quectel modem back its
// factory bands. "message" is then what the modem answered to the band command, empty where it came to none; returns 0,
// or API_NOT_SUPPORTED where the modem is no such variant or the procedure failed.
int32_t execute_modem_at(json_object *request, json_object *reply);
