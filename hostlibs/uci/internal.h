/*
 * What the files of the library share. Nothing here is for programs: they include <uci.h>.
 * Functions that return int give UCI_OK or an error code.
 */
#ifndef UCI_INTERNAL_H
#define UCI_INTERNAL_H

#include "uci.h"

#include <sys/types.h>

/* ---- text.c: text that grows. After a failed allocation it only remembers the failure. ---- */

struct uci_text {
    char *data; /* null while nothing was appended, otherwise ends in a NUL that `length` does not count */
    size_t length;
    size_t capacity;
    bool failed;
};

void uci_text_append(struct uci_text *text, const char *bytes, size_t length);
void uci_text_append_string(struct uci_text *text, const char *string);
/* Within single quotes; a single quote inside becomes '\''. */
void uci_text_append_quoted(struct uci_text *text, const char *string);
/* Empties the text and keeps its memory. */
void uci_text_clear(struct uci_text *text);
void uci_text_free(struct uci_text *text);

/* ---- names.c: which names are allowed. A null name is not. ---- */

bool uci_valid_name(const char *name);         /* of sections and options */
bool uci_valid_package_name(const char *name); /* may have a '-' too */
bool uci_valid_type(const char *type);         /* of sections */

/* ---- element.c: packages, sections and options in memory ---- */

void uci_list_init(struct uci_list *head);
bool uci_list_is_empty(const struct uci_list *head);
void uci_list_append(struct uci_list *head, struct uci_list *link);
void uci_list_remove(struct uci_list *link);

struct uci_package *uci_package_new(struct uci_context *ctx, const char *name);
void uci_package_free(struct uci_package *package); /* also takes it out of its context */
struct uci_section *uci_section_find(struct uci_package *package, const char *name);
/* A null name makes the section anonymous; uci_package_name_sections() names it. */
int uci_section_add(struct uci_package *package, const char *type, const char *name, struct uci_section **section);
int uci_section_set_type(struct uci_section *section, const char *type);
void uci_section_free(struct uci_section *section);
struct uci_option *uci_option_find(struct uci_section *section, const char *name);
int uci_option_set(struct uci_section *section, const char *name, const char *value);
int uci_option_add_item(struct uci_section *section, const char *name, const char *value);
/* Removes the items with this text, maybe all there are. INVAL for an option that is a string. */
int uci_option_remove_items(struct uci_option *option, const char *value);
void uci_option_free(struct uci_option *option);
int uci_element_rename(struct uci_element *element, const char *name);
/* Makes up the names of anonymous sections. They depend on nothing but the file's content. */
int uci_package_name_sections(struct uci_package *package);

/* ---- words.c: splits text into statements (lines) and words ---- */

enum { UCI_WORDS_MAX = 3 };

struct uci_words {
    const char *position;
    const char *end;
    int count;
    bool terminated; /* the statement was ended by a newline and not by the end of the text */
    struct uci_text word[UCI_WORDS_MAX];
};

void uci_words_init(struct uci_words *words, const char *text, size_t length);
void uci_words_free(struct uci_words *words);
/* Reads a statement; `count` is 0 for an empty line. UCI_ERR_NOTFOUND at the end of the text. */
int uci_words_next(struct uci_words *words);
/* After an error: goes to the start of the next line. */
void uci_words_skip_line(struct uci_words *words);

/* ---- parse.c, export.c: the file format ---- */

/* Reads a configuration text into an empty package. */
int uci_parse_config(struct uci_package *package, const char *text, size_t length);
void uci_export_config(const struct uci_package *package, struct uci_text *text);

/* ---- file.c ---- */

/* Opens and locks (LOCK_SH, LOCK_EX) the file that has this path once the lock is held. NOTFOUND if there is none. */
int uci_file_open_locked(const char *path, int open_flags, int lock, int *fd);
int uci_file_read(int fd, struct uci_text *text);
/* Writes all or fails; what was written before a failure stays. */
int uci_file_write(int fd, const char *data, size_t length);
/* Replaces the locked file at once: whoever reads sees the old text or the new one. */
int uci_file_replace(const char *path, int locked_fd, const struct uci_text *text);
char *uci_path_join(const char *dir, const char *name);

/* ---- apply.c: a change and what it does to a package ---- */

enum uci_change_kind {
    UCI_CHANGE_SET,
    UCI_CHANGE_DELETE,
    UCI_CHANGE_ADD_LIST,
    UCI_CHANGE_DELETE_ITEM,
    UCI_CHANGE_ADD_ANONYMOUS,
    UCI_CHANGE_RENAME,
    UCI_CHANGE_REORDER
};

struct uci_change {
    struct uci_list list;
    enum uci_change_kind kind;
    const char *section;
    const char *option; /* null when the change is about the section */
    const char *value;  /* null when the kind needs none */
};

/* A change that owns its texts, in one piece of memory. */
struct uci_change *uci_change_new(enum uci_change_kind kind, const char *section, const char *option,
                                  const char *value);
void uci_change_list_free(struct uci_list *changes);
/* NOTFOUND when what it is about is gone, INVAL when it makes no sense; the package is untouched then. */
int uci_change_apply(struct uci_package *package, const struct uci_change *change);

/* ---- delta.c: changes as text, and the file they are staged in ---- */

/* Calls `each` for every complete record of this package; a record that is malformed is passed over. */
typedef int (*uci_delta_each_t)(const struct uci_change *change, void *priv);
int uci_delta_read(const char *package, const struct uci_text *text, uci_delta_each_t each, void *priv);
/* Carries the records out; one whose section or option is gone by now has nothing to change. */
int uci_delta_apply(struct uci_package *package, const struct uci_text *text);
/* Opens the package's delta file, locked. With `create` it is made when absent, otherwise that is NOTFOUND. */
int uci_delta_open(const struct uci_context *ctx, const char *package, bool create, int open_flags, int *fd);
/* Appends the package's own changes and forgets them. On an error file and changes are as before. */
int uci_delta_append(int fd, struct uci_package *package);
/* The text staged for a package; nothing when nothing is, or when it is not for this user to read. */
int uci_delta_load(const struct uci_context *ctx, const char *package, struct uci_text *text);

/* ---- lookup.c ---- */

/* Cuts "package.section.option=value" in place. */
void uci_split_path(char *str, struct uci_ptr *ptr);
/* The looked-up state of `ptr`, looking up first if that was not done. */
int uci_resolve(struct uci_context *ctx, struct uci_ptr *ptr);

#endif
