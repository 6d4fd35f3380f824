/*
 * The command line `uci`: reads, changes and commits configuration from shell scripts. What goes wrong is said in one
 * line on the standard error, "uci: Entry not found", and the exit status is 1.
 */
#include "cli.h"

#include <string.h>
#include <unistd.h>

static const struct command {
    const char *name;
    const char *arguments;
    bool needs_argument;
    command_t run;
} commands[] = {
    {"get", "<config>.<section>[.<option>]", true, command_get},
    {"set", "<config>.<section>[.<option>]=<value>", true, command_set},
    {"add_list", "<config>.<section>.<option>=<value>", true, command_add_list},
    {"delete", "<config>.<section>[.<option>]", true, command_delete},
    {"show", "[<config>[.<section>[.<option>]]]", false, command_show},
    {"commit", "[<config>]", false, command_commit},
    {"changes", "[<config>]", false, command_changes},
};

enum { COMMANDS = sizeof commands / sizeof commands[0] };

static const char *const error_texts[UCI_ERR_LAST] = {
    [UCI_OK] = "Success",
    [UCI_ERR_MEM] = "Out of memory",
    [UCI_ERR_INVAL] = "Invalid argument",
    [UCI_ERR_NOTFOUND] = "Entry not found",
    [UCI_ERR_IO] = "I/O error",
    [UCI_ERR_PARSE] = "Parse error",
    [UCI_ERR_DUPLICATE] = "Duplicate entry",
    [UCI_ERR_UNKNOWN] = "Unknown error",
};

static int usage(void) {
    fputs("Usage: uci [<options>] <command> [<argument>]\n\nCommands:\n", stderr);
    for (size_t i = 0; i < COMMANDS; i++)
        fprintf(stderr, "    %-9s %s\n", commands[i].name, commands[i].arguments);
    fputs("\nOptions:\n"
          "    -c <dir>  configuration directory (default /etc/config)\n"
          "    -P <dir>  directory of staged changes (default /tmp/.uci)\n"
          "    -q        say nothing about errors\n"
          "    -X        show anonymous sections by their made-up names\n",
          stderr);
    return 1;
}

static const struct command *find_command(const char *name) {
    for (size_t i = 0; i < COMMANDS; i++)
        if (!strcmp(commands[i].name, name))
            return &commands[i];
    return NULL;
}

static int run(struct invocation *invocation, int argc, char **argv) {
    bool quiet = false;
    int letter;
    while ((letter = getopt(argc, argv, "+c:P:qX")) != -1) {
        int err = UCI_OK;
        switch (letter) {
        case 'c':
            err = uci_set_confdir(invocation->ctx, optarg);
            break;
        case 'P':
            err = uci_set_savedir(invocation->ctx, optarg);
            break;
        case 'q':
            quiet = true;
            break;
        case 'X':
            invocation->generated_names = true;
            break;
        default:
            return usage();
        }
        if (err)
            return 1;
    }
    const int words = argc - optind;
    const struct command *command = words > 0 ? find_command(argv[optind]) : NULL;
    if (!command || words > 2 || (words == 1 && command->needs_argument))
        return usage();
    int err = command->run(invocation, words == 2 ? argv[optind + 1] : NULL);
    if (fflush(stdout) && !err)
        err = UCI_ERR_IO;
    if (err && !quiet)
        fprintf(stderr, "uci: %s\n", error_texts[err]);
    return err ? 1 : 0;
}

int main(int argc, char **argv) {
    struct invocation invocation = {.ctx = uci_alloc_context()};
    if (!invocation.ctx)
        return 1;
    int status = run(&invocation, argc, argv);
    uci_free_context(invocation.ctx);
    return status;
}
