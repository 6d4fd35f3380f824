// What leaves the program is JSON that parses, in valid UTF-8.
#pragma once

#include <string_view>

#include "fuzz_support.h"
#include "platform/owners.h"
#include "platform/utf8.h"

inline bool all_characters_valid(std::string_view text) {
    while (!text.empty()) {
        const size_t length = utf8_character_length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

inline void check_json(json_object *object) {
    const char *text = json_object_to_json_string(object);
    require(text != nullptr && all_characters_valid(text));
    const Json parsed(json_tokener_parse(text));
    require(json_object_equal(parsed.get(), object) != 0);
}
