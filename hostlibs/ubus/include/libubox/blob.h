/*
 * blob: the attributes that ubus messages are made of.
 *
 * An attribute is a big-endian word (bit 31 "extended", bits 30 to 24 the id, bits 23 to 0 the length with these four
 * bytes) and its payload. The next attribute starts at the length rounded up to four.
 *
 * Attributes come from other programs, so no length is believed without a look: what is too short for a getter reads as
 * 0, a text without its end as NULL, and the loops end at the first attribute that does not fit. Only whether the
 * outermost attribute's memory is as long as it says cannot be seen from the attribute: blob_parse_untrusted() is told.
 */
#ifndef HOSTLIBS_LIBUBOX_BLOB_H
#define HOSTLIBS_LIBUBOX_BLOB_H

#include <endian.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

#define BLOB_ATTR_EXTENDED 0x80000000u
#define BLOB_ATTR_ID_MASK  0x7f000000u
#define BLOB_ATTR_ID_SHIFT 24
#define BLOB_ATTR_LEN_MASK 0x00ffffffu
#define BLOB_ATTR_ALIGN    4

enum {
    BLOB_ATTR_UNSPEC,
    BLOB_ATTR_NESTED,
    BLOB_ATTR_BINARY,
    BLOB_ATTR_STRING,
    BLOB_ATTR_INT8,
    BLOB_ATTR_INT16,
    BLOB_ATTR_INT32,
    BLOB_ATTR_INT64,
    BLOB_ATTR_DOUBLE,
    BLOB_ATTR_LAST
};

/* Packed: an attribute may lie anywhere in a received message. */
struct blob_attr {
    uint32_t id_len;
    char data[];
} __attribute__((packed));

/* What blob_parse() demands of an attribute; the lengths are of the payload, 0 is "no limit". */
struct blob_attr_info {
    unsigned int type;
    unsigned int minlen;
    unsigned int maxlen;
    bool (*validate)(const struct blob_attr_info *info, struct blob_attr *attr);
};

/*
 * A message being written. Set it to zero, then blob_buf_init(). `head` is the attribute that new ones go into: the
 * message itself, or the innermost open table.
 */
struct blob_buf {
    struct blob_attr *head;
    bool (*grow)(struct blob_buf *buf, int minlen);
    int buflen;
    void *buf;
};

/* The payload. */
static inline void *blob_data(const struct blob_attr *attr) {
    return (void *)(uintptr_t)attr->data;
}

