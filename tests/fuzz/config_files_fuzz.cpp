// Any configuration file and any staged changes, and any path and value: what the product asks of libuci and how it is
// kept in the file.
//
// Input: a path up to the first line feed, a value up to the second; then the file, and after a line "---" the changes
// that are staged for it; and after "===" and a line feed records of scripted_router.h.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

extern "C" {
#include <uci.h>
}

#include "fake_system.h"
#include "fuzz_support.h"
#include "platform/uci.h"
#include "scripted_router.h"

namespace {

std::string_view take(std::string_view &input, std::string_view end) {
    const size_t found = std::min(input.find(end), input.size());
    const std::string_view taken = input.substr(0, found);
    input.remove_prefix(std::min(input.size(), found + end.size()));
    return taken;
}

void require_result(int result) {
    require(result >= UCI_OK && result < UCI_ERR_LAST);
}

// The value of an option, in a handle of its own.
std::string value_of(const char *path) {
    char value[4096] = {};
    UciHandle *configuration = vuci2_init();
    vuci2_get(configuration, path, value);
    vuci2_free(configuration);
    return value;
}

void read(const char *path, const char *option) {
    char value[4096] = {};
    UciHandle *configuration = vuci2_init();
    vuci2_get(configuration, path, value);
    for (int index = -1; index < 3; index++) {
        vuci2_get_list_index(configuration, path, index, value);
    }
    vuci2_get_name(configuration, "pkg", "a", option, value);
    vuci2_get_name(configuration, "pkg", "a", nullptr, value);
    vuci2_free(configuration);
}

void change(const char *path, const char *value, bool all_calls_succeed) {
    UciHandle *configuration = vuci2_init();
    require_result(vuci2_add_list(configuration, path, value));
    require_result(vuci2_add_list(configuration, "pkg.a.list", value));
    require_result(vuci2_add_list(configuration, "pkg.a.list", nullptr));
    require_result(vuci2_set_name(configuration, "pkg", "a", "other", value));
    require_result(vuci2_delete(configuration, "pkg.b"));
    require_result(vuci2_set(configuration, path, value));
    const int committed = vuci2_commit(configuration, "pkg");
    require_result(committed);
    vuci2_free(configuration);
    if (all_calls_succeed && committed == UCI_OK && strlen(value) < 4096) {
        UciHandle *again = vuci2_init();
        char type[4096] = {};
        vuci2_get_name(again, "pkg", "a", nullptr, type);
        vuci2_free(again);
        // Without the section there was no place for it.
        require(type[0] == '\0' || value_of("pkg.a.other") == value || value[0] == '\0' ||
                value_of("pkg.a.other").empty());
    }
}

void change_implicitly(const char *path, const char *value) {
    vuci_init();
    require_result(vuci_set_name("pkg", "added", nullptr, "type"));
    require_result(vuci_set_name("pkg", "added", "option", value));
    require_result(vuci_set(path, value));
    require_result(vuci_set(path, nullptr));
    require_result(vuci_delete(path));
    require_result(vuci_commit("pkg"));
    require_result(vuci_commit(path));
    vuci_free();
}

// What the product leaves to shell scripts: staging without a commit, and a commit of what is in memory.
void stage(const std::string &path) {
    uci_context *context = uci_alloc_context();
    uci_package *package = nullptr;
    require_result(uci_load(context, "pkg", &package));
    std::string text = path;
    uci_ptr ptr = {};
    if (package != nullptr && uci_lookup_ptr(context, &ptr, text.data(), true) == UCI_OK) {
        ptr.value = "staged";
        require_result(uci_set(context, &ptr));
        require_result(uci_save(context, package));
    }
    if (package != nullptr) {
        require_result(uci_commit(context, &package, path.size() % 2 == 0));
        require_result(uci_unload(context, package));
    }
    if (context != nullptr) {
        uci_free_context(context);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::string path(take(input, "\n"));
    const std::string value(take(input, "\n"));
    const std::string_view file = take(input, "\n---\n");

    // Records after the changes, for calls that fail.
    const std::string_view delta = take(input, "\n===");
    const bool all_calls_succeed = input.empty();
    ScriptedRouter router(input.empty() ? input : input.substr(std::min<size_t>(input.size(), 1)));
    put_file("/etc/config/pkg", file);
    if (!delta.empty()) {
        put_file("/tmp/.uci/pkg", delta);
    }
    const bool names_option = path.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789") == path.npos;
    router.run([&] {
        read(path.c_str(), names_option && !path.empty() ? path.c_str() : "option");
        change(path.c_str(), value.c_str(), all_calls_succeed);
        change_implicitly(path.c_str(), value.c_str());
        stage(path);
    });
    return 0;
}
