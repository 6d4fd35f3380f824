// The request of a call: JSON text on its way to a handler.
#pragma once

#include "platform/owners.h"

// The whole text as one JSON object; null, with the reason told on standard error, where it is none.
Json parse_request(const char *text);
