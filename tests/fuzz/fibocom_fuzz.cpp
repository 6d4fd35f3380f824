// Any text as a reply of a Fibocom modem: every reader of the dialect, and what it promises about its result.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "platform/owners.h"
#include "vendor/fibocom_cells.h"
#include "vendor/fibocom_fields.h"
#include "vendor/fibocom_registration.h"
#include "vendor/fibocom_signal.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

// Objects of texts that leave the program as JSON which parses.
void check_texts(json_object *array) {
    for (size_t i = 0; i < json_object_array_length(array); i++) {
        json_object_object_foreach(json_object_array_get_idx(array, i), key, value) {
            require(json_object_is_type(value, json_type_string));
            // Only this one may be empty.
            require(*json_object_get_string(value) != '\0' || strcmp(key, "rssi") == 0);
        }
    }
    const Json parsed(json_tokener_parse(json_object_to_json_string(array)));
    require(json_object_equal(parsed.get(), array) != 0);
}

void check_signal(std::string_view cesq, std::string_view csq) {
    const Json signals(json_object_new_array());
    json_object *signal = json_object_new_object();
    json_object_array_add(signals.get(), signal);
    int32_t level = UNTOUCHED;
    read_fibocom_signal(cesq, csq, signal, &level);
    check_texts(signals.get());
    require(level >= 1 && level <= 4);
    require((json_object_object_get_ex(signal, "rssi", nullptr) != 0) == (csq.find("+CSQ:") != csq.npos));
}

// The number of neighbours by the lines below the heading.
size_t neighbours_in(std::string_view reply) {
    static constexpr std::string_view HEADING = "LTE neighbor cell:";
    size_t count = 0;
    size_t at = reply.find(HEADING);
    if (at == reply.npos) {
        return 0;
    }
    for (at += HEADING.size() + 2; at < reply.size();) {
        const size_t end = std::min(reply.find_first_of("\r\n", at), reply.size());
        const std::string_view line = reply.substr(at, end - at);
        if (line.substr(0, 2) == "OK") {
            break;
        }
        count += !line.empty() && line.substr(0, HEADING.size()) != HEADING;
        at = end + 1;
    }
    return count;
}

void check_cells(std::string_view reply, std::string_view csq) {
    const Json cells(json_object_new_array());
    read_fibocom_cells(reply, csq, cells.get());
    check_texts(cells.get());
    const bool has_serving_cell = reply.find("LTE service cell:") != reply.npos;
    require(json_object_array_length(cells.get()) == neighbours_in(reply) + (has_serving_cell ? 1 : 0));
    const char *mode = read_fibocom_mode(reply);
    require(mode == nullptr || (has_serving_cell && strlen(mode) == 2 && *mode >= '2' && *mode <= '4'));
}

// The same by splitting the text at its commas: what a value is, told another way.
void check_fields(std::string_view text) {
    constexpr int MOST = 100; // as each is looked for from the start
    std::string_view rest = text;
    for (int number = 0; number < MOST; number++) {
        const size_t comma = rest.find(',');
        const std::string_view sent = rest.substr(0, std::min(comma, rest.find('\r')));
        char value[FIBOCOM_FIELD_SIZE] = "untouched";
        require(fibocom_atcmd_value_parser(text, number, value) == (sent.empty() ? -1 : 0));
        require(value == (sent.empty() ? "untouched" : sent.substr(0, sizeof value - 1)));
        if (comma == rest.npos) {
            require(fibocom_atcmd_value_parser(text, number + 1, value) == -1);
            return;
        }
        rest.remove_prefix(comma + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // A reply ends with its first NUL; on the heap and of exactly this size, so that a byte beyond it is seen.
    const size_t length = static_cast<size_t>(std::find(data, data + size, 0) - data);
    const std::vector<char> bytes(data, data + length);
    const std::string_view reply(bytes.data(), bytes.size());

    check_fields(reply);
    check_signal(reply, reply);
    check_signal(reply, {});
    check_cells(reply, reply);
    check_cells(reply, {});
    is_fibocom_registered(reply);
    return 0;
}
