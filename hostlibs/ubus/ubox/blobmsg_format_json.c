/*
 * blobmsg values to JSON text that any JSON reader accepts, whatever the message holds.
 */
#include <libubox/blobmsg_json.h>

#include <inttypes.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "text_buffer.h"

/* json-c's reader takes no more than these tables and arrays in each other by default; it also bounds our own stack. */
enum { MAX_DEPTH = 31 };

struct writer {
    struct text_buffer out;
    int max_depth;
    bool pretty; /* one member a line, indented with tabs */
    int base_indent;
};

static void new_line(struct writer *writer, int depth) {
    if (writer->pretty) {
        text_add_string(&writer->out, "\n");
        text_add_repeated(&writer->out, '\t', writer->base_indent + depth);
    }
}

/* The letter of a two-character escape; 0 for none. */
static char short_escape(unsigned char byte) {
    switch (byte) {
    case '"':
    case '\\':
        return (char)byte;
    case '\b':
        return 'b';
    case '\f':
        return 'f';
    case '\n':
        return 'n';
    case '\r':
        return 'r';
    case '\t':
        return 't';
    default:
        return 0;
    }
}

/* Bytes from 128 on go out as they are: UTF-8 if they were. */
static void write_string(struct writer *writer, const char *string) {
    text_add_string(&writer->out, "\"");
    for (; *string != '\0'; string++) {
        const unsigned char byte = (unsigned char)*string;
        const char letter = short_escape(byte);
        if (letter != 0) {
            text_add(&writer->out, (const char[]){'\\', letter}, 2);
        } else if (byte < ' ') {
            char escape[sizeof("\\u0000")];
            snprintf(escape, sizeof(escape), "\\u%04x", byte);
            text_add_string(&writer->out, escape);
        } else {
            text_add(&writer->out, string, 1);
        }
    }
    text_add_string(&writer->out, "\"");
}

static void write_integer(struct writer *writer, int64_t value) {
    char digits[sizeof("-9223372036854775808")];
    snprintf(digits, sizeof(digits), "%" PRId64, value);
    text_add_string(&writer->out, digits);
}

/*
 * The shortest form that reads back as the same number, and as a fractional one. JSON has no infinities: null. The host
 * program may have set a locale with a decimal comma, so what is neither digit, sign nor exponent becomes a point.
 */
static void write_double(struct writer *writer, double value) {
    char digits[64];
    bool fractional = false;

    if (!isfinite(value)) {
        text_add_string(&writer->out, "null");
        return;
    }
    for (int precision = 15; precision <= 17; precision++) {
        snprintf(digits, sizeof(digits), "%.*g", precision, value);
        if (strtod(digits, NULL) == value) {
            break;
        }
    }
    for (const char *digit = digits; *digit != '\0'; digit++) {
        if (strchr("0123456789+-e", *digit) != NULL) {
            fractional = fractional || *digit == 'e';
            text_add(&writer->out, digit, 1);
        } else if (!fractional) {
            fractional = true;
            text_add_string(&writer->out, ".");
        }
    }
    if (!fractional) {
        text_add_string(&writer->out, ".0");
    }
}

static void write_members(struct writer *writer, const struct blob_attr *first, size_t len, bool array, int depth);

/* `attr` has passed blobmsg_check_attr(). */
static void write_value(struct writer *writer, struct blob_attr *attr, int depth) {
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_ARRAY:
    case BLOBMSG_TYPE_TABLE:
        write_members(writer, blobmsg_data(attr), blobmsg_data_len(attr), blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY,
                      depth);
        break;
    case BLOBMSG_TYPE_STRING:
        write_string(writer, blobmsg_get_string(attr));
        break;
    case BLOBMSG_TYPE_INT64:
        write_integer(writer, (int64_t)blobmsg_get_u64(attr));
        break;
    case BLOBMSG_TYPE_INT32:
        write_integer(writer, (int32_t)blobmsg_get_u32(attr));
        break;
    case BLOBMSG_TYPE_INT16:
        write_integer(writer, (int16_t)blobmsg_get_u16(attr));
        break;
    case BLOBMSG_TYPE_INT8:
        text_add_string(&writer->out, blobmsg_get_bool(attr) ? "true" : "false");
        break;
    case BLOBMSG_TYPE_DOUBLE:
        write_double(writer, blobmsg_get_double(attr));
        break;
    default:
        text_add_string(&writer->out, "null");
        break;
    }
}

static void write_name(struct writer *writer, const struct blob_attr *attr) {
    write_string(writer, blobmsg_name(attr));
    text_add_string(&writer->out, writer->pretty ? ": " : ":");
}

static void write_members(struct writer *writer, const struct blob_attr *first, size_t len, bool array, int depth) {
    struct blob_attr *pos = NULL;
    bool empty = true;

    if (depth >= writer->max_depth) {
        writer->out.failed = true;
        return;
    }
    text_add_string(&writer->out, array ? "[" : "{");
    __blob_for_each_attr(pos, first, len) {
        if (!blobmsg_check_attr(pos, false)) {
            continue;
        }
        if (!empty) {
            text_add_string(&writer->out, ",");
        }
        empty = false;
        new_line(writer, depth + 1);
        if (!array) {
            write_name(writer, pos);
        }
        write_value(writer, pos, depth + 1);
        if (writer->out.failed) {
            return;
        }
    }
    if (!empty) {
        new_line(writer, depth);
    }
    text_add_string(&writer->out, array ? "]" : "}");
}

char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent) {
    struct writer writer = {.max_depth = MAX_DEPTH, .pretty = indent >= 0, .base_indent = indent > 0 ? indent : 0};

    if (attr == NULL) {
        return NULL;
    }
    if (list) {
        const bool array = blob_is_extended(attr) && blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY;
        write_members(&writer, blobmsg_data(attr), blobmsg_data_len(attr), array, 0);
    } else if (blobmsg_check_attr(attr, false)) {
        if (blobmsg_name(attr)[0] != '\0') {
            /* The text is a member of an object that the caller writes around it. */
            writer.max_depth--;
            write_name(&writer, attr);
        }
        write_value(&writer, attr, 0);
    } else {
        return NULL;
    }
    return text_finish(&writer.out);
}
