/*
 * blobmsg: named, typed values in blob attributes, what JSON's are to a text.
 *
 * A value is an extended attribute whose id is its type. The payload starts with the length of the name, 16 bits
 * big-endian, the name and a NUL, padded to four together; the data follow, big-endian. Tables and arrays hold values,
 * those of an array with empty names.
 */
#ifndef HOSTLIBS_LIBUBOX_BLOBMSG_H
#define HOSTLIBS_LIBUBOX_BLOBMSG_H

#include "blob.h"

#ifdef __cplusplus
extern "C" {
#endif

#define BLOBMSG_ALIGN        2
#define BLOBMSG_PADDING(len) (((len) + (1 << BLOBMSG_ALIGN) - 1) & ~((1 << BLOBMSG_ALIGN) - 1))

enum blobmsg_type {
    BLOBMSG_TYPE_UNSPEC,
    BLOBMSG_TYPE_ARRAY,
    BLOBMSG_TYPE_TABLE,
    BLOBMSG_TYPE_STRING,
    BLOBMSG_TYPE_INT64,
    BLOBMSG_TYPE_INT32,
    BLOBMSG_TYPE_INT16,
    BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_DOUBLE,
    __BLOBMSG_TYPE_LAST,
    BLOBMSG_TYPE_LAST = __BLOBMSG_TYPE_LAST - 1,
    BLOBMSG_TYPE_BOOL = BLOBMSG_TYPE_INT8
};

struct blobmsg_hdr {
    uint16_t namelen;
    uint8_t name[];
} __attribute__((packed));

/* A member to look for: its name and type, BLOBMSG_TYPE_UNSPEC for any. */
struct blobmsg_policy {
    const char *name;
    enum blobmsg_type type;
};

/* The bytes that a name of this length takes before the data. */
static inline int blobmsg_hdrlen(unsigned int namelen) {
    return BLOBMSG_PADDING((int)(sizeof(struct blobmsg_hdr) + namelen + 1));
}

static inline int blobmsg_type(const struct blob_attr *attr) {
    return (int)blob_id(attr);
}

/* The name; "" where there is none or its header is damaged. */
const char *blobmsg_name(const struct blob_attr *attr);

/*
 * The data and their length. A plain attribute, such as the one that holds a reply, has no name and is all data; a
 * value with a damaged header has none.
 */
void *blobmsg_data(const struct blob_attr *attr);
size_t blobmsg_data_len(const struct blob_attr *attr);

static inline size_t blobmsg_len(const struct blob_attr *attr) {
    return blobmsg_data_len(attr);
}

/*
 * Whether the attribute is a sound value: its name ends where it says (and is not empty, if `name`), the data have the
 * length of the type, a text has its NUL. The members of tables and arrays are not looked at. The second form also
 * checks that the attribute fits `len` bytes of memory.
 */
bool blobmsg_check_attr(const struct blob_attr *attr, bool name);
bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len);

/* Whether all members are sound and of the type (UNSPEC: any); the number of members of an array or table, or -1. */
bool blobmsg_check_attr_list(const struct blob_attr *attr, int type);
int blobmsg_check_array(const struct blob_attr *attr, int type);

/*
 * Look for the policy's members, the first of each name and type, in a table's (array's: by position) data. tb[] has
 * policy_len places; what is not there is NULL. Returns 0, -1 where a value that was looked at is not sound.
 */
int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                  unsigned int len);
int blobmsg_parse_array(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                        unsigned int len);

static inline int blobmsg_parse_attr(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                                     struct blob_attr *data) {
    return blobmsg_parse(policy, policy_len, tb, blobmsg_data(data), (unsigned int)blobmsg_data_len(data));
}

/* The data as a value; 0 (NULL for a text) where they do not hold one, or there is no attribute. */
uint8_t blobmsg_get_u8(struct blob_attr *attr);
uint16_t blobmsg_get_u16(struct blob_attr *attr);
uint32_t blobmsg_get_u32(struct blob_attr *attr);
uint64_t blobmsg_get_u64(struct blob_attr *attr);
double blobmsg_get_double(struct blob_attr *attr);
char *blobmsg_get_string(struct blob_attr *attr);

static inline bool blobmsg_get_bool(struct blob_attr *attr) {
    return blobmsg_get_u8(attr) != 0;
}

/* Append a value to the open table or array. 0, or -1 without memory or with a name or data that are too long. */
int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len);
int blobmsg_add_double(struct blob_buf *buf, const char *name, double val);

static inline int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val) {
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT8, name, &val, sizeof(val));
}

static inline int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val) {
    val = htobe16(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT16, name, &val, sizeof(val));
}

static inline int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val) {
    val = htobe32(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT32, name, &val, sizeof(val));
}

static inline int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val) {
    val = htobe64(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT64, name, &val, sizeof(val));
}

static inline int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string) {
    return blobmsg_add_field(buf, BLOBMSG_TYPE_STRING, name, string, (unsigned int)strlen(string) + 1);
}

/* Appends a copy of a value, name and all. */
static inline int blobmsg_add_blob(struct blob_buf *buf, struct blob_attr *attr) {
    return blobmsg_add_field(buf, blobmsg_type(attr), blobmsg_name(attr), blobmsg_data(attr),
                             (unsigned int)blobmsg_data_len(attr));
}

/* Opens a table or array that the next values go into; the result is what closes it, NULL on failure. */
void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);

static inline void *blobmsg_open_array(struct blob_buf *buf, const char *name) {
    return blobmsg_open_nested(buf, name, true);
}

static inline void *blobmsg_open_table(struct blob_buf *buf, const char *name) {
    return blobmsg_open_nested(buf, name, false);
}

static inline void blobmsg_close_array(struct blob_buf *buf, void *cookie) {
    blob_nest_end(buf, cookie);
}

static inline void blobmsg_close_table(struct blob_buf *buf, void *cookie) {
    blob_nest_end(buf, cookie);
}

/* Starts a message of values; the type of the outer attribute is a table. */
static inline int blobmsg_buf_init(struct blob_buf *buf) {
    return blob_buf_init(buf, BLOBMSG_TYPE_TABLE);
}

/* Walk the members of a table, an array, or a reply. */
#define blobmsg_for_each_attr(pos, attr, rem)                                                                          \
    for ((rem) = (__typeof__(rem))((attr) ? blobmsg_data_len(attr) : 0),                                               \
        (pos) = (struct blob_attr *)((attr) ? blobmsg_data(attr) : NULL);                                              \
         blob_fits((pos), (size_t)(rem));                                                                              \
         (rem) = (__typeof__(rem))((size_t)(rem)-blob_pad_len(pos)), (pos) = blob_next(pos))

#ifdef __cplusplus
}
#endif

#endif
