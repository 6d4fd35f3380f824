// Registration, SIM and carrier aggregation of Sierra Wireless modems; see sierra_registration.h.
#include "vendor/sierra_registration.h"

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "modem/modem_core/registration.h"
#include "vendor/sierra_busy.h"
#include "vendor/sierra_status.h"

namespace {

constexpr size_t SIM_REPLY_SIZE = 1024;
constexpr size_t STATUS_REPLY_SIZE = 2048;

} // namespace

int sierra_check_register(const ModemModel &model) {
    if (sierra_is_busy(model, "modem device busy,can't check register status\n")) {
        return 0;
    }
    return modem_check_register(model);
}

int read_sierra_sim_state(const char *reply) {
    if (has_keystr(reply, "ERROR")) {
        return -1;
    }
    return has_keystr(reply, "PIN\r") ? -2 : 0;
}

int sierra_check_simcard(const ModemModel &model, std::span<char> /*text*/) {
    if (sierra_is_busy(model, "modem device busy,can't check SIM status\n")) {
        return 0;
    }
    char reply[SIM_REPLY_SIZE] = {};
    return at_query(model, "AT+CPIN?", reply) == 0 ? read_sierra_sim_state(reply) : 0;
}

bool is_sierra_aggregated(const char *reply) {
    char state[SIERRA_LONGEST_VALUE + 1];
    return sierra_read_label(reply, "LTE CA state:", 0, state) == 0 && !has_keystr(state, "NOT ASSIGNED");
}

int sierra_check_cat6(const ModemModel &model) {
    char reply[STATUS_REPLY_SIZE] = {};
    return at_query_ok(model, SIERRA_STATUS_QUERY, reply) == 0 && is_sierra_aggregated(reply) ? 1 : 0;
}
