/*
 * JSON to blobmsg values, by way of json-c's objects.
 */
#include <libubox/blobmsg_json.h>

#include <json-c/json.h>

static bool add_members(struct blob_buf *b, struct json_object *obj) {
    json_object_object_foreach(obj, name, member) {
        if (!blobmsg_add_json_element(b, name, member)) {
            return false;
        }
    }
    return true;
}

static bool add_items(struct blob_buf *b, struct json_object *array) {
    const size_t len = json_object_array_length(array);
    for (size_t i = 0; i < len; i++) {
        if (!blobmsg_add_json_element(b, NULL, json_object_array_get_idx(array, i))) {
            return false;
        }
    }
    return true;
}

static bool add_nested(struct blob_buf *b, const char *name, struct json_object *obj) {
    const bool array = json_object_is_type(obj, json_type_array);
    void *cookie = blobmsg_open_nested(b, name, array);
    if (cookie == NULL) {
        return false;
    }
    const bool added = array ? add_items(b, obj) : add_members(b, obj);
    blob_nest_end(b, cookie);
    return added;
}

static int add_integer(struct blob_buf *b, const char *name, int64_t value) {
    if (value >= INT32_MIN && value <= INT32_MAX) {
        return blobmsg_add_u32(b, name, (uint32_t)value);
    }
    return blobmsg_add_u64(b, name, (uint64_t)value);
}

bool blobmsg_add_json_element(struct blob_buf *b, const char *name, struct json_object *obj) {
    switch (json_object_get_type(obj)) {
    case json_type_object:
    case json_type_array:
        return add_nested(b, name, obj);
    case json_type_string:
        return blobmsg_add_string(b, name, json_object_get_string(obj)) == 0;
    case json_type_boolean:
        return blobmsg_add_u8(b, name, (uint8_t)(json_object_get_boolean(obj) != 0)) == 0;
    case json_type_int:
        return add_integer(b, name, json_object_get_int64(obj)) == 0;
    case json_type_double:
        return blobmsg_add_double(b, name, json_object_get_double(obj)) == 0;
    case json_type_null:
        return blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, name, NULL, 0) == 0;
    }
    return false;
}

bool blobmsg_add_object(struct blob_buf *b, struct json_object *obj) {
    return json_object_is_type(obj, json_type_object) && add_members(b, obj);
}

bool blobmsg_add_json_from_string(struct blob_buf *b, const char *str) {
    struct json_object *obj = json_tokener_parse(str);
    const bool added = blobmsg_add_object(b, obj);
    json_object_put(obj);
    return added;
}
