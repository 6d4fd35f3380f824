// "/modem/at": one AT command for the web interface.
#pragma once

#include "api/handler.h"

// Request: "at-command" (text of at most 256 characters, a longer one aborts) and "at-port" (path of a tty, used as it
// stands). Reply: "message", what the modem sent back, up to the first NUL in it. Returns 0; API_EXCHANGE_FAILED, with
// nothing added, where a key is missing or no text, or the exchange failed; API_NOT_SUPPORTED for "default_band", which
// names a procedure and is never sent to the modem.
int32_t execute_modem_at(json_object *request, json_object *reply);
