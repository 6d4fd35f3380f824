// Any text as a reply of a Quectel modem: every reader of the dialect, and what it promises about its result.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/owners.h"
#include "vendor/quectel_cells.h"
#include "vendor/quectel_fields.h"
#include "vendor/quectel_registration.h"
#include "vendor/quectel_signal.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

void require(bool condition) {
    if (!condition) {
        abort();
    }
}

// Objects of texts, "type" first, that leave the program as JSON which parses.
void check_objects(json_object *array) {
    for (size_t i = 0; i < json_object_array_length(array); i++) {
        bool first = true;
        json_object_object_foreach(json_object_array_get_idx(array, i), key, value) {
            require(!first || strcmp(key, "type") == 0);
            require(json_object_is_type(value, json_type_string));
            first = false;
        }
        require(!first);
    }
    const Json parsed(json_tokener_parse(json_object_to_json_string(array)));
    require(json_object_equal(parsed.get(), array) != 0);
}

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
    is_quectel_registered(reply.data());
    return 0;
}
