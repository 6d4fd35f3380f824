// What the fuzzers of the modem dialects share: promises that end the run where they are broken.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "platform/owners.h"

inline void require(bool condition, const char *file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (!condition) {
        dprintf(STDERR_FILENO, "%s:%d: a promise is broken\n", file, line);
        __builtin_trap(); // not abort(), which a fuzzer may expect of the product
    }
}

// Objects of texts, "type" first, that leave the program as JSON which parses.
inline void check_objects(json_object *array) {
    for (size_t i = 0; i < json_object_array_length(array); i++) {
        bool first = true;
        json_object_object_foreach(json_object_array_get_idx(array, i), key, value) {
            require(!first || strcmp(key, "type") == 0);
            require(json_object_is_type(value, json_type_string));
            first = false;
        }
        require(!first);
    }
    const Json parsed(json_tokener_parse(json_object_to_json_string(array)));
    require(json_object_equal(parsed.get(), array) != 0);
}
