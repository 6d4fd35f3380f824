// The command line of vela_modem; see arguments.h.
#include "cli/arguments.h"

#include <cstring>

namespace {

constexpr const char *DEFAULT_BUS = "1-1.2";

bool is_bus(const char *argument) {
    return strstr(argument, "1-1") != nullptr || strstr(argument, "2-1") != nullptr;
}

} // namespace

bool parse_arguments(int argc, char **argv, Arguments *arguments) {
    *arguments = {.debug = false, .bus = DEFAULT_BUS, .command = nullptr, .rest = {}};
    std::span<char *> left(argv, argc > 0 ? static_cast<size_t>(argc) : 0);
    if (!left.empty()) {
        left = left.subspan(1); // the program's name
    }
    const auto take_first = [&left] {
        char *first = left.front();
        left = left.subspan(1);
        return first;
    };
    if (!left.empty() && strcmp(left.front(), "-D") == 0) {
        arguments->debug = true;
        take_first();
    }
    if (!left.empty() && strcmp(left.front(), "-B") == 0) {
        take_first();
    }
    if (!left.empty() && is_bus(left.front())) {
        arguments->bus = take_first();
    }
    if (left.empty()) {
        return false;
    }
    arguments->command = take_first();
    arguments->rest = left;
    return true;
}
