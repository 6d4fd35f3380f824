// The endpoints that upgrade a modem's firmware. The upgrade itself is the work of a script of the system,
// /usr/bin/modem_upgrade_check; these see to it that it starts only where it may, and tell how far it is.
#pragma once

#include <cstdint>

#include <json-c/json.h>

// "/modem/upgrade" (post): "modem_url", "target_version", "current_version", "firmware_upload", "hash_type" and
// "hash_value". Returns 0 when the script has been started, or -1 to -5 with the reason as "msg".
int32_t modem_upgrade(json_object *request, json_object *reply);

// "/modem/upgrade_status" (post): "version", the running firmware's of an EP06, and "status", the script's progress
// code (0 where it has none). Returns 0, or -1 with the reason as "msg".
int32_t modem_upgrade_status(json_object *request, json_object *reply);
