// call_handler METHOD PATH JSON [once|on]: a small server with the plug-in in it, that looks after itself.
//
// Calls one handler and prints a line of JSON: {"status":..., "reply":..., "descriptors":..., "children":...}, where
// the last two say how many of each the handler has left behind.
//
// With "once" or "on" it reads numbers from standard input, a line each, and calls the handler for each of them in this
// one process: with the allocation of that number failing, and with "on" those behind it, too (short_memory.h). Then a
// line also has "allocations" and "failures", how many there were, and "leaked": how many pieces of memory the call has
// left when request and reply are gone.
#define _GNU_SOURCE
#include <dirent.h>
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <json-c/json.h>

#include "short_memory.h"

struct entity {
    const char *path;
    const char *method;
    int32_t (*handler)(json_object *request, json_object *reply);
};
typedef const struct entity *(*entities)(uint32_t *count);

static int complain(const char *what) {
    fprintf(stderr, "call_handler: %s\n", what);
    return 2;
}

static const struct entity *find(const char *method, const char *path) {
    void *plugin = dlopen("/usr/bin/vela_modem.so", RTLD_NOW | RTLD_LOCAL);
    const entities get = plugin != NULL ? (entities)dlsym(plugin, "get_api_entity") : NULL;
    uint32_t count = 0;
    const struct entity *rows = get != NULL ? get(&count) : NULL;
    for (uint32_t i = 0; i < count; i++)
        if (strcmp(rows[i].path, path) == 0 && strcmp(rows[i].method, method) == 0)
            return &rows[i];
    return NULL;
}

// The open descriptors, or the children that run or are zombies.
static int count_descriptors(void) {
    DIR *directory = opendir("/proc/self/fd");
    int count = 0;
    while (directory != NULL && readdir(directory) != NULL)
        count++;
    if (directory != NULL)
        closedir(directory);
    return count;
}

static int count_children(void) {
    char path[64];
    snprintf(path, sizeof path, "/proc/self/task/%d/children", (int)getpid());
    FILE *file = fopen(path, "re");
    int count = 0;
    int child = 0;
    while (file != NULL && fscanf(file, "%d", &child) == 1)
        count++;
    if (file != NULL)
        fclose(file);
    return count;
}

// The marks between which meddle.c interferes.
static void mark(void) {
    syscall(SYS_write, -1L, "", 0L);
}

static void print(int32_t status, const char *reply, int descriptors, struct short_memory_report memory) {
    printf("{\"status\":%d,\"reply\":%s,\"descriptors\":%d,\"children\":%d,"
           "\"allocations\":%ld,\"failures\":%ld,\"leaked\":%ld}\n",
           status, reply, descriptors, count_children(), memory.allocations, memory.failures, memory.live);
    fflush(stdout);
}

static void call(const struct entity *entity, const char *body, bool short_of_memory, long failing, bool on) {
    json_object *request = json_tokener_parse(body);
    json_object *reply = json_object_new_object();
    const int descriptors = count_descriptors();
    struct short_memory_report memory = {0};
    mark();
    if (short_of_memory)
        short_memory_begin(failing, on);
    const int32_t status = entity->handler(request, reply);
    if (short_of_memory)
        short_memory_end();
    mark();
    const int left = count_descriptors() - descriptors;
    // The server prints it, with memory again.
    char *text = strdup(json_object_to_json_string_ext(reply, JSON_C_TO_STRING_PLAIN));
    json_object_put(request);
    json_object_put(reply);
    if (short_of_memory)
        memory = short_memory_report();
    print(status, text, left, memory);
    free(text);
}

int main(int argc, char **argv) {
    if (argc != 4 && argc != 5)
        return complain("wrong number of arguments");
    const struct entity *entity = find(argv[1], argv[2]);
    if (entity == NULL)
        return complain("no such endpoint");
    if (argc == 4) {
        call(entity, argv[3], false, 0, false);
        return 0;
    }
    if (short_memory_begin == NULL)
        return complain("short_memory.so is not preloaded");
    char line[32];
    while (fgets(line, sizeof line, stdin) != NULL)
        call(entity, argv[3], true, strtol(line, NULL, 10), strcmp(argv[4], "on") == 0);
    return 0;
}
