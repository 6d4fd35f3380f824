/*
 * A change and what it does to a package in memory. The calls of a program and the records of a delta file both end
 * here, so that a commit, which reads the file again and repeats the changes, arrives at what the program saw.
 */
#include "internal.h"

#include <stdlib.h>
#include <string.h>

static size_t space_for(const char *text) {
    return text ? strlen(text) + 1 : 0;
}

/* Copies a text to *room and moves *room behind it; null stays null. */
static const char *put(char **room, const char *text) {
    if (!text)
        return NULL;
    char *copy = *room;
    size_t size = strlen(text) + 1;
    memcpy(copy, text, size);
    *room += size;
    return copy;
}

struct uci_change *uci_change_new(enum uci_change_kind kind, const char *section, const char *option,
                                  const char *value) {
    struct uci_change *change = malloc(sizeof *change + space_for(section) + space_for(option) + space_for(value));
    if (!change)
        return NULL;
    char *room = (char *)(change + 1);
    uci_list_init(&change->list);
    change->kind = kind;
    change->section = put(&room, section);
    change->option = put(&room, option);
    change->value = put(&room, value);
    return change;
}

void uci_change_list_free(struct uci_list *changes) {
    struct uci_list *next;
    for (struct uci_list *link = changes->next; link != changes; link = next) {
        next = link->next;
        free(link); /* the first member of its change */
    }
    uci_list_init(changes);
}

static int delete_what_is_named(struct uci_section *section, const struct uci_change *change) {
    if (!change->option) {
        uci_section_free(section);
        return UCI_OK;
    }
    struct uci_option *option = uci_option_find(section, change->option);
    if (!option)
        return UCI_ERR_NOTFOUND;
    uci_option_free(option);
    return UCI_OK;
}

static int set_section(struct uci_package *package, struct uci_section *section, const struct uci_change *change) {
    if (!*change->value)
        return section ? delete_what_is_named(section, change) : UCI_ERR_NOTFOUND;
    if (!uci_valid_type(change->value))
        return UCI_ERR_INVAL;
    if (section)
        return uci_section_set_type(section, change->value);
    return uci_section_add(package, change->value, change->section, &section);
}

static int add_anonymous(struct uci_package *package, struct uci_section *section, const struct uci_change *change) {
    if (section)
        return UCI_ERR_DUPLICATE;
    if (!uci_valid_type(change->value))
        return UCI_ERR_INVAL;
    int err = uci_section_add(package, change->value, change->section, &section);
    if (!err)
        section->anonymous = true;
    return err;
}

static int set_option(struct uci_section *section, const struct uci_change *change) {
    if (!*change->value)
        return delete_what_is_named(section, change);
    return uci_option_set(section, change->option, change->value);
}

static int delete_items(struct uci_section *section, const struct uci_change *change) {
    struct uci_option *option = uci_option_find(section, change->option);
    if (!option)
        return UCI_ERR_NOTFOUND;
    int err = uci_option_remove_items(option, change->value);
    /* A list without items cannot be written, so it is no option any more. */
    if (!err && uci_list_is_empty(&option->v.list))
        uci_option_free(option);
    return err;
}

static int rename_what_is_named(struct uci_section *section, const struct uci_change *change) {
    if (!uci_valid_name(change->value))
        return UCI_ERR_INVAL;
    if (change->option) {
        struct uci_option *option = uci_option_find(section, change->option);
        if (!option)
            return UCI_ERR_NOTFOUND;
        if (uci_option_find(section, change->value))
            return UCI_ERR_DUPLICATE;
        return uci_element_rename(&option->e, change->value);
    }
    if (uci_section_find(section->package, change->value))
        return UCI_ERR_DUPLICATE;
    int err = uci_element_rename(&section->e, change->value);
    if (!err)
        section->anonymous = false;
    return err;
}

static int reorder(struct uci_section *section, const struct uci_change *change) {
    char *end;
    unsigned long position = strtoul(change->value, &end, 10);
    if (end == change->value || *end)
        return UCI_ERR_INVAL;
    struct uci_list *sections = &section->package->sections;
    uci_list_remove(&section->e.list);
    struct uci_list *follower = sections->next;
    while (position-- && follower != sections)
        follower = follower->next;
    /* Appending before a link is appending to the ring that starts there. */
    uci_list_append(follower, &section->e.list);
    return UCI_OK;
}

int uci_change_apply(struct uci_package *package, const struct uci_change *change) {
    struct uci_section *section = uci_section_find(package, change->section);
    if (change->kind == UCI_CHANGE_ADD_ANONYMOUS)
        return add_anonymous(package, section, change);
    if (change->kind == UCI_CHANGE_SET && !change->option)
        return set_section(package, section, change);
    if (!section)
        return UCI_ERR_NOTFOUND;
    switch (change->kind) {
    case UCI_CHANGE_SET:
        return set_option(section, change);
    case UCI_CHANGE_DELETE:
        return delete_what_is_named(section, change);
    case UCI_CHANGE_ADD_LIST:
        return uci_option_add_item(section, change->option, change->value);
    case UCI_CHANGE_DELETE_ITEM:
        return delete_items(section, change);
    case UCI_CHANGE_RENAME:
        return rename_what_is_named(section, change);
    case UCI_CHANGE_REORDER:
        return reorder(section, change);
    case UCI_CHANGE_ADD_ANONYMOUS:
        break; /* done above */
    }
    return UCI_ERR_UNKNOWN;
}
