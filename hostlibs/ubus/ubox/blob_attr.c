/*
 * Reading blob attributes: values, sorting by id, comparing, copying.
 */
#include <libubox/blob.h>

#include <stdlib.h>

uint8_t blob_get_u8(const struct blob_attr *attr) {
    return blob_len(attr) >= 1 ? (uint8_t)attr->data[0] : 0;
}

uint16_t blob_get_u16(const struct blob_attr *attr) {
    uint16_t value = 0;
    if (blob_len(attr) >= sizeof(value)) {
        memcpy(&value, attr->data, sizeof(value));
    }
    return be16toh(value);
}

uint32_t blob_get_u32(const struct blob_attr *attr) {
    uint32_t value = 0;
    if (blob_len(attr) >= sizeof(value)) {
        memcpy(&value, attr->data, sizeof(value));
    }
    return be32toh(value);
}

uint64_t blob_get_u64(const struct blob_attr *attr) {
    uint64_t value = 0;
    if (blob_len(attr) >= sizeof(value)) {
        memcpy(&value, attr->data, sizeof(value));
    }
    return be64toh(value);
}

const char *blob_get_string(const struct blob_attr *attr) {
    const size_t len = blob_len(attr);
    return len > 0 && attr->data[len - 1] == '\0' ? attr->data : NULL;
}

bool blob_check_type(const void *ptr, unsigned int len, int type) {
    static const unsigned int number_len[BLOB_ATTR_LAST] = {
        [BLOB_ATTR_INT8] = 1,  [BLOB_ATTR_INT16] = 2,  [BLOB_ATTR_INT32] = 4,
        [BLOB_ATTR_INT64] = 8, [BLOB_ATTR_DOUBLE] = 8,
    };

    if (type < 0 || type >= BLOB_ATTR_LAST) {
        return false;
    }
    if (type == BLOB_ATTR_STRING) {
        return len > 0 && ((const char *)ptr)[len - 1] == '\0';
    }
    return number_len[type] == 0 || len == number_len[type];
}

static bool satisfies(struct blob_attr *attr, const struct blob_attr_info *info) {
    const size_t len = blob_len(attr);
    if (!blob_check_type(blob_data(attr), (unsigned int)len, (int)info->type)) {
        return false;
    }
    if (len < info->minlen || (info->maxlen != 0 && len > info->maxlen)) {
        return false;
    }
    return info->validate == NULL || info->validate(info, attr);
}

int blob_parse(struct blob_attr *attr, struct blob_attr **data, const struct blob_attr_info *info, int max) {
    struct blob_attr *pos;
    size_t rem;
    int found = 0;

    for (int i = 0; i < max; i++) {
        data[i] = NULL;
    }
    blob_for_each_attr(pos, attr, rem) {
        const int id = (int)blob_id(pos);
        if (id >= max || (info != NULL && !satisfies(pos, &info[id]))) {
            continue;
        }
        found += data[id] == NULL;
        data[id] = pos;
    }
    return found;
}

int blob_parse_untrusted(struct blob_attr *attr, size_t attr_len, struct blob_attr **data,
                         const struct blob_attr_info *info, int max) {
    if (attr == NULL || attr_len < sizeof(*attr) || blob_raw_len(attr) < sizeof(*attr) ||
        blob_raw_len(attr) > attr_len) {
        attr = NULL;
    }
    return blob_parse(attr, data, info, max);
}

bool blob_attr_equal(const struct blob_attr *a1, const struct blob_attr *a2) {
    if (a1 == NULL || a2 == NULL) {
        return a1 == a2;
    }
    return a1->id_len == a2->id_len && memcmp(a1->data, a2->data, blob_len(a1)) == 0;
}

struct blob_attr *blob_memdup(struct blob_attr *attr) {
    const size_t len = blob_len(attr);
    struct blob_attr *copy = calloc(1, (sizeof(*attr) + len + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1));
    if (copy != NULL) {
        memcpy(copy, attr, sizeof(*attr) + len);
    }
    return copy;
}
