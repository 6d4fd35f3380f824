// The plug-in that vela_api hosts: loading it and finding an endpoint in its table.
#pragma once

#include <cstdint>

#include "api/endpoints.h"

struct EndpointTable {
    const ApiEntity *rows;
    uint32_t count;
};

// Loads the plug-in, which stays loaded until the process ends. With null it is the one beside this program, or, where
// none is there, the one that the loader finds. Without rows where that fails, with the reason told on standard error.
EndpointTable load_endpoints(const char *plugin);

// The row whose path and method both match; null where there is none.
const ApiEntity *find_endpoint(const EndpointTable &table, const char *method, const char *path);
