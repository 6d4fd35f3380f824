/* The commands. Those that change something stage it in the delta directory, where `commit` takes it from. */
#include "cli.h"

#include <dirent.h>
#include <stdlib.h>

static int look_up(const struct invocation *invocation, char *path, struct uci_ptr *ptr) {
    return uci_lookup_ptr(invocation->ctx, ptr, path, true);
}

static int look_up_existing(const struct invocation *invocation, char *path, struct uci_ptr *ptr) {
    int err = look_up(invocation, path, ptr);
    if (!err && ptr->value)
        return UCI_ERR_INVAL;
    return !err && !(ptr->flags & UCI_LOOKUP_COMPLETE) ? UCI_ERR_NOTFOUND : err;
}

static void print_value(const struct uci_option *option) {
    if (option->type == UCI_TYPE_STRING) {
        puts(option->v.string);
        return;
    }
    struct uci_element *item;
    uci_foreach_element(&option->v.list, item)
        printf("%s%s", item->list.prev == &option->v.list ? "" : " ", item->name);
    putchar('\n');
}

int command_get(const struct invocation *invocation, char *argument) {
    struct uci_ptr ptr;
    int err = look_up_existing(invocation, argument, &ptr);
    if (err)
        return err;
    if (!ptr.s)
        return UCI_ERR_INVAL;
    if (ptr.o)
        print_value(ptr.o);
    else
        puts(ptr.s->type);
    return UCI_OK;
}

static int change_and_save(const struct invocation *invocation, char *argument,
                           int (*change)(struct uci_context *ctx, struct uci_ptr *ptr)) {
    struct uci_ptr ptr;
    int err = look_up(invocation, argument, &ptr);
    if (!err)
        err = change(invocation->ctx, &ptr);
    return err ? err : uci_save(invocation->ctx, ptr.p);
}

int command_set(const struct invocation *invocation, char *argument) {
    return change_and_save(invocation, argument, uci_set);
}

int command_add_list(const struct invocation *invocation, char *argument) {
    return change_and_save(invocation, argument, uci_add_list);
}

int command_delete(const struct invocation *invocation, char *argument) {
    return change_and_save(invocation, argument, uci_delete);
}

static int is_package_file(const struct dirent *entry) {
    return uci_valid_package_name(entry->d_name);
}

/* Does it for the named package, or for all in the configuration directory; the first error is what counts. */
static int for_packages(const struct invocation *invocation, char *name, command_t each) {
    if (name)
        return each(invocation, name);
    struct dirent **entries;
    int count = scandir(invocation->ctx->confdir, &entries, is_package_file, alphasort);
    if (count < 0)
        return UCI_ERR_NOTFOUND;
    int first_error = UCI_OK;
    for (int i = 0; i < count; i++) {
        int err = each(invocation, entries[i]->d_name);
        if (!first_error)
            first_error = err;
        free(entries[i]);
    }
    free(entries);
    return first_error;
}

static int show_one(const struct invocation *invocation, char *path) {
    struct uci_ptr ptr;
    int err = look_up_existing(invocation, path, &ptr);
    if (err)
        return err;
    if (ptr.o)
        show_option(invocation, ptr.o);
    else if (ptr.s)
        show_section(invocation, ptr.s);
    else
        show_package(invocation, ptr.p);
    return UCI_OK;
}

int command_show(const struct invocation *invocation, char *argument) {
    return for_packages(invocation, argument, show_one);
}

static int commit_one(const struct invocation *invocation, char *name) {
    struct uci_package *package;
    int err = uci_load(invocation->ctx, name, &package);
    return err ? err : uci_commit(invocation->ctx, &package, false);
}

int command_commit(const struct invocation *invocation, char *argument) {
    return for_packages(invocation, argument, commit_one);
}

static int changes_of_one(const struct invocation *invocation, char *name) {
    struct uci_package *package;
    int err = uci_load(invocation->ctx, name, &package);
    struct uci_text staged = {0};
    if (!err)
        err = uci_delta_load(invocation->ctx, name, &staged);
    if (!err)
        err = uci_delta_read(name, &staged, show_change, name);
    uci_text_free(&staged);
    return err;
}

int command_changes(const struct invocation *invocation, char *argument) {
    return for_packages(invocation, argument, changes_of_one);
}
