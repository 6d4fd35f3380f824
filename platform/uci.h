// UCI configuration: reading and writing /etc/config through libuci.
//
// Two families over the same operations: vuci2_* takes a handle from vuci2_init(), vuci_* uses one process-wide context
// for the older configuration writers. The pattern is always: init, any number of gets and sets, one commit for each
// changed package, free. Changes are staged in the handle until the commit, which merges them with what other processes
// have committed meanwhile.
//
// A path is package.section.option, package.section for a whole section, or the anonymous form of either
// (firewall.@zone[1].network). Setters return 0 or one of libuci's UCI_ERR_ codes; a null handle is UCI_ERR_INVAL.
// A value that does not fit the reader's buffer aborts: half an APN or password is not a value.
//
// Half a change is none either. A handle that could not read or change something for want of memory or by a failure of the
// system commits nothing from then on, so that a file has all of what its writer wanted or is as it was.
#pragma once

#include <span>

struct uci_context;

struct UciHandle {
    uci_context *context;
    int trouble; // the UCI_ERR_ code of the first such failure, or 0
};

// A new handle, or null when memory is short. Each is released by exactly one vuci2_free(); null is allowed there.
UciHandle *vuci2_init();
void vuci2_free(UciHandle *handle);

// Copies the value of a plain option into `out`; leaves `out` as it is where there is no such option, where it is a
// list, or where the path names a section.
void vuci2_get(UciHandle *handle, const char *path, std::span<char> out);

// The same for package, section and option by name. With a null option: the section's type, so that a buffer that stays
// empty means that there is no such section.
void vuci2_get_name(UciHandle *handle, const char *package, const char *section, const char *option,
                    std::span<char> out);

// Copies the value at `index` (from 0) of a list option; leaves `out` as it is where the list is shorter.
void vuci2_get_list_index(UciHandle *handle, const char *path, int index, std::span<char> out);

// Sets the option, creating it where needed. A null value clears the option.
int vuci2_set(UciHandle *handle, const char *path, const char *value);

// The same by name. With a null option: creates the named section with the type `value`, or gives it that type.
int vuci2_set_name(UciHandle *handle, const char *package, const char *section, const char *option, const char *value);

// Appends one value to a list option; a plain option becomes a list. A null value appends nothing.
int vuci2_add_list(UciHandle *handle, const char *path, const char *value);

// Deletes the option, or the whole section for a package.section path.
int vuci2_delete(UciHandle *handle, const char *path);

// Writes the staged changes of the package to the configuration store. Of a handle that has had trouble, its code.
int vuci2_commit(UciHandle *handle, const char *package);

// The same operations on the process-wide context. vuci_init() opens it (closing one that was left open),
// vuci_free() closes it.
void vuci_init();
int vuci_set(const char *path, const char *value);
int vuci_set_name(const char *package, const char *section, const char *option, const char *value);
int vuci_delete(const char *path);
int vuci_commit(const char *package);
void vuci_free();
