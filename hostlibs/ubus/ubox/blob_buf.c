/*
 * Writing blob attributes into a buffer that grows.
 *
 * New attributes go behind the last byte of `head`, the innermost open attribute, which always lies at the end of the
 * message. So an open attribute's length is set when it is closed: from where it begins to where its last member ends.
 */
#include "blob_private.h"

#include <stdlib.h>

enum { GROWTH = 256 };

static size_t offset_of(const struct blob_buf *buf, const struct blob_attr *attr) {
    return (size_t)((const char *)attr - (const char *)buf->buf);
}

static struct blob_attr *attr_at(const struct blob_buf *buf, size_t offset) {
    return (struct blob_attr *)((char *)buf->buf + offset);
}

static bool grow_by_realloc(struct blob_buf *buf, int minlen) {
    const size_t size = ((size_t)minlen / GROWTH + 1) * GROWTH;
    void *larger = realloc(buf->buf, size);
    if (larger == NULL) {
        return false;
    }
    memset((char *)larger + buf->buflen, 0, size - (size_t)buf->buflen);
    buf->buf = larger;
    buf->buflen = (int)size;
    return true;
}

/* Makes room for `end` bytes in all; what a header's length cannot say is too much. */
static bool reserve(struct blob_buf *buf, size_t end) {
    if (end > BLOB_ATTR_LEN_MASK) {
        return false;
    }
    return end <= (size_t)buf->buflen || blob_buf_grow(buf, (int)(end - (size_t)buf->buflen));
}

bool blob_buf_grow(struct blob_buf *buf, int required) {
    const size_t head = buf->head != NULL ? offset_of(buf, buf->head) : 0;
    if (required < 0 || (size_t)buf->buflen + (size_t)required > BLOB_ATTR_LEN_MASK) {
        return false;
    }
    if (buf->grow == NULL || !buf->grow(buf, buf->buflen + required)) {
        return false;
    }
    if (buf->head != NULL) {
        buf->head = attr_at(buf, head);
    }
    return true;
}

static uint32_t header(int id, size_t len) {
    return htobe32((((uint32_t)id << BLOB_ATTR_ID_SHIFT) & BLOB_ATTR_ID_MASK) | (uint32_t)len);
}

int blob_buf_init(struct blob_buf *buf, int id) {
    if (buf->grow == NULL) {
        buf->grow = grow_by_realloc;
    }
    if (!reserve(buf, sizeof(struct blob_attr))) {
        return -1;
    }
    buf->head = attr_at(buf, 0);
    buf->head->id_len = header(id, sizeof(struct blob_attr));
    return 0;
}

void blob_buf_free(struct blob_buf *buf) {
    free(buf->buf);
    buf->buf = NULL;
    buf->head = NULL;
    buf->buflen = 0;
}

void blob_set_raw_len(struct blob_attr *attr, unsigned int len) {
    attr->id_len = (attr->id_len & ~htobe32(BLOB_ATTR_LEN_MASK)) | htobe32(len & BLOB_ATTR_LEN_MASK);
}

void blob_fill_pad(struct blob_attr *attr) {
    memset((char *)attr + blob_raw_len(attr), 0, blob_pad_len(attr) - blob_raw_len(attr));
}

/* Lets `head` end where its last member, padding included, does. */
static void extend_head(struct blob_buf *buf, const struct blob_attr *last) {
    blob_set_raw_len(buf->head, (unsigned int)(offset_of(buf, last) - offset_of(buf, buf->head) + blob_pad_len(last)));
}

struct blob_attr *blob_new(struct blob_buf *buf, int id, int payload) {
    if (buf->head == NULL || payload < 0 || (size_t)payload > BLOB_ATTR_LEN_MASK) {
        return NULL;
    }
    const size_t start = offset_of(buf, buf->head) + blob_pad_len(buf->head);
    const size_t len = sizeof(struct blob_attr) + (size_t)payload;
    const size_t padded = (len + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1);
    if (!reserve(buf, start + padded)) {
        return NULL;
    }
    struct blob_attr *attr = attr_at(buf, start);
    memset(attr, 0, padded);
    attr->id_len = header(id, len);
    extend_head(buf, attr);
    return attr;
}

struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len) {
    if (len > BLOB_ATTR_LEN_MASK) {
        return NULL;
    }
    struct blob_attr *attr = blob_new(buf, id, (int)len);
    if (attr != NULL && ptr != NULL && len > 0) {
        memcpy(attr->data, ptr, len);
    }
    return attr;
}

struct blob_attr *blob_put_raw(struct blob_buf *buf, const void *ptr, unsigned int len) {
    if (ptr == NULL || len < sizeof(struct blob_attr) || len > BLOB_ATTR_LEN_MASK || len % BLOB_ATTR_ALIGN != 0) {
        return NULL;
    }
    struct blob_attr *attr = blob_new(buf, 0, (int)(len - sizeof(struct blob_attr)));
    if (attr != NULL) {
        memcpy(attr, ptr, len);
    }
    return attr;
}

/* The cookie is the offset of the attribute that was open before, plus one so that it is never NULL. */
void *blob_nest_open(struct blob_buf *buf, struct blob_attr *attr) {
    void *cookie = (void *)(uintptr_t)(offset_of(buf, buf->head) + 1);
    buf->head = attr;
    return cookie;
}

void *blob_nest_start(struct blob_buf *buf, int id) {
    struct blob_attr *attr = blob_new(buf, id, 0);
    return attr != NULL ? blob_nest_open(buf, attr) : NULL;
}

void blob_nest_end(struct blob_buf *buf, void *cookie) {
    if (cookie == NULL || buf->head == NULL) {
        return;
    }
    const struct blob_attr *closed = buf->head;
    buf->head = attr_at(buf, (size_t)(uintptr_t)cookie - 1);
    extend_head(buf, closed);
}
