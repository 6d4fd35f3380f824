// Any text as a reply of a Quectel modem: every reader of the dialect, and what it promises about its result.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "modem/modem_core/registration.h"
#include "platform/owners.h"
#include "vendor/quectel_cells.h"
#include "vendor/quectel_default_band.h"
#include "vendor/quectel_fields.h"
#include "vendor/quectel_registration.h"
#include "vendor/quectel_signal.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

void check_signals(int (*read)(const char *, json_object *, int32_t *), const char *reply) {
    const Json signals(json_object_new_array());
    int32_t level = UNTOUCHED;
    const int rank = read(reply, signals.get(), &level);
    check_objects(signals.get());
    require(rank == -1 ? level == UNTOUCHED : rank >= 2 && rank <= 4 && level >= 0 && level <= 4);
}

void check_cells(void (*read)(const char *, json_object *), const char *reply) {
    const Json cells(json_object_new_array());
    read(reply, cells.get());
    check_objects(cells.get());
}

// The same by splitting the first line at its commas: what a field is, told another way.
void check_fields(const char *reply) {
    std::string_view line(reply);
    const size_t end = line.find_first_of("\r\n");
    const bool complete = end != line.npos && line[end] == '\r';
    line = line.substr(0, end);
    const bool quoted = line.starts_with('"');
    for (int number = 0;; number++) {
        const size_t comma = line.find(',');
        std::string_view value = line.substr(0, comma);
        value.remove_prefix(value.starts_with('"') ? 1 : 0);
        value.remove_suffix(value.ends_with('"') ? 1 : 0);
        char field[20] = "untouched";
        const int result = quectel_get_field(reply, number, field);
        const bool there = comma != line.npos || (complete && (number > 0 || quoted));
        require(result == (there ? 0 : -1));
        require(std::string_view(field) == (there ? value.substr(0, sizeof field - 1) : "untouched"));
        if (comma == line.npos) {
            require(quectel_get_field(reply, number + 1, field) == -1);
            return;
        }
        line.remove_prefix(comma + 1);
    }
}

// The same by the names alone: a command is for a variant whose name stands in the revision's line.
void check_band_command(std::string_view reply) {
    const char *command = read_default_band_command(reply.data());
    const size_t label = reply.find("Revision:");
    std::string_view revision = label != reply.npos ? reply.substr(label + 9) : "";
    revision = revision.substr(0, std::min<size_t>(revision.find('\n'), 60));
    bool known = false;
    for (const char *name :
         {"EC25AFFA", "EC25AFXD", "EC25AFA", "EC20CE", "EC25E", "EP06E", "EP06A", "EC25AU", "EG25G"}) {
        known = known || revision.find(name) != revision.npos;
    }
    require((command != nullptr) == known);
    require(command == nullptr || std::string_view(command).starts_with("AT+QCFG=\"band\",0,"));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // A reply ends with its first NUL; on the heap and of exactly this size, so that a byte beyond it is seen.
    const size_t length = static_cast<size_t>(std::find(data, data + size, 0) - data);
    std::vector<char> reply(data, data + length);
    reply.push_back('\0');

    check_fields(reply.data());
    check_signals(read_quectel_signals, reply.data());
    check_signals(read_ep06_signals, reply.data());
    check_cells(read_quectel_carriers, reply.data());
    check_cells(read_quectel_serving_cells, reply.data());
    check_cells(read_quectel_neighbour_cells, reply.data());
    read_quectel_lte_band(reply.data());
    is_quectel_aggregated(reply.data());
    is_registered(reply.data());
    check_band_command(reply.data());
    return 0;
}
