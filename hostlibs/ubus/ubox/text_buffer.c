/*
 * A text that grows by doubling.
 */
#include "text_buffer.h"

#include <stdlib.h>
#include <string.h>

enum { FIRST_SIZE = 256 };

static bool reserve(struct text_buffer *buffer, size_t len) {
    if (buffer->failed) {
        return false;
    }
    if (len <= buffer->size - buffer->used) {
        return true;
    }
    size_t size = buffer->size != 0 ? buffer->size : FIRST_SIZE;
    while (size - buffer->used < len) {
        size *= 2;
    }
    char *larger = realloc(buffer->text, size);
    if (larger == NULL) {
        buffer->failed = true;
        return false;
    }
    buffer->text = larger;
    buffer->size = size;
    return true;
}

void text_add(struct text_buffer *buffer, const char *bytes, size_t len) {
    if (len > 0 && reserve(buffer, len)) {
        memcpy(buffer->text + buffer->used, bytes, len);
        buffer->used += len;
    }
}

void text_add_string(struct text_buffer *buffer, const char *string) {
    text_add(buffer, string, strlen(string));
}

void text_add_repeated(struct text_buffer *buffer, char byte, int count) {
    while (count-- > 0) {
        text_add(buffer, &byte, 1);
    }
}

char *text_finish(struct text_buffer *buffer) {
    text_add(buffer, "", 1);
    char *text = buffer->text;
    if (buffer->failed) {
        free(text);
        text = NULL;
    }
    *buffer = (struct text_buffer){0};
    return text;
}
