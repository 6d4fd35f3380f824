// The arguments of the endpoints, as `ubus -v list vela_modem` shows them.
#pragma once

#include <cstdint>
#include <span>

enum class ArgumentType : uint8_t { TEXT, INTEGER, BOOLEAN };

// One key that the endpoint's handler reads from its request.
struct EndpointArgument {
    char path[22]; // of the endpoint, "/modem/set"
    char name[16];
    ArgumentType type;
};

// The arguments of all endpoints; those of one stand together. An endpoint without arguments has no row.
std::span<const EndpointArgument> endpoint_arguments();
