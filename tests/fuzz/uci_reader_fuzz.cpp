// Whatever bytes stand in a configuration or delta file: reading them is safe, and what was read and changed is the
// same after it was written and read again. Works on the library's inner entries, so that no run touches a disk.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

extern "C" {
#include "internal.h"
}

namespace {

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

uci_package *new_package(uci_context *context) {
    uci_package *package = uci_package_new(context, "pkg");
    require(package != nullptr, "memory");
    return package;
}

// Everything that a file holds; made-up names are not part of it.
std::string described(const uci_package *package) {
    std::string text;
    const auto add = [&text](char kind, const char *value) { (text += kind).append(value).push_back('\0'); };
    uci_element *s, *o, *item;
    uci_foreach_element(&package->sections, s) {
        add('t', uci_to_section(s)->type);
        add('s', uci_to_section(s)->anonymous ? "" : s->name);
        uci_foreach_element(&uci_to_section(s)->options, o) {
            add('o', o->name);
            if (uci_to_option(o)->type == UCI_TYPE_STRING)
                add('v', uci_to_option(o)->v.string);
            else
                uci_foreach_element(&uci_to_option(o)->v.list, item) add('i', item->name);
        }
    }
    return text;
}

void require_that_writing_keeps_it(uci_context *context, const uci_package *package) {
    uci_text written = {};
    uci_export_config(package, &written);
    uci_package *again = new_package(context);
    require(uci_parse_config(again, written.data, written.length) == UCI_OK, "what was written does not parse");
    require(described(again) == described(package), "what was written reads differently");
    uci_package_free(again);
    uci_text_free(&written);
}

// Changes made through the interface, staged, and carried out on the package as it was before, come to the same.
void require_that_staging_keeps_changes(uci_context *context, uci_package *package, const std::string &value) {
    uci_package *replayed = new_package(context);
    uci_text before = {};
    uci_export_config(package, &before);
    require(uci_parse_config(replayed, before.data, before.length) == UCI_OK, "what was written does not parse");
    uci_text_free(&before);

    uci_list_append(&context->root, &package->e.list);
    const auto change = [context](int (*call)(uci_context *, uci_ptr *), std::string path) {
        uci_ptr ptr;
        if (uci_lookup_ptr(context, &ptr, path.data(), true) == UCI_OK)
            call(context, &ptr);
    };
    change(uci_set, "pkg.added=type");
    change(uci_set, "pkg.added.option=" + value);
    change(uci_add_list, "pkg.added.option=" + value);
    change(uci_add_list, "pkg.added.list=" + value);
    change(uci_set, "pkg.retyped=" + value);
    change(uci_delete, "pkg.b");
    change(uci_set, value);

    const int fd = memfd_create("delta", MFD_CLOEXEC);
    uci_text delta = {};
    require(fd >= 0 && uci_delta_append(fd, package) == UCI_OK && uci_file_read(fd, &delta) == UCI_OK, "staging");
    close(fd);
    require(uci_delta_apply(replayed, &delta) == UCI_OK, "applying");
    require(described(replayed) == described(package), "staged changes come to something else");
    uci_text_free(&delta);
    uci_package_free(replayed);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const char *bytes = reinterpret_cast<const char *>(data);
    uci_context *context = uci_alloc_context();
    require(context != nullptr && uci_set_confdir(context, "/nonexistent") == UCI_OK, "memory");

    uci_package *package = new_package(context);
    const int error = uci_parse_config(package, bytes, size);
    require(error == UCI_OK || error == UCI_ERR_PARSE, "unexpected error");
    if (error == UCI_OK) {
        require_that_writing_keeps_it(context, package);
        require_that_staging_keeps_changes(context, package, std::string(bytes, size));
        require_that_writing_keeps_it(context, package);
    }
    uci_package_free(package);

    // The same bytes as a delta file.
    static constexpr char base[] = "config a 'b'\n\toption c '0'\n\tlist l '1'\nconfig a\nconfig z 'z'\n";
    uci_package *changed = new_package(context);
    uci_text staged = {};
    uci_text_append(&staged, bytes, size);
    require(uci_parse_config(changed, base, sizeof base - 1) == UCI_OK, "base");
    require(uci_delta_apply(changed, &staged) == UCI_OK, "a delta file must never fail");
    require_that_writing_keeps_it(context, changed);
    uci_text_free(&staged);
    uci_package_free(changed);

    uci_free_context(context);
    return 0;
}
