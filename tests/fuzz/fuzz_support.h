// What the fuzzers of the modem dialects share: promises that end the run where they are broken.
#pragma once

#include <cstdlib>
#include <cstring>

#include "platform/owners.h"

inline void require(bool condition) {
    if (!condition) {
        abort();
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
