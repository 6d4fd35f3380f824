// JSON members: thin helpers over json-c for request and reply objects.
//
// A null object, or one that is not a JSON object (an array for vjson_array_add_string), is treated as one without
// members: getters find nothing, adders do nothing. Texts that go into a JSON object are made valid UTF-8 first, each
// byte that is no part of a character replaced by U+FFFD, because a modem may send any byte and what leaves the program
// must parse. json-c itself escapes control characters.
#pragma once

#include <cstdint>

#include <json-c/json.h>

// Adds or replaces a string member; the text is copied. A null text adds nothing.
void vjson_add_string(json_object *object, const char *key, const char *text);
void vjson_add_int(json_object *object, const char *key, int32_t value);
// An infinite value, or one that is no number, adds nothing.
void vjson_add_double(json_object *object, const char *key, double value);
// Adds or replaces a boolean member; any non-zero value is true.
void vjson_add_boolean(json_object *object, const char *key, int value);
// Adds or replaces a member with `child`, whose ownership passes to `object` (it is released where it cannot be added).
void vjson_add_object(json_object *object, const char *key, json_object *child);
// Appends a copied text to an array. A null text appends nothing.
void vjson_array_add_string(json_object *array, const char *text);

// Appends `item`, whose ownership passes to the array (it is released where it cannot be appended).
void vjson_array_add_object(json_object *array, json_object *item);

// The member's text, owned by the object and valid while it lives; null when the key is absent or not a string.
const char *vjson_get_string(json_object *object, const char *key);
// The member as an integer, converted as json-c converts (a number in a string counts); 0 when absent.
int32_t vjson_get_int(json_object *object, const char *key);
// 1 or 0; 0 when absent.
int vjson_get_boolean(json_object *object, const char *key);
// The member, borrowed from the object; null when absent.
json_object *vjson_get_object(json_object *object, const char *key);
// Non-zero when the key is present, whatever its value.
int vjson_contain_key(json_object *object, const char *key);
// The object as a JSON text in one of json-c's styles (JSON_C_TO_STRING_PRETTY), owned by the object and valid until the
// next such call; an empty text where memory is short.
const char *vjson_text(json_object *object, int style);
// Removes the member if it is present.
void vjson_del_key(json_object *object, const char *key);
