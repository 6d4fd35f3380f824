// vela_api: calls one endpoint of the plug-in, as the router's web API server would.
//
//   vela_api [--plugin FILE] METHOD PATH [JSON|-]
//   vela_api [--plugin FILE] list
//   vela_api [--plugin FILE] rpcd list | rpcd call METHOD
//
// The request is a JSON object, given as an argument or, with "-", on standard input; without one it is {}. Prints the
// reply as JSON on standard output and the status on standard error. Exits with 0 for status 0, 1 for a negative
// status, 2 where the call could not be made: bad usage, an unknown endpoint, bad JSON, a plug-in that cannot be
// loaded. The last form is what rpcd asks (rpcd.h); called as /usr/libexec/rpcd/vela_modem, it does that without the
// word "rpcd".
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "platform/json.h"
#include "platform/owners.h"
#include "tools/complain.h"
#include "tools/plugin.h"
#include "tools/request.h"
#include "tools/rpcd.h"

namespace {

int print_usage() {
    fputs("Usage: vela_api [--plugin FILE] METHOD PATH [JSON|-]\n"
          "       vela_api [--plugin FILE] list\n"
          "       vela_api [--plugin FILE] rpcd list | rpcd call METHOD\n"
          "Calls one endpoint of the plug-in and prints its reply; the request is a JSON object, \"-\" reads it from\n"
          "standard input, and without one it is empty. \"list\" prints the endpoints. \"rpcd\" serves as rpcd's "
          "program.\n",
          stderr);
    return EXIT_NO_CALL;
}

// All of standard input as one text, which is empty where nothing could be read; null, with the reason told on standard
// error, where it is no text or memory is short.
Allocated<char> read_standard_input() {
    char *text = nullptr;
    size_t size = 0;
    // A text holds no NUL, so this reads to the end.
    const ssize_t length = getdelim(&text, &size, '\0', stdin);
    Allocated<char> input(text);
    if (length < 0) {
        input.reset(strdup(""));
    }
    if (input == nullptr) {
        complain("out of memory", "");
    } else if (length > 0 && text[length - 1] == '\0') {
        complain("the request is not JSON: it holds a NUL", "");
        input.reset();
    }
    return input;
}

int print_list(const EndpointTable &table) {
    for (uint32_t index = 0; index < table.count; index++) {
        printf("%-4s %s\n", table.rows[index].method, table.rows[index].path);
    }
    return EXIT_SUCCESS;
}

int call(const EndpointTable &table, const char *method, const char *path, const char *argument) {
    const ApiEntity *endpoint = find_endpoint(table, method, path);
    if (endpoint == nullptr) {
        fprintf(stderr, "vela_api: no such endpoint: %s %s\n", method, path);
        return EXIT_NO_CALL;
    }
    Allocated<char> input;
    if (strcmp(argument, "-") == 0) {
        input = read_standard_input();
        if (input == nullptr) {
            return EXIT_NO_CALL;
        }
        argument = input.get();
    }
    const Json request = parse_request(argument);
    if (request == nullptr) {
        return EXIT_NO_CALL;
    }
    const Json reply(json_object_new_object());
    const int32_t status = endpoint->handler(request.get(), reply.get());
    puts(vjson_text(reply.get(), JSON_C_TO_STRING_PRETTY));
    fprintf(stderr, "status %d\n", status);
    return status < 0 ? EXIT_NEGATIVE_STATUS : EXIT_SUCCESS;
}

// What rpcd asks: "list" or "call METHOD".
int serve_rpcd(const char *plugin, std::span<char *const> words) {
    if (words.size() == 1 && strcmp(words[0], "list") == 0) {
        return rpcd_list(plugin);
    }
    if (words.size() == 2 && strcmp(words[0], "call") == 0) {
        return rpcd_call(plugin, words[1]);
    }
    return print_usage();
}

int serve(const char *plugin, std::span<char *const> words) {
    const bool list = words.size() == 1 && strcmp(words[0], "list") == 0;
    if (!list && words.size() != 2 && words.size() != 3) {
        return print_usage();
    }
    const EndpointTable table = load_endpoints(plugin);
    if (table.rows == nullptr) {
        return EXIT_NO_CALL;
    }
    return list ? print_list(table) : call(table, words[0], words[1], words.size() == 3 ? words[2] : "{}");
}

} // namespace

int main(int argc, char **argv) {
    const int named = std::min(argc, 1); // who starts a program may leave out its name
    std::span<char *const> words(argv + named, static_cast<size_t>(argc - named));
    if (named != 0 && is_started_by_rpcd(argv[0])) {
        continue_by_own_name(words);
        return serve_rpcd(nullptr, words);
    }
    const char *plugin = nullptr;
    if (words.size() > 1 && strcmp(words[0], "--plugin") == 0) {
        plugin = words[1];
        words = words.subspan(2);
    }
    if (!words.empty() && strcmp(words[0], "rpcd") == 0) {
        return serve_rpcd(plugin, words.subspan(1));
    }
    return serve(plugin, words);
}
