// rpcd's protocol for programs; see rpcd.h.
#include "tools/rpcd.h"

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <unistd.h>
#include <utility>

#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"
#include "tools/complain.h"
#include "tools/own_path.h"
#include "tools/plugin.h"
#include "tools/request.h"
#include "tools/rpcd_arguments.h"

namespace {

constexpr const char *NAME_IN_RPCD = "vela_modem";
constexpr std::string_view PATH_PREFIX = "/modem/";
constexpr size_t METHOD_SIZE = 64;
// The longest texts that handlers have room for are a few kilobytes.
constexpr size_t REQUEST_SIZE = 65536;

// What is said where memory is short, or where a handler ended the process; ready made, as nothing else works then.
constexpr char OUT_OF_MEMORY[] = "{\"msg\":\"out of memory\",\"code\":-17}";
constexpr char TOO_LONG[] = "{\"msg\":\"a text is too long\",\"code\":-17}\n";

// A line, as the whole output.
int print(const char *text) {
    return puts(text) != EOF && fflush(stdout) == 0 ? EXIT_SUCCESS : EXIT_NO_CALL;
}

// A handler's reply, or one of no handler's with the reason as "msg".
int answer(Json reply, int32_t code, const char *reason = nullptr) {
    vjson_add_string(reply.get(), "msg", reason);
    vjson_add_int(reply.get(), "code", code);
    const bool is_whole = vjson_contain_key(reply.get(), "code") != 0;
    const char *text = is_whole ? vjson_text(reply.get(), JSON_C_TO_STRING_PLAIN) : "";
    return print(*text != '\0' ? text : OUT_OF_MEMORY);
}

int refuse(int32_t code, const char *reason) {
    return answer(Json(json_object_new_object()), code, reason);
}

void make_method(const char *path, std::span<char> method) {
    const std::string_view whole(path);
    text_copy(method, whole.starts_with(PATH_PREFIX) ? text_from(whole, PATH_PREFIX.size()) : whole);
    for (char *slash = strchr(method.data(), '/'); slash != nullptr; slash = strchr(slash, '/')) {
        *slash = '_';
    }
}

const ApiEntity *find_method(const EndpointTable &table, const char *wanted) {
    for (const ApiEntity &row : std::span(table.rows, table.count)) {
        char method[METHOD_SIZE];
        make_method(row.path, method);
        if (strcmp(method, wanted) == 0) {
            return &row;
        }
    }
    return nullptr;
}

// rpcd takes the type of an argument from the value; of a number, the value is its width in bits.
void add_argument(json_object *arguments, const EndpointArgument &argument) {
    switch (argument.type) {
    case ArgumentType::TEXT:
        vjson_add_string(arguments, argument.name, "");
        break;
    case ArgumentType::INTEGER:
        vjson_add_int(arguments, argument.name, 32);
        break;
    case ArgumentType::BOOLEAN:
        vjson_add_boolean(arguments, argument.name, 0);
        break;
    }
}

// All of standard input, as far as it fits. Returns false where it does not, or where it is no text.
bool read_request(std::span<char> text) {
    const size_t length = fread(text.data(), 1, text.size(), stdin);
    if (length == text.size()) {
        return false;
    }
    text[length] = '\0';
    return strlen(text.data()) == length;
}

// A handler aborts where a text of the request does not fit its buffer. rpcd's client shall hear of it all the same.
void answer_abort(int /*signal*/) {
    const ssize_t written = write(STDOUT_FILENO, TOO_LONG, sizeof TOO_LONG - 1);
    _exit(written > 0 ? EXIT_SUCCESS : EXIT_NO_CALL);
}

} // namespace

bool is_started_by_rpcd(const char *program) {
    const char *slash = strrchr(program, '/');
    return strcmp(slash != nullptr ? slash + 1 : program, NAME_IN_RPCD) == 0;
}

void continue_by_own_name(std::span<char *const> words) {
    static char name[] = "vela_api";
    static char first[] = "rpcd";
    char *argv[] = {name, first, nullptr, nullptr, nullptr};
    char path[PATH_MAX];
    if (words.size() <= 2 && read_own_path(path)) {
        std::copy(words.begin(), words.end(), argv + 2);
        execv(path, argv);
    }
}

int rpcd_list(const char *plugin) {
    const EndpointTable table = load_endpoints(plugin);
    if (table.rows == nullptr) {
        return EXIT_NO_CALL;
    }
    const Json methods(json_object_new_object());
    for (const ApiEntity &row : std::span(table.rows, table.count)) {
        Json arguments(json_object_new_object());
        for (const EndpointArgument &argument : endpoint_arguments()) {
            if (strcmp(argument.path, row.path) == 0) {
                add_argument(arguments.get(), argument);
            }
        }
        char method[METHOD_SIZE];
        make_method(row.path, method);
        vjson_add_object(methods.get(), method, arguments.release());
    }
    const char *text = methods != nullptr ? vjson_text(methods.get(), JSON_C_TO_STRING_PLAIN) : "";
    return *text != '\0' ? print(text) : complain("out of memory", "");
}

int rpcd_call(const char *plugin, const char *method) {
    const EndpointTable table = load_endpoints(plugin);
    if (table.rows == nullptr) {
        return refuse(API_NOT_SUPPORTED, "the plug-in cannot be loaded");
    }
    const ApiEntity *endpoint = find_method(table, method);
    if (endpoint == nullptr) {
        return refuse(API_NOT_SUPPORTED, "no such method");
    }
    static char text[REQUEST_SIZE];
    if (!read_request(text)) {
        return refuse(API_PARAMETER_MISSING, "the arguments are too long or no text");
    }
    const Json request = parse_request(text);
    if (request == nullptr) {
        return refuse(API_PARAMETER_MISSING, "the arguments are not a JSON object");
    }
    Json reply(json_object_new_object());
    struct sigaction on_abort = {};
    on_abort.sa_handler = answer_abort;
    sigaction(SIGABRT, &on_abort, nullptr);
    const int32_t status = endpoint->handler(request.get(), reply.get());
    return answer(std::move(reply), status);
}
