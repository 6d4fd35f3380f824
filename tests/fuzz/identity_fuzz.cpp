// Any reply into the readers of identity, operator and carrier name.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "modem/modem_core/carrier.h"
#include "modem/modem_core/identity.h"

namespace {

bool holds(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

void check_digits(const std::string &reply) {
    for (const size_t wanted : {IMSI_LENGTH, ICCID_LENGTH}) {
        std::vector<char> digits(wanted);
        const int result = parse_first_digits(reply.c_str(), digits);
        const std::string_view all(digits.data(), digits.size());
        require(result == (is_all_digits(all) ? 0 : -1));
        require(result != 0 || holds(reply.c_str(), all));
    }
    // As long as the reply, which is what the caller promises.
    std::vector<char> imei(reply.size() + 1);
    const bool found = parse_imei(reply.c_str(), imei) == 0;
    require(is_all_digits(imei.data()));
    require(found == (strlen(imei.data()) >= IMEI_LENGTH));
}

void check_identity(const std::string &reply) {
    std::vector<char> text(IDENTITY_SIZE);
    const int result = parse_identity(reply.c_str(), text);
    require(text.back() == '\0');
    const std::string_view value(text.data());
    require(result == (value.empty() ? -1 : 0));
    require(!holds(value, "\n") && holds(reply.c_str(), value));
}

void check_names(const std::string &reply) {
    std::vector<char> name(64);
    const int result = parse_operator_name(reply.c_str(), name);
    const std::string_view value(name.data());
    require(result == (value.empty() ? -1 : 0));
    require(value.find_first_of("\"\r\n") == value.npos);

    std::string carrier = reply;
    cut_carrier_name(carrier.data());
    const size_t length = strlen(carrier.c_str());
    require(length <= 16 && reply.compare(0, length, carrier, 0, length) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    // Replies end at their first NUL; the copy is of just that size, so that a byte beyond it is seen.
    const std::string reply(reinterpret_cast<const char *>(data), size);
    check_digits(reply);
    check_identity(reply);
    check_names(reply);
    return 0;
}
