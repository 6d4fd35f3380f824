/*
 * Reads a configuration text into a package. The format is a list of statements, each of which is one row of the
 * table below; whatever is not in the table, or has too few or too many words, fails the whole file.
 */
#include "internal.h"

#include <string.h>

struct parser {
    struct uci_package *package;
    struct uci_section *section; /* the one that options belong to; null before the first */
};

/* In a file of its own the package line is decoration: the file's name is what counts. */
static int read_package(struct parser *parser, const char *name, const char *unused) {
    (void)parser;
    (void)unused;
    return uci_valid_package_name(name) ? UCI_OK : UCI_ERR_PARSE;
}

static int read_config(struct parser *parser, const char *type, const char *name) {
    if (!uci_valid_type(type))
        return UCI_ERR_PARSE;
    if (!*name)
        return uci_section_add(parser->package, type, NULL, &parser->section);
    if (!uci_valid_name(name))
        return UCI_ERR_PARSE;
    /* A name that comes again goes on with the same section, which cannot have two types. */
    parser->section = uci_section_find(parser->package, name);
    if (parser->section)
        return strcmp(parser->section->type, type) == 0 ? UCI_OK : UCI_ERR_PARSE;
    return uci_section_add(parser->package, type, name, &parser->section);
}

/* An option without a value is as good as absent, like one that is set to the empty value. */
static int read_option(struct parser *parser, const char *name, const char *value) {
    if (!parser->section || !uci_valid_name(name))
        return UCI_ERR_PARSE;
    if (*value)
        return uci_option_set(parser->section, name, value);
    struct uci_option *earlier = uci_option_find(parser->section, name);
    if (earlier)
        uci_option_free(earlier);
    return UCI_OK;
}

static int read_list(struct parser *parser, const char *name, const char *value) {
    if (!parser->section || !uci_valid_name(name))
        return UCI_ERR_PARSE;
    return uci_option_add_item(parser->section, name, value);
}

static const struct statement {
    const char *keyword;
    int words_min; /* with the keyword; a word that may be left out is read as the empty one */
    int words_max;
    int (*read)(struct parser *parser, const char *first, const char *second);
} statements[] = {
    {"package", 2, 2, read_package},
    {"config", 2, 3, read_config},
    {"option", 2, 3, read_option},
    {"list", 2, 3, read_list},
};

static int read_statement(struct parser *parser, const struct uci_words *words) {
    if (!words->count)
        return UCI_OK;
    for (size_t i = 0; i < sizeof statements / sizeof statements[0]; i++) {
        const struct statement *statement = &statements[i];
        if (strcmp(statement->keyword, words->word[0].data) != 0)
            continue;
        if (words->count < statement->words_min || words->count > statement->words_max)
            return UCI_ERR_PARSE;
        return statement->read(parser, words->word[1].data, words->count > 2 ? words->word[2].data : "");
    }
    return UCI_ERR_PARSE;
}

int uci_parse_config(struct uci_package *package, const char *text, size_t length) {
    struct parser parser = {.package = package};
    struct uci_words words;
    uci_words_init(&words, text, length);
    int err;
    while (!(err = uci_words_next(&words)))
        if ((err = read_statement(&parser, &words)))
            break;
    /* Only the reader of words reports NOTFOUND, at the end of the text. */
    if (err == UCI_ERR_NOTFOUND)
        err = uci_package_name_sections(package);
    uci_words_free(&words);
    return err;
}
