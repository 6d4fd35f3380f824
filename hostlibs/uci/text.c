/*
 * Text that grows as it is appended to. A failed allocation is remembered, so that a writer appends everything and
 * asks once at the end.
 */
#include "internal.h"

#include <stdlib.h>
#include <string.h>

static bool reserve(struct uci_text *text, size_t more) {
    if (text->failed)
        return false;
    if (more >= SIZE_MAX / 2 - text->length) {
        text->failed = true;
        return false;
    }
    size_t needed = text->length + more + 1;
    if (needed <= text->capacity)
        return true;
    size_t capacity = text->capacity ? text->capacity : 64;
    while (capacity < needed)
        capacity *= 2;
    char *data = realloc(text->data, capacity);
    if (!data) {
        text->failed = true;
        return false;
    }
    text->data = data;
    text->capacity = capacity;
    return true;
}

void uci_text_append(struct uci_text *text, const char *bytes, size_t length) {
    if (!reserve(text, length))
        return;
    if (length)
        memcpy(text->data + text->length, bytes, length);
    text->length += length;
    text->data[text->length] = '\0';
}

void uci_text_append_string(struct uci_text *text, const char *string) {
    uci_text_append(text, string, strlen(string));
}

void uci_text_append_quoted(struct uci_text *text, const char *string) {
    uci_text_append(text, "'", 1);
    for (;;) {
        size_t plain = strcspn(string, "'");
        uci_text_append(text, string, plain);
        if (!string[plain])
            break;
        uci_text_append_string(text, "'\\''");
        string += plain + 1;
    }
    uci_text_append(text, "'", 1);
}

void uci_text_clear(struct uci_text *text) {
    text->length = 0;
    if (text->data)
        text->data[0] = '\0';
}

void uci_text_free(struct uci_text *text) {
    free(text->data);
    *text = (struct uci_text){0};
}
