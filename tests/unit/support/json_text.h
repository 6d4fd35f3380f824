// JSON in tests: owned objects from texts, and their shortest form to compare with.
#pragma once

#include <string>

#include <gtest/gtest.h>
#include <json-c/json.h>

#include "platform/owners.h"

inline Json parse_json(const std::string &text) {
    return Json(json_tokener_parse(text.c_str()));
}

inline std::string plain_json(json_object *object) {
    return json_object_to_json_string_ext(object, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

inline std::string pretty_json(const std::string &text) {
    return json_object_to_json_string_ext(parse_json(text).get(), JSON_C_TO_STRING_PRETTY);
}
