// Texts made from a USB bus path; see bus_name.h.
#include "modem/bus_name.h"

#include <algorithm>
#include <cstdlib>
#include <sys/stat.h>

#include "platform/text.h"

void replace_bus_name(const char *bus, std::span<char> out) {
    const std::string_view text(bus);
    if (text.size() >= out.size()) {
        abort();
    }
    std::transform(text.begin(), text.end(), out.begin(),
                   [](char character) { return character == '-' || character == '.' ? '_' : character; });
}

int is_usb_node(std::string_view name) {
    return name.find_first_not_of("0123456789:-.") == name.npos;
}

int make_modem_dir(const char *bus) {
    char path[64];
    text_format(path, "/tmp/modem.%s", bus);
    return mkdir(path, 0751);
}
