/*
 * blobmsg_json: blobmsg values to JSON text and back.
 */
#ifndef HOSTLIBS_LIBUBOX_BLOBMSG_JSON_H
#define HOSTLIBS_LIBUBOX_BLOBMSG_JSON_H

#include "blobmsg.h"

#ifdef __cplusplus
extern "C" {
#endif

struct json_object;

/* Append a JSON object's members to the open table: from json-c's object, or from a text. False where it is no object.
 */
bool blobmsg_add_object(struct blob_buf *b, struct json_object *obj);
bool blobmsg_add_json_from_string(struct blob_buf *b, const char *str);

/* Appends one JSON value under the name. Integers take 32 bits where they fit and 64 where not. */
bool blobmsg_add_json_element(struct blob_buf *b, const char *name, struct json_object *obj);

/*
 * The message as JSON text, which the caller releases with free(). With `list`, `attr` holds values and the text is the
 * object of them (the array, where `attr` is one). Without, it is the value of `attr`, behind its name and a colon if
 * it has a name.
 *
 * Values that are not sound are left out. NULL without memory, and for values nested so deep that json-c would
 * refuse to read the text.
 */
char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent);

static inline char *blobmsg_format_json(struct blob_attr *attr, bool list) {
    return blobmsg_format_json_indent(attr, list, -1);
}

#ifdef __cplusplus
}
#endif

#endif
