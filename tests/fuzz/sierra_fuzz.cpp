// Any text as a reply of a Sierra Wireless modem: every reader of the dialect, and what it promises about its result.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "modem/modem_core/registration.h"
#include "vendor/sierra_cells.h"
#include "vendor/sierra_registration.h"
#include "vendor/sierra_signal.h"
#include "vendor/sierra_status.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

constexpr const char *LABELS[] = {"PS state:", "RSRP (dBm):", "RSRP (dBm):  ", "RxM RSSI C0:", "LTE CA state:", ":"};

// A number by the standard library's other reader of one.
void check_int(std::string_view reply, const char *label) {
    int32_t value = UNTOUCHED;
    const int result = sierra_read_int(reply.data(), label, &value);
    const size_t found = reply.find(label);
    std::string_view sent = found != reply.npos ? reply.substr(found + strlen(label)) : "";
    sent.remove_prefix(std::min(sent.find_first_not_of(" \t\n\v\f\r"), sent.size()));
    const bool negative = sent.starts_with('-');
    if (sent.starts_with('+') || negative) {
        sent.remove_prefix(1);
    }
    const std::string_view digits = sent.substr(0, sent.find_first_not_of("0123456789"));
    if (digits.empty()) {
        require(result == -1 && value == UNTOUCHED);
        return;
    }
    int64_t expected = INT64_MAX; // stays so where there are too many digits
    std::from_chars(digits.data(), digits.data() + digits.size(), expected);
    expected = std::clamp<int64_t>(negative ? -expected : expected, INT32_MIN, INT32_MAX);
    require(result == 0 && value == expected);
}

// All values of a label by scanf's rule.
void check_labels(std::string_view reply, const char *label) {
    size_t occurrence = 0;
    for (size_t found = reply.find(label); found != reply.npos; found = reply.find(label, found + strlen(label))) {
        char sent[SIERRA_LONGEST_VALUE + 1] = {};
        const bool there = sscanf(reply.data() + found + strlen(label), "%100[^\r\n\t]", sent) == 1;
        std::string expected = there ? sent : "untouched";
        expected.erase(expected.find_last_not_of(' ') + 1);
        expected.erase(0, expected.find_first_not_of(' '));
        char value[SIERRA_LONGEST_VALUE + 1] = "untouched";
        require(sierra_read_label(reply.data(), label, occurrence++, value) == (there ? 0 : -1));
        require(expected == value);
    }
    char value[SIERRA_LONGEST_VALUE + 1] = "untouched";
    require(sierra_read_label(reply.data(), label, occurrence, value) == -1 && strcmp(value, "untouched") == 0);
}

void check_signal(std::string_view reply) {
    int32_t level = UNTOUCHED;
    const int generation = read_sierra_signal(reply.data(), &level);
    if (generation == -1) {
        require(level == UNTOUCHED);
        return;
    }
    require(level >= 1 && level <= 4);
    require(generation == (reply.find("LTE") != reply.npos ? 4 : 3));
    require(generation == 4 || reply.find("WCDMA") != reply.npos);
}

void check_cells(std::string_view reply) {
    const Json cells(json_object_new_array());
    require(read_sierra_cells(reply.data(), cells.get()) == 0);
    check_objects(cells.get());
    size_t expected = 0;
    for (const char *word : {"LTE", "SCC", "WCDMA"}) {
        expected += reply.find(word) != reply.npos ? 1 : 0;
    }
    require(json_object_array_length(cells.get()) == expected);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // A reply ends with its first NUL; on the heap and of exactly this size, so that a byte beyond it is seen.
    const size_t length = static_cast<size_t>(std::find(data, data + size, 0) - data);
    std::vector<char> bytes(data, data + length);
    bytes.push_back('\0');
    const std::string_view reply(bytes.data(), length);

    for (const char *label : LABELS) {
        check_int(reply, label);
        check_labels(reply, label);
    }
    check_signal(reply);
    check_cells(reply);
    is_registered(reply.data());
    is_sierra_aggregated(reply.data());
    const int sim = read_sierra_sim_state(reply.data());
    require(sim == 0 || sim == -1 || sim == -2);
    return 0;
}
