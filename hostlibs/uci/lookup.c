/*
 * From the text "package.section.option=value" to what it names. A section is named, or with the extended syntax
 * counted among those of its type: @type[0] is the first, @type[-1] the last, @[2] the third of any type.
 */
#include "internal.h"

#include <stdlib.h>
#include <string.h>

/* Ends the text at the separator and returns what follows it, or null. */
static char *cut(char *text, char separator) {
    char *at = text ? strchr(text, separator) : NULL;
    if (!at)
        return NULL;
    *at = '\0';
    return at + 1;
}

void uci_split_path(char *str, struct uci_ptr *ptr) {
    *ptr = (struct uci_ptr){.package = str};
    ptr->value = cut(str, '=');
    char *section = cut(str, '.');
    char *option = cut(section, '.');
    ptr->section = section;
    ptr->option = option;
    ptr->target = option ? UCI_TYPE_OPTION : section ? UCI_TYPE_SECTION : UCI_TYPE_PACKAGE;
}

/* Reads "@type[index]"; the type is neither copied nor terminated. */
static bool parse_extended(const char *text, const char **type, size_t *type_length, long *index) {
    if (text[0] != '@')
        return false;
    const char *bracket = strchr(text, '[');
    if (!bracket || (bracket[1] != '-' && (bracket[1] < '0' || bracket[1] > '9')))
        return false;
    char *end;
    *type = text + 1;
    *type_length = (size_t)(bracket - *type);
    *index = strtol(bracket + 1, &end, 10);
    return end[-1] >= '0' && end[-1] <= '9' && end[0] == ']' && !end[1];
}

static bool is_of_type(const struct uci_section *section, const char *type, size_t length) {
    return !length || (strlen(section->type) == length && !memcmp(section->type, type, length));
}

static int find_extended(struct uci_package *package, const char *text, struct uci_section **found) {
    const char *type;
    size_t length;
    long index;
    if (!parse_extended(text, &type, &length, &index))
        return UCI_ERR_INVAL;
    struct uci_element *e;
    if (index < 0) {
        uci_foreach_element(&package->sections, e) if (is_of_type(uci_to_section(e), type, length)) index++;
        if (index < 0)
            return UCI_OK;
    }
    uci_foreach_element(&package->sections, e) {
        if (!is_of_type(uci_to_section(e), type, length) || index--)
            continue;
        *found = uci_to_section(e);
        return UCI_OK;
    }
    return UCI_OK;
}

static int find_package(struct uci_context *ctx, const char *name, struct uci_package **found) {
    struct uci_element *e;
    uci_foreach_element(&ctx->root, e) {
        if (strcmp(e->name, name) != 0)
            continue;
        *found = uci_to_package(e);
        return UCI_OK;
    }
    return uci_load(ctx, name, found);
}

static int find_section(struct uci_ptr *ptr) {
    if (!(ptr->flags & UCI_LOOKUP_EXTENDED)) {
        ptr->s = uci_section_find(ptr->p, ptr->section);
        return UCI_OK;
    }
    return find_extended(ptr->p, ptr->section, &ptr->s);
}

static int find_all(struct uci_context *ctx, struct uci_ptr *ptr) {
    int err = find_package(ctx, ptr->package, &ptr->p);
    if (err)
        return err;
    ptr->last = &ptr->p->e;
    if (ptr->section) {
        err = find_section(ptr);
        if (err || !ptr->s)
            return err;
        ptr->last = &ptr->s->e;
    }
    if (ptr->option) {
        ptr->o = uci_option_find(ptr->s, ptr->option);
        if (!ptr->o)
            return UCI_OK;
        ptr->last = &ptr->o->e;
    }
    ptr->flags |= UCI_LOOKUP_COMPLETE;
    return UCI_OK;
}

int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended) {
    if (!ctx || !ptr)
        return UCI_ERR_INVAL;
    if (str)
        uci_split_path(str, ptr);
    *ptr = (struct uci_ptr){.target = ptr->option    ? UCI_TYPE_OPTION
                                      : ptr->section ? UCI_TYPE_SECTION
                                                     : UCI_TYPE_PACKAGE,
                            .package = ptr->package,
                            .section = ptr->section,
                            .option = ptr->option,
                            .value = ptr->value};
    if (!uci_valid_package_name(ptr->package) || (ptr->option && (!ptr->section || !uci_valid_name(ptr->option))))
        return UCI_ERR_INVAL;
    if (ptr->section && !uci_valid_name(ptr->section)) {
        const char *type;
        size_t length;
        long index;
        if (!extended || !parse_extended(ptr->section, &type, &length, &index))
            return UCI_ERR_INVAL;
        ptr->flags |= UCI_LOOKUP_EXTENDED;
    }
    int err = find_all(ctx, ptr);
    if (!err)
        ptr->flags |= UCI_LOOKUP_DONE;
    return err;
}

int uci_resolve(struct uci_context *ctx, struct uci_ptr *ptr) {
    if (!ctx || !ptr)
        return UCI_ERR_INVAL;
    return ptr->flags & UCI_LOOKUP_DONE ? UCI_OK : uci_lookup_ptr(ctx, ptr, NULL, true);
}
