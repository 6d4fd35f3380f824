/*
 * Reading and changing the configuration files of an OpenWrt system: the source-compatible subset for build hosts.
 * A package is a file (/etc/config/network), it holds sections, a section holds options, an option is a string or a
 * list of strings. Changes are made in memory, staged beside others' in the delta directory, and committed to the file.
 */
#ifndef UCI_H
#define UCI_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    UCI_OK = 0,
    UCI_ERR_MEM,       /* out of memory */
    UCI_ERR_INVAL,     /* a name, type or argument that is not allowed */
    UCI_ERR_NOTFOUND,  /* no such package, section or option */
    UCI_ERR_IO,        /* a file could not be read, locked or written */
    UCI_ERR_PARSE,     /* the configuration file is not in the format */
    UCI_ERR_DUPLICATE, /* the package is loaded already */
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

/* A link of a ring; the head of a list is a link of its own that belongs to no element. */
struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

/* What packages, sections, options and list items have in common. The text of a list item is its name. */
struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name;
};

struct uci_context {
    struct uci_list root; /* the loaded packages */
    char *confdir;
    char *savedir;
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    struct uci_list delta; /* own changes that are not saved yet */
};

struct uci_section {
    struct uci_element e; /* of an anonymous section: a name that is made up for as long as it is loaded */
    struct uci_list options;
    struct uci_package *package;
    bool anonymous;
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list list;
        char *string;
    } v;
};

/* A path and what it leads to. The strings point into the text that was looked up. */
struct uci_ptr {
    enum uci_type target;
    /* Within C++ these are members: uci_ptr::UCI_LOOKUP_COMPLETE. */
    enum {
        UCI_LOOKUP_DONE = (1 << 0),
        UCI_LOOKUP_COMPLETE = (1 << 1), /* everything that the path names exists */
        UCI_LOOKUP_EXTENDED = (1 << 2)  /* the section is written @type[index] */
    } flags;

    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last; /* the deepest of the three that was found */

    const char *package;
    const char *section;
    const char *option;
    const char *value;
};

/* A context with the default directories, or null when memory is short. */
struct uci_context *uci_alloc_context(void);
/* Releases the context and all loaded packages; changes that were not saved are dropped. */
void uci_free_context(struct uci_context *ctx);

/* Where configuration files are read and written (default /etc/config). The text is copied. */
int uci_set_confdir(struct uci_context *ctx, const char *dir);
/* Where changes are staged (default /tmp/.uci); the last component is created when it is first needed. */
int uci_set_savedir(struct uci_context *ctx, const char *dir);

/* Reads a package and the changes staged for it. `package` may be null; the context owns the package. */
int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);
/* Forgets a package, with its unsaved changes. */
int uci_unload(struct uci_context *ctx, struct uci_package *p);

/*
 * Finds "package[.section[.option]][=value]", loading the package when needed. `str` is cut in place and must live as
 * long as `ptr`. With `extended` a section may be written @type[index]; a negative index counts from the end. Returns
 * 0 with UCI_LOOKUP_COMPLETE unset when the package exists but the rest does not. With a null `str` the strings
 * already in `ptr` are looked up.
 */
int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);

/*
 * Sets an option, or with no option creates or retypes the section. An empty value deletes what is named, and that it
 * does not exist is no error then.
 */
int uci_set(struct uci_context *ctx, struct uci_ptr *ptr);
/* Appends a value to a list; an absent option becomes a list, a string becomes the list's first item. */
int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr);
/* Deletes the option or section. What was found below `ptr` is released. */
int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr);

/* Stages the package's own changes in the delta directory. */
int uci_save(struct uci_context *ctx, struct uci_package *p);
/*
 * Writes own and staged changes to the configuration file as it is by now, so that what others committed in between
 * survives. Afterwards *p is the package as read again; the old one and all that it held are released. On an error
 * the file is as it was and *p is still valid. With `overwrite` the file becomes what is in memory.
 */
int uci_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite);

#ifdef __cplusplus
}
#endif

/* Every container starts with its element and every element with its list link, so the addresses are the same. */
#define list_to_element(link)   ((struct uci_element *)(link))
#define uci_to_package(element) ((struct uci_package *)(element))
#define uci_to_section(element) ((struct uci_section *)(element))
#define uci_to_option(element)  ((struct uci_option *)(element))

/* Walks a list; the element under the cursor must stay until the next step. */
#define uci_foreach_element(_list, _ptr)                                                                               \
    for (_ptr = list_to_element((_list)->next); &_ptr->list != (_list); _ptr = list_to_element(_ptr->list.next))

/* The same, where the element under the cursor may be released. */
#define uci_foreach_element_safe(_list, _tmp, _ptr)                                                                    \
    for (_ptr = list_to_element((_list)->next), _tmp = list_to_element(_ptr->list.next); &_ptr->list != (_list);       \
         _ptr = _tmp, _tmp = list_to_element(_ptr->list.next))

#endif
