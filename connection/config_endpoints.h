// The endpoints that write and read a modem's network configuration.
#pragma once

#include <cstdint>

#include <json-c/json.h>

constexpr int32_t API_DEVICE_MISSING = -5;
constexpr int32_t API_CONNECT_FAILED = -253;
constexpr int32_t API_DEVICE_UNKNOWN = -256; // neither a cdc-wdm nor a tty device
constexpr int32_t API_DEVICE_IS_AT_PORT = -265;

// "/modem/set" (post): "modem_id", "device", and optionally "bus", "service", "apn", "mtu", "operator", "pincode",
// "dianum", "username", "password", "ath", "proto" ("qcm" alone matters) and "ttl" (0 to 255; of a larger number the
// low eight bits). Writes the interface and connects. Returns 0, API_PARAMETER_MISSING (also where the bus is no plain
// one, is_plain_bus), API_NO_SUCH_MODEM or one of the codes above. Aborts before anything is written where the bus has
// 10 characters or more, or a text 1024.
int32_t set_modem_config(json_object *request, json_object *reply);

// "/modem/get" (get): what is configured for the modem on "bus", as "config". The keys "dialnum" and "authentication"
// are "dianum" and "ath" of the request. Returns 0. Aborts where the bus has 14 characters or more, and where a value
// has 1024 or more.
int32_t get_modem_config(json_object *request, json_object *reply);
