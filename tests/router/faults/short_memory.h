// Allocations that fail on request; see short_memory.c. Null where that library is not preloaded.
#pragma once

#include <stdbool.h>

struct short_memory_report {
    long allocations; // between begin and end
    long failures;    // of these
    long live;        // of these, not released so far
};

// From here to short_memory_end allocations count, and the one of this number fails (0: none); with `on` all after it,
// too.
__attribute__((weak)) void short_memory_begin(long first_failure, bool on);
__attribute__((weak)) void short_memory_end(void);
__attribute__((weak)) struct short_memory_report short_memory_report(void);
