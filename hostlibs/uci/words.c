/*
 * Splits configuration text into statements and words, as a shell would: pieces in single quotes, double quotes and
 * no quotes join to one word, '#' starts a comment, a newline or ';' outside quotes ends the statement.
 */
#include "internal.h"

#include <string.h>

void uci_words_init(struct uci_words *words, const char *text, size_t length) {
    *words = (struct uci_words){.position = text, .end = text ? text + length : text};
}

void uci_words_free(struct uci_words *words) {
    for (int i = 0; i < UCI_WORDS_MAX; i++)
        uci_text_free(&words->word[i]);
}

void uci_words_skip_line(struct uci_words *words) {
    while (words->position != words->end && *words->position != '\n')
        words->position++;
    if (words->position != words->end)
        words->position++;
}

static bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

static bool ends_word(char c) {
    return is_blank(c) || c == '\n' || c == ';' || c == '#';
}

static bool at_line_continuation(const struct uci_words *words) {
    return words->end - words->position >= 2 && words->position[0] == '\\' && words->position[1] == '\n';
}

static void skip_blanks(struct uci_words *words) {
    while (words->position != words->end) {
        if (is_blank(*words->position))
            words->position++;
        else if (at_line_continuation(words))
            words->position += 2;
        else
            break;
    }
}

/* A backslash takes the next character as it is, and a newline away. */
static int read_escape(struct uci_words *words, struct uci_text *word) {
    const char *escaped = words->position + 1;
    if (escaped == words->end || !*escaped)
        return UCI_ERR_PARSE;
    if (*escaped != '\n')
        uci_text_append(word, escaped, 1);
    words->position = escaped + 1;
    return UCI_OK;
}

/* From the opening quote to behind the closing one. A newline in between belongs to the word. */
static int read_quoted(struct uci_words *words, struct uci_text *word) {
    const char quote = *words->position++;
    while (words->position != words->end && *words->position) {
        const char c = *words->position;
        if (c == quote) {
            words->position++;
            return UCI_OK;
        }
        if (c == '\\' && quote == '"') {
            int err = read_escape(words, word);
            if (err)
                return err;
        } else {
            uci_text_append(word, words->position++, 1);
        }
    }
    return UCI_ERR_PARSE;
}

static int read_word(struct uci_words *words, struct uci_text *word) {
    /* Appending nothing makes the empty word '' a text as well. */
    uci_text_append(word, "", 0);
    while (words->position != words->end && !ends_word(*words->position)) {
        const char c = *words->position;
        int err = UCI_OK;
        if (c == '\'' || c == '"')
            err = read_quoted(words, word);
        else if (c == '\\')
            err = read_escape(words, word);
        else if (c)
            uci_text_append(word, words->position++, 1);
        else
            err = UCI_ERR_PARSE; /* a NUL: this is no text file */
        if (err)
            return err;
    }
    return word->failed ? UCI_ERR_MEM : UCI_OK;
}

int uci_words_next(struct uci_words *words) {
    if (words->position == words->end)
        return UCI_ERR_NOTFOUND;
    words->count = 0;
    words->terminated = false;
    for (;;) {
        skip_blanks(words);
        if (words->position == words->end)
            return UCI_OK;
        const char c = *words->position;
        if (c == ';') {
            words->position++;
            return UCI_OK;
        }
        if (c == '\n' || c == '#') {
            const char *newline = memchr(words->position, '\n', (size_t)(words->end - words->position));
            words->terminated = newline != NULL;
            words->position = newline ? newline + 1 : words->end;
            return UCI_OK;
        }
        if (words->count == UCI_WORDS_MAX)
            return UCI_ERR_PARSE;
        struct uci_text *word = &words->word[words->count];
        uci_text_clear(word);
        int err = read_word(words, word);
        if (err)
            return err;
        words->count++;
    }
}
