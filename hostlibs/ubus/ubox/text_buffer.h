/*
 * A text that grows. Running out of memory is remembered rather than reported at each step, so that what writes the
 * text needs to look only once, at the end.
 */
#ifndef HOSTLIBS_TEXT_BUFFER_H
#define HOSTLIBS_TEXT_BUFFER_H

#include <stdbool.h>
#include <stddef.h>

struct text_buffer {
    char *text;
    size_t used;
    size_t size;
    bool failed; /* set it to give the text up; nothing is added any more */
};

void text_add(struct text_buffer *buffer, const char *bytes, size_t len);
void text_add_string(struct text_buffer *buffer, const char *string);
void text_add_repeated(struct text_buffer *buffer, char byte, int count);

/* Ends the text and hands it to the caller, who frees it; NULL where it failed. The buffer is empty afterwards. */
char *text_finish(struct text_buffer *buffer);

#endif
