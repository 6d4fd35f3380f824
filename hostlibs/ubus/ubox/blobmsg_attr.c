/*
 * Reading blobmsg values: name, data, soundness, members by name or position.
 */
#include <libubox/blobmsg.h>

/* The lengths in a value's payload: of the name, and of the name's header. False where they do not fit the payload. */
static bool read_header(const struct blob_attr *attr, size_t *name_len, size_t *header_len) {
    const size_t len = blob_len(attr);
    if (!blob_is_extended(attr) || len < sizeof(struct blobmsg_hdr)) {
        return false;
    }
    *name_len = blob_get_u16(attr);
    *header_len = (size_t)blobmsg_hdrlen((unsigned int)*name_len);
    return *header_len <= len && attr->data[sizeof(struct blobmsg_hdr) + *name_len] == '\0';
}

const char *blobmsg_name(const struct blob_attr *attr) {
    size_t name_len;
    size_t header_len;
    return read_header(attr, &name_len, &header_len) ? attr->data + sizeof(struct blobmsg_hdr) : "";
}

/* Where the data begin in the payload; its end for a damaged header. */
static size_t data_offset(const struct blob_attr *attr) {
    size_t name_len;
    size_t header_len;
    if (!blob_is_extended(attr)) {
        return 0;
    }
    return read_header(attr, &name_len, &header_len) ? header_len : blob_len(attr);
}

void *blobmsg_data(const struct blob_attr *attr) {
    return (char *)blob_data(attr) + data_offset(attr);
}

size_t blobmsg_data_len(const struct blob_attr *attr) {
    return blob_len(attr) - data_offset(attr);
}

bool blobmsg_check_attr(const struct blob_attr *attr, bool name) {
    static const int data_type[] = {
        [BLOBMSG_TYPE_UNSPEC] = BLOB_ATTR_BINARY, [BLOBMSG_TYPE_ARRAY] = BLOB_ATTR_NESTED,
        [BLOBMSG_TYPE_TABLE] = BLOB_ATTR_NESTED,  [BLOBMSG_TYPE_STRING] = BLOB_ATTR_STRING,
        [BLOBMSG_TYPE_INT64] = BLOB_ATTR_INT64,   [BLOBMSG_TYPE_INT32] = BLOB_ATTR_INT32,
        [BLOBMSG_TYPE_INT16] = BLOB_ATTR_INT16,   [BLOBMSG_TYPE_INT8] = BLOB_ATTR_INT8,
        [BLOBMSG_TYPE_DOUBLE] = BLOB_ATTR_DOUBLE,
    };
    size_t name_len;
    size_t header_len;

    if (!read_header(attr, &name_len, &header_len) || (name && name_len == 0)) {
        return false;
    }
    if (blob_id(attr) > BLOBMSG_TYPE_LAST) {
        return false;
    }
    return blob_check_type(attr->data + header_len, (unsigned int)(blob_len(attr) - header_len),
                           data_type[blob_id(attr)]);
}

bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len) {
    return blob_fits(attr, len) && blobmsg_check_attr(attr, name);
}

bool blobmsg_check_attr_list(const struct blob_attr *attr, int type) {
    return blobmsg_check_array(attr, type) >= 0;
}

int blobmsg_check_array(const struct blob_attr *attr, int type) {
    const bool named = blobmsg_type(attr) == BLOBMSG_TYPE_TABLE;
    struct blob_attr *pos;
    size_t rem;
    int size = 0;

    if (!named && blobmsg_type(attr) != BLOBMSG_TYPE_ARRAY) {
        return -1;
    }
    blobmsg_for_each_attr(pos, attr, rem) {
        if (!blobmsg_check_attr(pos, named) || (type != BLOBMSG_TYPE_UNSPEC && blobmsg_type(pos) != type)) {
            return -1;
        }
        size++;
    }
    return rem == 0 ? size : -1;
}

static bool matches(const struct blob_attr *attr, const struct blobmsg_policy *policy) {
    return policy->type == BLOBMSG_TYPE_UNSPEC || blobmsg_type(attr) == (int)policy->type;
}

static void clear(struct blob_attr **tb, int len) {
    for (int i = 0; i < len; i++) {
        tb[i] = NULL;
    }
}

int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                  unsigned int len) {
    struct blob_attr *pos = NULL;

    clear(tb, policy_len);
    __blob_for_each_attr(pos, data, len) {
        for (int i = 0; i < policy_len; i++) {
            if (policy[i].name == NULL || !matches(pos, &policy[i]) || strcmp(policy[i].name, blobmsg_name(pos)) != 0) {
                continue;
            }
            if (!blobmsg_check_attr(pos, true)) {
                return -1;
            }
            if (tb[i] == NULL) {
                tb[i] = pos;
            }
        }
    }
    return 0;
}

int blobmsg_parse_array(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                        unsigned int len) {
    struct blob_attr *pos = NULL;
    int i = 0;

    clear(tb, policy_len);
    __blob_for_each_attr(pos, data, len) {
        if (i >= policy_len) {
            break;
        }
        if (matches(pos, &policy[i])) {
            if (!blobmsg_check_attr(pos, false)) {
                return -1;
            }
            tb[i] = pos;
        }
        i++;
    }
    return 0;
}

/* Copies a number's bytes; they stay 0 where the data are too short for it. */
static void read_number(const struct blob_attr *attr, void *number, size_t size) {
    if (attr != NULL && blobmsg_data_len(attr) >= size) {
        memcpy(number, blobmsg_data(attr), size);
    }
}

uint8_t blobmsg_get_u8(struct blob_attr *attr) {
    uint8_t value = 0;
    read_number(attr, &value, sizeof(value));
    return value;
}

uint16_t blobmsg_get_u16(struct blob_attr *attr) {
    uint16_t value = 0;
    read_number(attr, &value, sizeof(value));
    return be16toh(value);
}

uint32_t blobmsg_get_u32(struct blob_attr *attr) {
    uint32_t value = 0;
    read_number(attr, &value, sizeof(value));
    return be32toh(value);
}

uint64_t blobmsg_get_u64(struct blob_attr *attr) {
    uint64_t value = 0;
    read_number(attr, &value, sizeof(value));
    return be64toh(value);
}

double blobmsg_get_double(struct blob_attr *attr) {
    const uint64_t bits = blobmsg_get_u64(attr);
    double value;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

char *blobmsg_get_string(struct blob_attr *attr) {
    if (attr == NULL) {
        return NULL;
    }
    char *text = blobmsg_data(attr);
    const size_t len = blobmsg_data_len(attr);
    return len > 0 && text[len - 1] == '\0' ? text : NULL;
}
