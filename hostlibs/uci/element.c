/*
 * Packages, sections, options and list items in memory: making, finding, changing and releasing them.
 * Nothing here records a change or touches a file.
 */
#include "internal.h"

#include <stdlib.h>
#include <string.h>

void uci_list_init(struct uci_list *head) {
    head->next = head->prev = head;
}

bool uci_list_is_empty(const struct uci_list *head) {
    return head->next == head;
}

void uci_list_append(struct uci_list *head, struct uci_list *link) {
    link->next = head;
    link->prev = head->prev;
    head->prev->next = link;
    head->prev = link;
}

void uci_list_remove(struct uci_list *link) {
    link->next->prev = link->prev;
    link->prev->next = link->next;
    uci_list_init(link);
}

/* A zeroed container of `size` bytes that starts with an element, on no list yet. */
static void *element_new(size_t size, enum uci_type type, const char *name) {
    struct uci_element *element = calloc(1, size);
    if (!element)
        return NULL;
    uci_list_init(&element->list);
    element->type = type;
    element->name = strdup(name);
    if (!element->name) {
        free(element);
        return NULL;
    }
    return element;
}

static void element_free(struct uci_element *element) {
    uci_list_remove(&element->list);
    free(element->name);
    free(element);
}

static struct uci_element *find(struct uci_list *list, const char *name) {
    struct uci_element *e;
    uci_foreach_element(list, e) if (!strcmp(e->name, name)) return e;
    return NULL;
}

static int replace_string(char **target, const char *text) {
    char *copy = strdup(text);
    if (!copy)
        return UCI_ERR_MEM;
    free(*target);
    *target = copy;
    return UCI_OK;
}

int uci_element_rename(struct uci_element *element, const char *name) {
    return replace_string(&element->name, name);
}

struct uci_package *uci_package_new(struct uci_context *ctx, const char *name) {
    struct uci_package *package = element_new(sizeof *package, UCI_TYPE_PACKAGE, name);
    if (!package)
        return NULL;
    package->ctx = ctx;
    uci_list_init(&package->sections);
    uci_list_init(&package->delta);
    return package;
}

void uci_package_free(struct uci_package *package) {
    struct uci_element *e, *next;
    uci_foreach_element_safe(&package->sections, next, e) uci_section_free(uci_to_section(e));
    uci_change_list_free(&package->delta);
    element_free(&package->e);
}

struct uci_section *uci_section_find(struct uci_package *package, const char *name) {
    struct uci_element *e = find(&package->sections, name);
    return e ? uci_to_section(e) : NULL;
}

int uci_section_add(struct uci_package *package, const char *type, const char *name, struct uci_section **section) {
    struct uci_section *made = element_new(sizeof *made, UCI_TYPE_SECTION, name ? name : "");
    if (!made)
        return UCI_ERR_MEM;
    uci_list_init(&made->options);
    made->package = package;
    made->anonymous = !name;
    made->type = strdup(type);
    if (!made->type) {
        element_free(&made->e);
        return UCI_ERR_MEM;
    }
    uci_list_append(&package->sections, &made->e.list);
    *section = made;
    return UCI_OK;
}

int uci_section_set_type(struct uci_section *section, const char *type) {
    return replace_string(&section->type, type);
}

void uci_section_free(struct uci_section *section) {
    struct uci_element *e, *next;
    uci_foreach_element_safe(&section->options, next, e) uci_option_free(uci_to_option(e));
    free(section->type);
    element_free(&section->e);
}

struct uci_option *uci_option_find(struct uci_section *section, const char *name) {
    struct uci_element *e = find(&section->options, name);
    return e ? uci_to_option(e) : NULL;
}

static void items_free(struct uci_list *items) {
    struct uci_element *e, *next;
    uci_foreach_element_safe(items, next, e) element_free(e);
}

void uci_option_free(struct uci_option *option) {
    if (option->type == UCI_TYPE_LIST)
        items_free(&option->v.list);
    else
        free(option->v.string);
    element_free(&option->e);
}

static struct uci_option *option_new(struct uci_section *section, const char *name) {
    struct uci_option *option = element_new(sizeof *option, UCI_TYPE_OPTION, name);
    if (option)
        option->section = section;
    return option;
}

int uci_option_set(struct uci_section *section, const char *name, const char *value) {
    char *copy = strdup(value);
    if (!copy)
        return UCI_ERR_MEM;
    struct uci_option *option = uci_option_find(section, name);
    if (!option) {
        option = option_new(section, name);
        if (!option) {
            free(copy);
            return UCI_ERR_MEM;
        }
        uci_list_append(&section->options, &option->e.list);
    } else if (option->type == UCI_TYPE_LIST) {
        items_free(&option->v.list);
    } else {
        free(option->v.string);
    }
    option->type = UCI_TYPE_STRING;
    option->v.string = copy;
    return UCI_OK;
}

int uci_option_add_item(struct uci_section *section, const char *name, const char *value) {
    struct uci_option *option = uci_option_find(section, name);
    struct uci_element *item = element_new(sizeof *item, UCI_TYPE_ITEM, value);
    if (!item)
        return UCI_ERR_MEM;
    if (!option) {
        option = option_new(section, name);
        if (!option) {
            element_free(item);
            return UCI_ERR_MEM;
        }
        option->type = UCI_TYPE_LIST;
        uci_list_init(&option->v.list);
        uci_list_append(&section->options, &option->e.list);
    } else if (option->type == UCI_TYPE_STRING) {
        struct uci_element *first = element_new(sizeof *first, UCI_TYPE_ITEM, option->v.string);
        if (!first) {
            element_free(item);
            return UCI_ERR_MEM;
        }
        free(option->v.string);
        option->type = UCI_TYPE_LIST;
        uci_list_init(&option->v.list);
        uci_list_append(&option->v.list, &first->list);
    }
    uci_list_append(&option->v.list, &item->list);
    return UCI_OK;
}

int uci_option_remove_items(struct uci_option *option, const char *value) {
    if (option->type != UCI_TYPE_LIST)
        return UCI_ERR_INVAL;
    struct uci_element *e, *next;
    uci_foreach_element_safe(&option->v.list, next, e) if (!strcmp(e->name, value)) element_free(e);
    return UCI_OK;
}

static unsigned type_hash(const char *type) {
    uint32_t hash = 5381;
    for (; *type; type++)
        hash = hash * 33 + (unsigned char)*type;
    return hash & 0xffff;
}

/*
 * cfg, the section's number, and 16 bits of a hash of its type. With the type in the name, a change that was staged
 * for the third section misses, rather than hits a section of another kind, when somebody deleted the first meanwhile.
 * A name that the file gives to another section is stepped over: numbers differ, so made-up names never meet.
 */
int uci_package_name_sections(struct uci_package *package) {
    unsigned number = 0;
    struct uci_element *e;
    uci_foreach_element(&package->sections, e) {
        number++;
        if (!uci_to_section(e)->anonymous || e->name[0])
            continue;
        unsigned hash = type_hash(uci_to_section(e)->type);
        char name[32];
        do {
            snprintf(name, sizeof name, "cfg%02x%04x", number, hash);
            hash = (hash + 1) & 0xffff;
        } while (find(&package->sections, name));
        int err = uci_element_rename(e, name);
        if (err)
            return err;
    }
    return UCI_OK;
}