static inline unsigned int blob_id(const struct blob_attr *attr) {
    return (be32toh(attr->id_len) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT;
}

static inline bool blob_is_extended(const struct blob_attr *attr) {
    return (be32toh(attr->id_len) & BLOB_ATTR_EXTENDED) != 0;
}

/* The length with the header. */
static inline size_t blob_raw_len(const struct blob_attr *attr) {
    return be32toh(attr->id_len) & BLOB_ATTR_LEN_MASK;
}

/* The length of the payload; 0 too where the length is shorter than the header. */
static inline size_t blob_len(const struct blob_attr *attr) {
    const size_t raw = blob_raw_len(attr);
    return raw > sizeof(struct blob_attr) ? raw - sizeof(struct blob_attr) : 0;
}

/* The length with the header and the padding behind: the distance to the next attribute. */
static inline size_t blob_pad_len(const struct blob_attr *attr) {
    return (blob_raw_len(attr) + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1);
}

static inline struct blob_attr *blob_next(const struct blob_attr *attr) {
    return (struct blob_attr *)((uintptr_t)attr + blob_pad_len(attr));
}

/* Whether a whole attribute, with its padding, stands at the beginning of `rem` bytes. */
static inline bool blob_fits(const struct blob_attr *attr, size_t rem) {
    return attr != NULL && rem >= sizeof(struct blob_attr) && blob_raw_len(attr) >= sizeof(struct blob_attr) &&
           blob_pad_len(attr) <= rem;
}

/* Walk the attributes in `rem` bytes from `attr` on. `rem` is the caller's variable, an int or a size_t. */
#define __blob_for_each_attr(pos, attr, rem)                                                                           \
    for ((pos) = (struct blob_attr *)(attr); blob_fits((pos), (size_t)(rem));                                          \
         (rem) = (__typeof__(rem))((size_t)(rem)-blob_pad_len(pos)), (pos) = blob_next(pos))

/* Walk the attributes inside `attr`. */
#define blob_for_each_attr(pos, attr, rem)                                                                             \
    for ((rem) = (__typeof__(rem))((attr) ? blob_len(attr) : 0),                                                       \
        (pos) = (struct blob_attr *)((attr) ? blob_data(attr) : NULL);                                                 \
         blob_fits((pos), (size_t)(rem));                                                                              \
         (rem) = (__typeof__(rem))((size_t)(rem)-blob_pad_len(pos)), (pos) = blob_next(pos))

/* The payload as a value; 0 (NULL for a text) where the payload does not hold one. */
uint8_t blob_get_u8(const struct blob_attr *attr);
uint16_t blob_get_u16(const struct blob_attr *attr);
uint32_t blob_get_u32(const struct blob_attr *attr);
uint64_t blob_get_u64(const struct blob_attr *attr);
const char *blob_get_string(const struct blob_attr *attr);

static inline int8_t blob_get_int8(const struct blob_attr *attr) {
    return (int8_t)blob_get_u8(attr);
}

static inline int16_t blob_get_int16(const struct blob_attr *attr) {
    return (int16_t)blob_get_u16(attr);
}

static inline int32_t blob_get_int32(const struct blob_attr *attr) {
    return (int32_t)blob_get_u32(attr);
}

static inline int64_t blob_get_int64(const struct blob_attr *attr) {
    return (int64_t)blob_get_u64(attr);
}

/* Whether `len` bytes at `ptr` are a value of the type (BLOB_ATTR_...). */
bool blob_check_type(const void *ptr, unsigned int len, int type);

/*
 * Sorts the attributes inside `attr` into data[0 .. max-1] by their ids, the last of equals; those of another id, type
 * or length than `info` asks for are left out (their places stay NULL). `info` may be NULL. Returns the number of
 * entries found. The untrusted variant first checks that `attr` fits the `attr_len` bytes it stands in.
 */
int blob_parse(struct blob_attr *attr, struct blob_attr **data, const struct blob_attr_info *info, int max);
int blob_parse_untrusted(struct blob_attr *attr, size_t attr_len, struct blob_attr **data,
                         const struct blob_attr_info *info, int max);

/* Whether two attributes are the same bytes. */
bool blob_attr_equal(const struct blob_attr *a1, const struct blob_attr *a2);

/* A copy that the caller releases with free(); NULL without memory. */
struct blob_attr *blob_memdup(struct blob_attr *attr);

/* Starts a message whose outer attribute has the id, keeping the buffer's memory. Returns 0, negative without memory.
 */
int blob_buf_init(struct blob_buf *buf, int id);
void blob_buf_free(struct blob_buf *buf);

/* Makes the memory `required` bytes larger; pointers into the buffer do not survive it. */
bool blob_buf_grow(struct blob_buf *buf, int required);

/* Writes a header's length or fills the padding behind an attribute with zeros. */
void blob_set_raw_len(struct blob_attr *attr, unsigned int len);
void blob_fill_pad(struct blob_attr *attr);

/*
 * Append an attribute to `head`. The result, and every pointer into the buffer, holds until the next append. NULL where
 * memory or the 24 bits of the length do not suffice; the message is then as before.
 */
struct blob_attr *blob_new(struct blob_buf *buf, int id, int payload);
struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len);
/* Appends attributes that are ready in memory, header and all. */
struct blob_attr *blob_put_raw(struct blob_buf *buf, const void *ptr, unsigned int len);

/* Opens an attribute that the next ones go into; the result is what blob_nest_end() takes, NULL on failure. */
void *blob_nest_start(struct blob_buf *buf, int id);
void blob_nest_end(struct blob_buf *buf, void *cookie);

static inline struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *str) {
    return blob_put(buf, id, str, (unsigned int)strlen(str) + 1);
}

static inline struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t val) {
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u16(struct blob_buf *buf, int id, uint16_t val) {
    val = htobe16(val);
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t val) {
    val = htobe32(val);
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u64(struct blob_buf *buf, int id, uint64_t val) {
    val = htobe64(val);
    return blob_put(buf, id, &val, sizeof(val));
}

#define blob_put_int8  blob_put_u8
#define blob_put_int16 blob_put_u16
#define blob_put_int32 blob_put_u32
#define blob_put_int64 blob_put_u64

#ifdef __cplusplus
}
#endif

#endif
