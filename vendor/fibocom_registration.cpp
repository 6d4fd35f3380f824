// Registration of a Fibocom modem; see fibocom_registration.h.
#include "vendor/fibocom_registration.h"

#include "modem/at_query.h"
#include "platform/text.h"
#include "vendor/fibocom_cells.h"
#include "vendor/fibocom_fields.h"

namespace {

constexpr size_t REGISTRATION_REPLY_SIZE = 256;
constexpr size_t CELLS_REPLY_SIZE = 1024;

constexpr size_t LINE_BREAK_AND_PREFIX = 9; // "\r\n+CREG: "
constexpr int STATE_FIELD = 1;

} // namespace

bool is_fibocom_registered(std::string_view reply) {
    char state[FIBOCOM_FIELD_SIZE] = {};
    fibocom_atcmd_value_parser(text_from(reply, LINE_BREAK_AND_PREFIX), STATE_FIELD, state);
    return std::string_view(state) == "1";
}

int fibocom_check_register(const ModemModel &model) {
    char reply[REGISTRATION_REPLY_SIZE] = {};
    return at_query_ok(model, "AT+CREG?", reply) == 0 && is_fibocom_registered(reply) ? 0 : -1;
}

int fibocom_get_mode(const ModemModel &model, std::span<char> mode) {
    char reply[CELLS_REPLY_SIZE] = {};
    if (at_query_ok(model, "AT+GTCCINFO?", reply) != 0) {
        return -1;
    }
    const char *text = read_fibocom_mode(reply);
    if (text == nullptr) {
        return -1;
    }
    text_copy(mode, text);
    return 0;
}
