// The endpoints that start a connection, and that enable or disable a modem's interface.
#pragma once

#include <cstdint>

#include <json-c/json.h>

// "/modem/auto" (post): "modem_id" and optionally "bus". Starts "vela_modem -B <bus> connect-auto" in the background
// and returns at once: 0, or API_PARAMETER_MISSING where there is no "modem_id" (or -1) or the bus is no plain one
// (is_plain_bus). Aborts before anything is done where the command has more than 99 characters.
int32_t modem_auto_connect(json_object *request, json_object *reply);

// "/modem/enable" (post): optionally "disable" and "bus". Takes the interface down and leaves it off, or lets it
// come up; connection attempts that are going on end. Returns 0, or API_PARAMETER_MISSING, with nothing done, where
// the bus is empty or no plain one: its interface is taken out of the firewall's zone by its name. Aborts before
// anything is done where the bus has 10 characters or more.
int32_t enable_modem(json_object *request, json_object *reply);
