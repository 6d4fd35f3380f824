// Any text as a modem's reply, or as its signal file: every reader of signal, mode, bands, registration and SIM, and what
// it promises about its result.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "modem/modem_core/mode_band.h"
#include "modem/modem_core/registration.h"
#include "modem/modem_core/signal.h"
#include "platform/owners.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

bool is_one_of(const char *text, std::initializer_list<std::string_view> possible) {
    return std::find(possible.begin(), possible.end(), std::string_view(text)) != possible.end();
}

void check_modes(const char *reply) {
    for (const auto read : {read_quectel_mode, read_zte_mode, read_simcom_mode}) {
        const char *mode = read(reply);
        require(mode == nullptr || is_one_of(mode, {"2G", "3G", "4G"}));
    }
    const char *scan_mode = read_scan_mode(reply);
    require((scan_mode == nullptr) == (strpbrk(reply, "0123") == nullptr));
    require(scan_mode == nullptr || is_one_of(scan_mode, {"AUTO", "GSM only", "WCDMA only", "LTE only"}));
}

void check_registration(const char *reply) {
    const int status = read_register_status(reply);
    require(status >= -1 && status <= 9);

    std::vector<char> text(9);
    const int result = read_sim_state(reply, text);
    require(text.back() == '\0');
    switch (result) {
    case 0:
        require(is_one_of(text.data(), {"", "READY"}));
        break;
    case -1:
        require(is_one_of(text.data(), {"ERROR"}));
        break;
    case -2:
        require(is_one_of(text.data(), {"NEED PIN"}));
        break;
    case -4:
        require(is_one_of(text.data(), {"NEED PUK"}));
        break;
    default:
        require(false);
    }
}

void check_csq(const char *reply) {
    const int32_t value = read_csq(reply);
    require(value >= -1 && value <= 99999999);
}

void check_signal_file(const char *text) {
    const Json report(json_tokener_parse(text));
    int32_t level = UNTOUCHED;
    const int generation = read_qmi_signal(report.get(), &level);
    require(generation == -1 ? level == UNTOUCHED : generation >= 2 && generation <= 4 && level >= 1 && level <= 4);

    const Json out(json_object_new_object());
    read_qmi_measurements(report.get(), out.get());
    require((json_object_object_length(out.get()) > 0) == (generation != -1));
    json_object_object_foreach(out.get(), key, value) {
        require(*key != '\0' && json_object_is_type(value, json_type_string));
    }
}

// The names of 19 bands have at most 19 * 5 = 95 characters.
bool has_few_bands(std::string_view mask) {
    return (mask.size() - static_cast<size_t>(std::count(mask.begin(), mask.end(), '0'))) * 4 <= 19;
}

// The process ends on purpose where a mask is too long or has too many bands, so replies with such masks stay out.
bool has_masks_that_fit(std::string_view reply) {
    constexpr std::string_view START = ",0x";
    size_t starts[3] = {};
    size_t from = 0;
    for (size_t &start : starts) {
        const size_t found = reply.find(START, from);
        if (found == reply.npos) {
            return true;
        }
        start = from = found + START.size();
    }
    const size_t end = reply.find("OK", from);
    if (end == reply.npos) {
        return true;
    }
    constexpr size_t LINE_ENDS = 4;                                                  // before the final "OK"
    const std::string_view gsm = reply.substr(starts[0], starts[1] - 2 - starts[0]); // with the comma behind it
    const std::string_view m1 = reply.substr(starts[1], starts[2] - 2 - starts[1]);
    const std::string_view nb2 = reply.substr(starts[2], end - starts[2] < LINE_ENDS ? 0 : end - starts[2] - LINE_ENDS);
    return gsm.size() <= 8 && m1.size() <= 40 && nb2.size() <= 40 && has_few_bands(m1) && has_few_bands(nb2);
}

void check_bands(const char *reply) {
    if (!has_masks_that_fit(reply)) {
        return;
    }
    const Json bands(json_object_new_object());
    read_band_configuration(reply, bands.get());
    const int members = json_object_object_length(bands.get());
    require(members == 0 || members == 3);
    json_object_object_foreach(bands.get(), key, value) {
        require(is_one_of(key, {"EGPRS", "Cat M1", "Cat NB2"}));
        const std::string_view names = json_object_get_string(value);
        require(names.size() <= 99 && (names.empty() || names.ends_with(' ')));
        require(strcmp(key, "Cat M1") != 0 || names.starts_with("B3 B4 "));
    }
}

void check_hexadecimal(std::string_view text) {
    std::vector<uint8_t> bytes((text.size() + 1) / 2);
    int count = -1;
    require(StringToHex(text, bytes, &count) == count);
    require(static_cast<size_t>(count) == bytes.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // A reply ends with its first NUL; on the heap and of exactly this size, so that a byte beyond it is seen.
    const size_t length = static_cast<size_t>(std::find(data, data + size, 0) - data);
    std::vector<char> reply(data, data + length);
    reply.push_back('\0');

    check_modes(reply.data());
    check_registration(reply.data());
    check_csq(reply.data());
    check_signal_file(reply.data());
    check_bands(reply.data());
    check_hexadecimal({reinterpret_cast<const char *>(data), size});
    return 0;
}
