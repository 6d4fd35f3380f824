// Board name and default gateway, read from what the system publishes in files.
#include "platform/board.h"

#include <arpa/inet.h>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr size_t CONTENT_SIZE = 256;

struct NameSource {
    char path[24];
    char separators[3]; // the name is what follows the last of these
};

// In the order of preference.
constexpr NameSource NAME_SOURCES[] = {
    {"/tmp/sysinfo/board_name", ","},
    {"/proc/device-tree/model", ", "},
};

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view BLANK("\0 \t\r\n", 5); // the device tree's texts end in a NUL
    const size_t end = text.find_last_not_of(BLANK);
    text = end == text.npos ? std::string_view() : text_before(text, end + 1);
    return text_from(text, text.find_first_not_of(BLANK));
}

void read_name(const NameSource &source, std::span<char> name) {
    const File file(fopen(source.path, "re"));
    if (file == nullptr) {
        return;
    }
    char content[CONTENT_SIZE];
    const std::string_view text = trimmed({content, fread(content, 1, sizeof content, file.get())});
    const size_t separator = text.find_last_of(source.separators);
    text_copy(name, trimmed(separator == text.npos ? text : text_from(text, separator + 1)));
    for (char &character : name) {
        character = static_cast<char>(tolower(static_cast<unsigned char>(character)));
    }
}

// One line of /proc/net/route. The kernel prints addresses as the 32-bit number that lies in memory, so reading the
// number back into memory gives network order on processors of either byte order.
struct Route {
    char ifname[32];
    uint32_t destination;
    uint32_t gateway;
    unsigned flags;
    int metric;
    uint32_t mask;
};

bool parse_route(const char *line, Route &route) {
    return sscanf(line, "%31s %x %x %x %*d %*d %d %x", route.ifname, &route.destination, &route.gateway, &route.flags,
                  &route.metric, &route.mask) == 6;
}

bool is_default_by_gateway(const Route &route) {
    constexpr unsigned ROUTE_UP = 0x1; // RTF_UP and RTF_GATEWAY of <linux/route.h>
    constexpr unsigned ROUTE_GATEWAY = 0x2;
    return route.destination == 0 && route.mask == 0 && (route.flags & ROUTE_UP) != 0 &&
           (route.flags & ROUTE_GATEWAY) != 0;
}

} // namespace

const char *get_model_name() {
    static char name[CONTENT_SIZE + 1];
    for (const NameSource &source : NAME_SOURCES) {
        if (name[0] != '\0') {
            break;
        }
        read_name(source, name);
    }
    return name;
}

void get_gateway_by_ifname(const char *ifname, std::span<char> out) {
    text_clear(out);
    const File file(fopen("/proc/net/route", "re"));
    if (file == nullptr) {
        return;
    }
    bool found = false;
    int best_metric = 0;
    char line[256];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        Route route;
        if (!parse_route(line, route) || strcmp(route.ifname, ifname) != 0 || !is_default_by_gateway(route)) {
            continue;
        }
        if (!found || route.metric < best_metric) {
            found = true;
            best_metric = route.metric;
            char dotted_quad[INET_ADDRSTRLEN];
            if (inet_ntop(AF_INET, &route.gateway, dotted_quad, sizeof dotted_quad) != nullptr) {
                text_copy(out, dotted_quad);
            }
        }
    }
}
