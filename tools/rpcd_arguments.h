// The arguments of the endpoints, as `ubus -v list vela_modem` shows them.
#pragma once

#include <span>

enum class ArgumentType { TEXT, INTEGER, BOOLEAN };

// One key that the endpoint's handler reads from its request.
struct EndpointArgument {
    const char *path; // of the endpoint, "/modem/set"
    const char *name;
    ArgumentType type;
};

// The arguments of all endpoints; those of one stand together. An endpoint without arguments has no row.
std::span<const EndpointArgument> endpoint_arguments();
