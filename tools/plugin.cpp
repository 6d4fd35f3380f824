// Loads the plug-in; see plugin.h.
#include "tools/plugin.h"

#include <climits>
#include <cstring>
#include <dlfcn.h>
#include <span>
#include <unistd.h>

#include "platform/text.h"
#include "tools/complain.h"
#include "tools/own_path.h"

namespace {

constexpr const char *PLUGIN_NAME = "vela_modem.so";

// The plug-in beside this program; by its bare name, for the loader to find, where it is not there.
const char *default_plugin() {
    static char path[PATH_MAX];
    if (read_own_path(path)) {
        const auto name = static_cast<size_t>(strrchr(path, '/') + 1 - path);
        text_copy(std::span(path).subspan(name), PLUGIN_NAME);
        if (access(path, R_OK) == 0) {
            return path;
        }
    }
    return PLUGIN_NAME;
}

} // namespace

EndpointTable load_endpoints(const char *plugin) {
    plugin = plugin != nullptr ? plugin : default_plugin();
    void *handle = dlopen(plugin, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        complain("cannot load the plug-in: ", dlerror());
        return {};
    }
    const auto get_entity = reinterpret_cast<const ApiEntity *(*)(uint32_t *)>(dlsym(handle, "get_api_entity"));
    if (get_entity == nullptr) {
        complain("this is no plug-in of the web API server: ", plugin);
        return {};
    }
    EndpointTable table = {};
    table.rows = get_entity(&table.count);
    return table;
}

const ApiEntity *find_endpoint(const EndpointTable &table, const char *method, const char *path) {
    for (uint32_t index = 0; index < table.count; index++) {
        if (strcmp(table.rows[index].path, path) == 0 && strcmp(table.rows[index].method, method) == 0) {
            return &table.rows[index];
        }
    }
    return nullptr;
}
