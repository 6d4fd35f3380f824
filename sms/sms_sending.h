// The endpoints of a user who writes messages: send one, and keep the country that numbers are written for.
#pragma once

#include <cstdint>

#include "api/handler.h"

constexpr int32_t API_NUMBER_MISSING = -260; // no "number"
constexpr int32_t API_TEXT_MISSING = -261;   // no "message"

// "/modem/sms/send": "modem_id", "number", "message" and, if other than "international", "type". Hands the message to the
// router's sendsms script; the three texts go into single quotes of its command as they are. Returns, what comes first:
// -251 (no "modem_id"), -260, -261, -250 (no such modem), 0, whatever the script says. Aborts, with nothing sent, where
// the command is longer than 299 bytes.
int32_t send_modem_sms(json_object *request, json_object *reply);

// "/modem/sms/code": "action", "get" if there is none, or "set"; any other does nothing. "set" stores "country" and
// "country_code" (at most 59 and 19 bytes, longer ones abort with nothing written; one that is missing is cleared), "get"
// replies with both, empty where unset. Returns 0.
int32_t modem_sms_code(json_object *request, json_object *reply);
