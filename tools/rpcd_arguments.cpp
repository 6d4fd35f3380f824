// The arguments of the endpoints; see rpcd_arguments.h.
#include "tools/rpcd_arguments.h"

namespace {

using enum ArgumentType;

constexpr EndpointArgument ARGUMENTS[] = {
    {"/modem/auto", "modem_id", INTEGER},
    {"/modem/auto", "bus", TEXT},
    {"/modem/get", "bus", TEXT},
    {"/modem/set", "modem_id", INTEGER},
    {"/modem/set", "bus", TEXT},
    {"/modem/set", "device", TEXT},
    {"/modem/set", "proto", TEXT},
    {"/modem/set", "service", TEXT},
    {"/modem/set", "apn", TEXT},
    {"/modem/set", "pincode", TEXT},
    {"/modem/set", "dianum", TEXT},
    {"/modem/set", "username", TEXT},
    {"/modem/set", "password", TEXT},
    {"/modem/set", "ath", TEXT},
    {"/modem/set", "mtu", TEXT},
    {"/modem/set", "operator", TEXT},
    {"/modem/set", "ttl", INTEGER},
    {"/modem/enable", "bus", TEXT},
    {"/modem/enable", "disable", BOOLEAN},
    {"/modem/reset", "modem_id", INTEGER},
    {"/modem/reset", "bus", TEXT},
    {"/modem/reset", "disable", BOOLEAN},
    {"/modem/at", "at-command", TEXT},
    {"/modem/at", "at-port", TEXT},
    {"/modem/sms/list", "modem_id", INTEGER},
    {"/modem/sms/delete", "modem_id", INTEGER},
    {"/modem/sms/delete", "msg_id", TEXT},
    {"/modem/sms/delete_all", "modem_id", INTEGER},
    {"/modem/sms/send", "modem_id", INTEGER},
    {"/modem/sms/send", "number", TEXT},
    {"/modem/sms/send", "message", TEXT},
    {"/modem/sms/send", "type", TEXT},
    {"/modem/sms/status", "modem_id", INTEGER},
    {"/modem/sms/status", "msg_id", TEXT},
    {"/modem/sms/code", "action", TEXT},
    {"/modem/sms/code", "country", TEXT},
    {"/modem/sms/code", "country_code", TEXT},
    {"/modem/cells/get", "bus", TEXT},
    {"/modem/cells/get", "modem_id", INTEGER},
    {"/modem/sim/switch", "bus", TEXT},
    {"/modem/sim/switch", "sim_num", TEXT},
    {"/modem/sim/switch", "modem_id", INTEGER},
    {"/modem/modem_info/get", "bus", TEXT},
    {"/modem/modem_info/get", "modem_id", INTEGER},
    {"/modem/sms/forward", "tel", TEXT},
    {"/modem/sms/forward", "email", TEXT},
    {"/modem/sms/account", "account", TEXT},
    {"/modem/sms/account", "password", TEXT},
    {"/modem/sms/account", "smtp", TEXT},
    {"/modem/sms/account", "local_tel", TEXT},
    {"/modem/upgrade", "modem_url", TEXT},
    {"/modem/upgrade", "target_version", TEXT},
    {"/modem/upgrade", "current_version", TEXT},
    {"/modem/upgrade", "firmware_upload", TEXT},
    {"/modem/upgrade", "hash_type", TEXT},
    {"/modem/upgrade", "hash_value", TEXT},
};

} // namespace

std::span<const EndpointArgument> endpoint_arguments() {
    return ARGUMENTS;
}
