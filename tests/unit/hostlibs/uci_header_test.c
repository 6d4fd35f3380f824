/* The header as a C program uses it, without the prefix that the enumerators have within C++. */
#include <uci.h>

unsigned uci_header_count_options(struct uci_package *package, const char **last_name);

unsigned uci_header_count_options(struct uci_package *package, const char **last_name) {
    unsigned count = 0;
    struct uci_element *section, *option;
    struct uci_ptr unused = {.flags = UCI_LOOKUP_DONE};
    (void)unused;
    uci_foreach_element(&package->sections, section) {
        uci_foreach_element(&uci_to_section(section)->options, option) {
            *last_name = uci_to_option(option)->e.name;
            count++;
        }
    }
    return count;
}
