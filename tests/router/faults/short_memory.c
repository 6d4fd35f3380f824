// Preloaded into a program, makes the n-th allocation fail, and knows which memory was never released.
//
// In vela_modem and vela_api it does so by itself: the environment's FAULTS_MEMORY holds "N MODE FILE". The N-th
// allocation of main fails (0: none), with MODE "on" all after it, too. When the process ends, FILE gets how many
// allocations there were, how many had not been released, and whether one has failed. What the program starts knows
// nothing of it. In call_handler.c the functions of short_memory.h do the same for each call of a handler.
#define _GNU_SOURCE
#include "short_memory.h"

#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <json-c/json.h>

// The C library's own, under names that no program takes.
extern void *__libc_malloc(size_t size);
extern void *__libc_calloc(size_t count, size_t size);
extern void *__libc_realloc(void *memory, size_t size);
extern void *__libc_memalign(size_t alignment, size_t size);
extern void __libc_free(void *memory);

enum { SLOTS = 1 << 16 };

static bool counting, going_on, in_main, spared;
static long allocations, fail_at, failures;
static char report_path[256];

// The memory that was allocated while counting and is not released yet: a hash table with linear probing.
static void *live[SLOTS];
static long live_count;

static size_t slot_of(const void *memory) {
    return ((size_t)memory >> 4) * 0x9E3779B97F4A7C15u >> 48;
}

static void *remember(void *memory) {
    if (counting && memory != NULL) {
        if (live_count >= SLOTS / 2)
            abort(); // more than any run takes: the table is too small
        size_t slot = slot_of(memory);
        while (live[slot] != NULL)
            slot = (slot + 1) % SLOTS;
        live[slot] = memory;
        live_count++;
    }
    return memory;
}

static void forget(const void *memory) {
    if (memory == NULL || live_count == 0)
        return;
    size_t slot = slot_of(memory);
    while (live[slot] != NULL && live[slot] != memory)
        slot = (slot + 1) % SLOTS;
    if (live[slot] == NULL)
        return;
    live_count--;
    live[slot] = NULL;
    // What was put behind it because the slot was taken moves up.
    for (size_t next = (slot + 1) % SLOTS; live[next] != NULL; next = (next + 1) % SLOTS) {
        const size_t wanted = slot_of(live[next]);
        if ((next - wanted) % SLOTS >= (next - slot) % SLOTS) {
            live[slot] = live[next];
            live[next] = NULL;
            slot = next;
        }
    }
}

static bool fails(void) {
    if (!counting || spared)
        return false;
    allocations++;
    if (fail_at == 0 || allocations < fail_at || (allocations > fail_at && !going_on))
        return false;
    failures++;
    errno = ENOMEM;
    return true;
}

void *malloc(size_t size) {
    return fails() ? NULL : remember(__libc_malloc(size));
}

void *calloc(size_t count, size_t size) {
    return fails() ? NULL : remember(__libc_calloc(count, size));
}

void *realloc(void *memory, size_t size) {
    if (size > 0 && fails())
        return NULL;
    void *moved = __libc_realloc(memory, size);
    if (moved != NULL || size == 0) {
        forget(memory);
        remember(moved);
    }
    return moved;
}

void *memalign(size_t alignment, size_t size) {
    return fails() ? NULL : remember(__libc_memalign(alignment, size));
}

void *aligned_alloc(size_t alignment, size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void **memory, size_t alignment, size_t size) {
    void *made = memalign(alignment, size);
    if (made != NULL)
        *memory = made;
    return made != NULL ? 0 : ENOMEM;
}

void free(void *memory) {
    forget(memory);
    __libc_free(memory);
}

// The latest copy of a text, for the one that json-c makes of a member's name.
static void *latest_copy;

char *strdup(const char *text) {
    const size_t size = strlen(text) + 1;
    latest_copy = malloc(size);
    return latest_copy != NULL ? memcpy(latest_copy, text, size) : NULL;
}

// json-c (0.16) loses the name's copy where there is no memory for one more member, which is no leak of the program's.
int json_object_object_add(json_object *object, const char *name, json_object *value) {
    typedef int (*adder)(json_object *, const char *, json_object *);
    latest_copy = NULL;
    const int result = ((adder)dlsym(RTLD_NEXT, "json_object_object_add"))(object, name, value);
    if (result != 0)
        forget(latest_copy);
    return result;
}

// json-c's parser (0.16) neither looks whether it could copy a member's name nor releases a value that it could not
// add, so in its middle nothing fails: the whole counts as one allocation.
json_object *json_tokener_parse(const char *text) {
    typedef json_object *(*parser)(const char *);
    const parser parse = (parser)dlsym(RTLD_NEXT, "json_tokener_parse");
    if (fails())
        return NULL;
    spared = true;
    json_object *parsed = parse(text);
    spared = false;
    return parsed;
}

void short_memory_begin(long first_failure, bool on) {
    memset(live, 0, sizeof live);
    live_count = allocations = failures = 0;
    fail_at = first_failure;
    going_on = on;
    counting = true;
}

void short_memory_end(void) {
    counting = false;
}

struct short_memory_report short_memory_report(void) {
    return (struct short_memory_report){.allocations = allocations, .failures = failures, .live = live_count};
}

__attribute__((constructor)) static void begin(void) {
    tzset(); // which the C library keeps for good, from the first line of the system log on
    const char *plan = getenv("FAULTS_MEMORY");
    const char *name = program_invocation_short_name;
    if (plan == NULL || (strcmp(name, "vela_modem") != 0 && strcmp(name, "vela_api") != 0))
        return;
    long first_failure = 0;
    char mode[8] = "";
    if (sscanf(plan, "%ld %7s %255s", &first_failure, mode, report_path) != 3)
        abort();
    unsetenv("FAULTS_MEMORY");
    in_main = true;
    short_memory_begin(first_failure, strcmp(mode, "on") == 0);
}

__attribute__((destructor)) static void report(void) {
    if (!in_main)
        return;
    short_memory_end();
    FILE *file = fopen(report_path, "we");
    if (file != NULL) {
        fprintf(file, "%ld %ld %ld\n", allocations, live_count, failures);
        fclose(file);
    }
}
