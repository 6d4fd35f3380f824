// JSON members over json-c; see json.h for the contracts.
#include "platform/json.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/owners.h"
#include "platform/text.h"
#include "platform/utf8.h"

namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD"; // U+FFFD

bool is_valid_utf8(std::string_view text) {
    while (!text.empty()) {
        const size_t length = utf8_character_length(text);
        if (length == 0) {
            return false;
        }
        text.remove_prefix(length);
    }
    return true;
}

json_object *string_object(std::string_view text) {
    return text.size() <= INT_MAX ? json_object_new_string_len(text.data(), static_cast<int>(text.size())) : nullptr;
}

// A JSON string of the text; null when memory is short.
json_object *new_valid_string(std::string_view text) {
    if (is_valid_utf8(text)) {
        return string_object(text);
    }
    Allocated<char> valid(static_cast<char *>(malloc(text.size() * REPLACEMENT.size())));
    if (valid == nullptr) {
        return nullptr;
    }
    size_t written = 0;
    while (!text.empty()) {
        const size_t length = utf8_character_length(text);
        const std::string_view piece = length > 0 ? text_before(text, length) : REPLACEMENT;
        memcpy(valid.get() + written, piece.data(), piece.size());
        written += piece.size();
        text.remove_prefix(length > 0 ? length : 1);
    }
    return string_object({valid.get(), written});
}

// Puts the child into the object. json-c does not look whether there was memory for its copy of the key, and whoever came
// by a member without one would read from a null pointer; so it is taken out again, and the child with it.
bool add_member(json_object *object, const char *key, json_object *child) {
    if (json_object_object_add(object, key, child) != 0) {
        return false;
    }
    lh_table *members = json_object_get_object(object);
    if (members->tail != nullptr && lh_entry_k(members->tail) == nullptr) {
        lh_table_delete_entry(members, members->tail);
    }
    return true;
}

json_object *member(json_object *object, const char *key) {
    json_object *value = nullptr;
    return json_object_object_get_ex(object, key, &value) ? value : nullptr;
}

} // namespace

void vjson_add_string(json_object *object, const char *key, const char *text) {
    if (text != nullptr) {
        vjson_add_object(object, key, new_valid_string(text));
    }
}

void vjson_add_int(json_object *object, const char *key, int32_t value) {
    vjson_add_object(object, key, json_object_new_int(value));
}

void vjson_add_double(json_object *object, const char *key, double value) {
    // json-c would print words for infinity and for what is no number that JSON does not have.
    if (std::isfinite(value)) {
        vjson_add_object(object, key, json_object_new_double(value));
    }
}

void vjson_add_boolean(json_object *object, const char *key, int value) {
    vjson_add_object(object, key, json_object_new_boolean(value != 0));
}

void vjson_add_object(json_object *object, const char *key, json_object *child) {
    // A null child would be a JSON null; here it only means that memory was short when it was made.
    if (child == nullptr) {
        return;
    }
    if (!json_object_is_type(object, json_type_object) || !add_member(object, key, child)) {
        json_object_put(child);
    }
}

void vjson_array_add_string(json_object *array, const char *text) {
    if (text != nullptr) {
        vjson_array_add_object(array, new_valid_string(text));
    }
}

void vjson_array_add_object(json_object *array, json_object *item) {
    if (item == nullptr) {
        return;
    }
    if (!json_object_is_type(array, json_type_array) || json_object_array_add(array, item) != 0) {
        json_object_put(item);
    }
}

const char *vjson_get_string(json_object *object, const char *key) {
    json_object *value = member(object, key);
    return json_object_is_type(value, json_type_string) ? json_object_get_string(value) : nullptr;
}

int32_t vjson_get_int(json_object *object, const char *key) {
    return json_object_get_int(member(object, key));
}

int vjson_get_boolean(json_object *object, const char *key) {
    return json_object_get_boolean(member(object, key)) ? 1 : 0;
}

json_object *vjson_get_object(json_object *object, const char *key) {
    return member(object, key);
}

int vjson_contain_key(json_object *object, const char *key) {
    return json_object_object_get_ex(object, key, nullptr) ? 1 : 0;
}

const char *vjson_text(json_object *object, int style) {
    const char *text = json_object_to_json_string_ext(object, style);
    return text != nullptr ? text : "";
}

void vjson_del_key(json_object *object, const char *key) {
    if (json_object_is_type(object, json_type_object)) {
        json_object_object_del(object, key);
    }
}
