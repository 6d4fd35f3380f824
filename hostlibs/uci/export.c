/* Writes a package in the file format, so that reading the text gives the same package again. */
#include "internal.h"

#include <string.h>

/* A type may have any printable character; what means something to the reader is quoted. */
static void append_type(struct uci_text *text, const char *type) {
    if (type[strcspn(type, "'\"\\#;")])
        uci_text_append_quoted(text, type);
    else
        uci_text_append_string(text, type);
}

static void append_value(struct uci_text *text, const char *keyword, const char *name, const char *value) {
    uci_text_append_string(text, "\t");
    uci_text_append_string(text, keyword);
    uci_text_append_string(text, " ");
    uci_text_append_string(text, name);
    uci_text_append_string(text, " ");
    uci_text_append_quoted(text, value);
    uci_text_append_string(text, "\n");
}

static void append_section(struct uci_text *text, const struct uci_section *section) {
    uci_text_append_string(text, "\nconfig ");
    append_type(text, section->type);
    if (!section->anonymous) {
        uci_text_append_string(text, " ");
        uci_text_append_quoted(text, section->e.name);
    }
    uci_text_append_string(text, "\n");
    struct uci_element *e, *item;
    uci_foreach_element(&section->options, e) {
        const struct uci_option *option = uci_to_option(e);
        if (option->type == UCI_TYPE_STRING)
            append_value(text, "option", e->name, option->v.string);
        else
            uci_foreach_element(&option->v.list, item) append_value(text, "list", e->name, item->name);
    }
}

void uci_export_config(const struct uci_package *package, struct uci_text *text) {
    struct uci_element *e;
    uci_foreach_element(&package->sections, e) append_section(text, uci_to_section(e));
}
