// Any arguments: how the command line is taken apart. Input: the arguments, separated by NULs.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cli/arguments.h"
#include "modem/bus_name.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    std::vector<char *> arguments;
    for (size_t start = 0; start < text.size(); start = text.find('\0', start) + 1) {
        arguments.push_back(text.data() + start);
        if (text.find('\0', start) == text.npos) {
            break;
        }
    }
    const int count = static_cast<int>(arguments.size());
    arguments.push_back(nullptr);

    Arguments parsed;
    const bool complete = parse_arguments(count, arguments.data(), &parsed);
    const bool has_bus = strstr(parsed.bus, "1-1") != nullptr || strstr(parsed.bus, "2-1") != nullptr;
    if (!has_bus || complete != (parsed.command != nullptr) || parsed.rest.size() > arguments.size()) {
        abort();
    }
    is_usb_node(parsed.bus);
    std::vector<char> underscored(strlen(parsed.bus) + 1);
    replace_bus_name(parsed.bus, underscored);
    if (strpbrk(underscored.data(), "-.") != nullptr) {
        abort();
    }
    return 0;
}
