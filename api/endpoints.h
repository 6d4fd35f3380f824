// The plug-in's interface to the router's web API server.
//
// The server loads vela_modem.so, looks up get_api_entity and calls, for each request whose path and method both match
// a row, that row's handler with the parsed request body and an empty reply object. It turns the handler's status into
// its response. The plug-in keeps nothing between requests.
#pragma once

#include <cstdint>

#include "api/handler.h"

// One row of the endpoint table. The layout is the plug-in interface.
struct ApiEntity {
    const char *path;   // "/modem/info"
    const char *method; // "get" or "post"
    ApiHandler handler;
};

constexpr uint32_t API_ENTITY_COUNT = 23;

// Stores the number of rows in `count` and returns the first row.
extern "C" __attribute__((visibility("default"))) const ApiEntity *get_api_entity(uint32_t *count);
