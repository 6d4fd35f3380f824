// A web API server without a web, for the tests: loads the plug-in once and calls one handler for each line of standard
// input, until it ends. It runs in the simulated router like the shipped programs, and is never installed.
//
//   host PLUGIN                        prints "ready" when it is
//   input:  METHOD PATH JSON             the request, in one line
//   output: {"status":...,"elapsed_us":...,"waits":{...},"reply":{...}}     in one line
//
// "waits" is what quick_sleep.c counted during the call, in a router that runs with it.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>

#include "api/endpoints.h"
#include "platform/owners.h"

namespace {

// As in quick_sleep.c.
struct Waits {
    long locked, refused, silent_reads, most_silent_reads, waited_ms;
};

int64_t now_us() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void add(json_object *object, const char *key, int64_t value) {
    json_object_object_add(object, key, json_object_new_int64(value));
}

void serve(const ApiEntity &row, const char *body, Waits *waits) {
    const Json request(json_tokener_parse(body));
    Json reply(json_object_new_object());
    if (waits != nullptr) {
        *waits = {};
    }
    const int64_t start = now_us();
    const int32_t status = row.handler(request.get(), reply.get());
    const int64_t elapsed = now_us() - start;
    const Json result(json_object_new_object());
    add(result.get(), "status", status);
    add(result.get(), "elapsed_us", elapsed);
    if (waits != nullptr) {
        json_object *counts = json_object_new_object();
        add(counts, "exchanges", waits->locked);
        add(counts, "refused", waits->refused);
        add(counts, "silent", waits->silent_reads);
        add(counts, "most_silent", waits->most_silent_reads);
        add(counts, "waited_ms", waits->waited_ms);
        json_object_object_add(result.get(), "waits", counts);
    }
    json_object_object_add(result.get(), "reply", reply.release());
    puts(json_object_to_json_string_ext(result.get(), JSON_C_TO_STRING_PLAIN));
    fflush(stdout);
}

} // namespace

int main(int argc, char **argv) {
    void *plugin = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : nullptr;
    if (plugin == nullptr) {
        fprintf(stderr, "usage: host PLUGIN (%s)\n", argc == 2 ? dlerror() : "one argument");
        return 2;
    }
    const auto get_entity = reinterpret_cast<const ApiEntity *(*)(uint32_t *)>(dlsym(plugin, "get_api_entity"));
    uint32_t count = 0;
    const ApiEntity *rows = get_entity(&count);
    Waits *waits = static_cast<Waits *>(dlsym(RTLD_DEFAULT, "quick_waits"));
    puts("ready");
    fflush(stdout);
    char *line = nullptr;
    size_t size = 0;
    while (getline(&line, &size, stdin) > 0) {
        char *rest = line;
        const char *method = strsep(&rest, " ");
        const char *path = strsep(&rest, " ");
        const ApiEntity *found = nullptr;
        for (uint32_t index = 0; index < count && rest != nullptr; index++) {
            if (strcmp(rows[index].method, method) == 0 && strcmp(rows[index].path, path) == 0) {
                found = &rows[index];
            }
        }
        if (found == nullptr) {
            fprintf(stderr, "host: no such request: %s %s\n", method, path != nullptr ? path : "");
            free(line);
            return 2;
        }
        serve(*found, rest, waits);
    }
    free(line);
    return 0;
}
