/*
 * How packages and changes are printed:
 *     network.lan=interface
 *     network.lan.proto='dhcp'
 *     network.lan.dns='1.1.1.1' '8.8.8.8'
 *     firewall.@zone[0]=zone
 */
#include "cli.h"

#include <string.h>

static void print_quoted(const char *value) {
    putchar('\'');
    for (; *value; value++)
        if (*value == '\'')
            fputs("'\\''", stdout);
        else
            putchar(*value);
    putchar('\'');
}

static unsigned index_within_type(const struct uci_section *section) {
    unsigned index = 0;
    struct uci_element *e;
    uci_foreach_element(&section->package->sections, e) {
        if (uci_to_section(e) == section)
            break;
        if (!strcmp(uci_to_section(e)->type, section->type))
            index++;
    }
    return index;
}

static void print_section_path(const struct invocation *invocation, const struct uci_section *section) {
    if (section->anonymous && !invocation->generated_names)
        printf("%s.@%s[%u]", section->package->e.name, section->type, index_within_type(section));
    else
        printf("%s.%s", section->package->e.name, section->e.name);
}

void show_option(const struct invocation *invocation, const struct uci_option *option) {
    print_section_path(invocation, option->section);
    printf(".%s=", option->e.name);
    if (option->type == UCI_TYPE_STRING) {
        print_quoted(option->v.string);
    } else {
        struct uci_element *item;
        uci_foreach_element(&option->v.list, item) {
            if (item->list.prev != &option->v.list)
                putchar(' ');
            print_quoted(item->name);
        }
    }
    putchar('\n');
}

void show_section(const struct invocation *invocation, const struct uci_section *section) {
    print_section_path(invocation, section);
    printf("=%s\n", section->type);
    struct uci_element *e;
    uci_foreach_element(&section->options, e) show_option(invocation, uci_to_option(e));
}

void show_package(const struct invocation *invocation, const struct uci_package *package) {
    struct uci_element *e;
    uci_foreach_element(&package->sections, e) show_section(invocation, uci_to_section(e));
}

/* What stands before the path and between it and the value. */
static const struct change_form {
    const char *before;
    const char *between;
} change_forms[] = {
    [UCI_CHANGE_SET] = {"", "="},          [UCI_CHANGE_DELETE] = {"-", "="},        [UCI_CHANGE_ADD_LIST] = {"", "+="},
    [UCI_CHANGE_DELETE_ITEM] = {"", "-="}, [UCI_CHANGE_ADD_ANONYMOUS] = {"+", "="}, [UCI_CHANGE_RENAME] = {"@", "="},
    [UCI_CHANGE_REORDER] = {"^", "="},
};

int show_change(const struct uci_change *change, void *package_name) {
    const struct change_form *form = &change_forms[change->kind];
    printf("%s%s.%s", form->before, (const char *)package_name, change->section);
    if (change->option)
        printf(".%s", change->option);
    if (change->value) {
        fputs(form->between, stdout);
        print_quoted(change->value);
    }
    putchar('\n');
    return UCI_OK;
}
