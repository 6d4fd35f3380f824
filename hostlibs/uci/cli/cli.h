/* What the files of the command line share. Functions that return int give UCI_OK or an error code. */
#ifndef UCI_CLI_H
#define UCI_CLI_H

#include "internal.h"

struct invocation {
    struct uci_context *ctx;
    bool generated_names; /* anonymous sections are shown as cfgXXXXXX and not as @type[index] */
};

/* Printing: see show.c for the form. */
void show_package(const struct invocation *invocation, const struct uci_package *package);
void show_section(const struct invocation *invocation, const struct uci_section *section);
void show_option(const struct invocation *invocation, const struct uci_option *option);
int show_change(const struct uci_change *change, void *package_name);

/* A command; `argument` is null where it was left out, and may be cut in place. */
typedef int (*command_t)(const struct invocation *invocation, char *argument);
int command_get(const struct invocation *invocation, char *argument);
int command_set(const struct invocation *invocation, char *argument);
int command_add_list(const struct invocation *invocation, char *argument);
int command_delete(const struct invocation *invocation, char *argument);
int command_show(const struct invocation *invocation, char *argument);
int command_commit(const struct invocation *invocation, char *argument);
int command_changes(const struct invocation *invocation, char *argument);

#endif
