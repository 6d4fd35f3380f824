// vela_api: calls one endpoint of the plug-in, as the router's web API server would.
//
//   vela_api [--plugin FILE] METHOD PATH [JSON|-]
//   vela_api [--plugin FILE] list
//
// The request is a JSON object, given as an argument or, with "-", on standard input; without one it is {}. Prints the
// reply as JSON on standard output and the status on standard error. Exits with 0 for status 0, 1 for a negative
// status, 2 where the call could not be made: bad usage, an unknown endpoint, bad JSON, a plug-in that cannot be
// loaded.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>

#include "api/endpoints.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr int EXIT_NEGATIVE_STATUS = 1;
constexpr int EXIT_NO_CALL = 2;
constexpr const char *PLUGIN_NAME = "vela_modem.so";

int complain(const char *what, const char *about) {
    fprintf(stderr, "vela_api: %s%s\n", what, about);
    return EXIT_NO_CALL;
}

int print_usage() {
    fputs("Usage: vela_api [--plugin FILE] METHOD PATH [JSON|-]\n"
          "       vela_api [--plugin FILE] list\n"
          "Calls one endpoint of the plug-in and prints its reply; the request is a JSON object, \"-\" reads it from\n"
          "standard input, and without one it is empty. \"list\" prints the endpoints.\n",
          stderr);
    return EXIT_NO_CALL;
}

// The plug-in beside this program; by its bare name, for the loader to find, where it is not there.
const char *default_plugin() {
    static char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length > 0) {
        path[length] = '\0';
        const auto name = static_cast<size_t>(strrchr(path, '/') + 1 - path);
        text_copy(std::span(path).subspan(name), PLUGIN_NAME);
        if (access(path, R_OK) == 0) {
            return path;
        }
    }
    return PLUGIN_NAME;
}

struct EndpointTable {
    const ApiEntity *rows;
    uint32_t count;
};

// Loads the plug-in, which stays loaded until the process ends. An empty table where that fails, with the reason told.
EndpointTable load_endpoints(const char *plugin) {
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

// All of standard input as one text; null when memory is short.
Allocated<char> read_standard_input() {
    char *text = nullptr;
    size_t size = 0;
    // A JSON text holds no NUL, so this reads to the end.
    const ssize_t length = getdelim(&text, &size, '\0', stdin);
    if (length < 0) {
        free(text);
        text = strdup("");
    }
    return Allocated<char>(text);
}

// The whole text as one JSON object; null, with the reason told, where it is none.
Json parse_request(const char *text) {
    json_tokener *tokener = json_tokener_new();
    if (tokener == nullptr) {
        complain("out of memory", "");
        return nullptr;
    }
    Json request(json_tokener_parse_ex(tokener, text, static_cast<int>(strlen(text)) + 1));
    const json_tokener_error error = json_tokener_get_error(tokener);
    const size_t end = json_tokener_get_parse_end(tokener);
    json_tokener_free(tokener);
    if (error != json_tokener_success) {
        complain("the request is not JSON: ", json_tokener_error_desc(error));
        return nullptr;
    }
    if (text[end + strspn(text + end, " \t\r\n")] != '\0') {
        complain("the request is not JSON: something follows it: ", text + end);
        return nullptr;
    }
    if (!json_object_is_type(request.get(), json_type_object)) {
        complain("the request is not a JSON object: ", text);
        return nullptr;
    }
    return request;
}

int print_list(const EndpointTable &table) {
    for (uint32_t index = 0; index < table.count; index++) {
        printf("%-4s %s\n", table.rows[index].method, table.rows[index].path);
    }
    return EXIT_SUCCESS;
}

int call(const EndpointTable &table, const char *method, const char *path, const char *argument) {
    const ApiEntity *endpoint = find_endpoint(table, method, path);
    if (endpoint == nullptr) {
        fprintf(stderr, "vela_api: no such endpoint: %s %s\n", method, path);
        return EXIT_NO_CALL;
    }
    Allocated<char> input;
    if (strcmp(argument, "-") == 0) {
        input = read_standard_input();
        argument = input != nullptr ? input.get() : "";
    }
    const Json request = parse_request(argument);
    if (request == nullptr) {
        return EXIT_NO_CALL;
    }
    const Json reply(json_object_new_object());
    const int32_t status = endpoint->handler(request.get(), reply.get());
    puts(vjson_text(reply.get(), JSON_C_TO_STRING_PRETTY));
    fprintf(stderr, "status %d\n", status);
    return status < 0 ? EXIT_NEGATIVE_STATUS : EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv) {
    const char *plugin = nullptr;
    int first = 1;
    if (argc > 2 && strcmp(argv[1], "--plugin") == 0) {
        plugin = argv[2];
        first = 3;
    }
    const int left = argc - first;
    const bool list = left == 1 && strcmp(argv[first], "list") == 0;
    if (!list && left != 2 && left != 3) {
        return print_usage();
    }
    const EndpointTable table = load_endpoints(plugin != nullptr ? plugin : default_plugin());
    if (table.rows == nullptr) {
        return EXIT_NO_CALL;
    }
    return list ? print_list(table) : call(table, argv[first], argv[first + 1], left == 3 ? argv[first + 2] : "{}");
}
