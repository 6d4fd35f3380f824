/*
 * Writing blobmsg values.
 */
#include <libubox/blobmsg.h>

#include "blob_private.h"

/* Appends a value with its name and room for `len` bytes of data, all zero. */
static struct blob_attr *new_value(struct blob_buf *buf, int type, const char *name, size_t len) {
    const size_t name_len = name != NULL ? strlen(name) : 0;
    if (name_len > UINT16_MAX || len > BLOB_ATTR_LEN_MASK) {
        return NULL;
    }
    struct blob_attr *attr = blob_new(buf, type, blobmsg_hdrlen((unsigned int)name_len) + (int)len);
    if (attr == NULL) {
        return NULL;
    }
    attr->id_len |= htobe32(BLOB_ATTR_EXTENDED);
    const uint16_t stored_len = htobe16((uint16_t)name_len);
    memcpy(attr->data, &stored_len, sizeof(stored_len));
    if (name_len > 0) {
        memcpy(attr->data + sizeof(struct blobmsg_hdr), name, name_len);
    }
    return attr;
}

int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len) {
    struct blob_attr *attr = new_value(buf, type, name, len);
    if (attr == NULL) {
        return -1;
    }
    if (len > 0) {
        memcpy(blobmsg_data(attr), data, len);
    }
    return 0;
}

int blobmsg_add_double(struct blob_buf *buf, const char *name, double val) {
    uint64_t bits;
    memcpy(&bits, &val, sizeof(bits));
    bits = htobe64(bits);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_DOUBLE, name, &bits, sizeof(bits));
}

void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array) {
    struct blob_attr *attr = new_value(buf, array ? BLOBMSG_TYPE_ARRAY : BLOBMSG_TYPE_TABLE, name, 0);
    return attr != NULL ? blob_nest_open(buf, attr) : NULL;
}
