// SIM and registration; see registration.h.
#include "modem/modem_core/registration.h"

#include <cctype>

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "platform/text.h"

namespace {

struct SimState {
    char words[6]; // in the reply to AT+CPIN?
    int state;
    char text[9];
};

// In the order in which they are looked for. A reply that ends its line in "PIN" or "PUK" also covers the requests for
// other codes, such as PH-SIM PIN.
constexpr SimState SIM_STATES[] = {
    {"ERROR", -1, "ERROR"},
    {"PIN\r", -2, "NEED PIN"},
    {"PUK\r", -4, "NEED PUK"},
    {"READY", 0, "READY"},
};

struct Fault {
    int sim_state;
    char text[8];
};

constexpr Fault SIM_FAULTS[] = {{-1, "NO_SIM"}, {-2, "PIN_SIM"}, {-4, "PUK_SIM"}};
constexpr int NOT_REGISTERED = -3;

} // namespace

int read_register_status(const char *reply) {
    const char *next = after_line_break(reply);
    if (next == nullptr) {
        return -1;
    }
    for (; *next != '\0'; next++) {
        if ((*next == '\r' || *next == '\n') && next[1] == '\n') {
            return -1;
        }
        if (*next == ',' && isdigit(static_cast<unsigned char>(next[1]))) {
            return next[1] - '0';
        }
    }
    return -1;
}

int modem_get_register_status(int tty_number) {
    char port[16];
    char reply[100];
    text_format(port, "/dev/ttyUSB%d", tty_number);
    if (at_send(port, "AT+CREG?", reply) != 0 || !is_ok(reply)) {
        return -1;
    }
    return read_register_status(reply);
}

bool is_registered(const char *reply) {
    return has_keystr(reply, ",1\r") || has_keystr(reply, ",5\r");
}

int modem_check_register(const ModemModel &model) {
    char reply[256];
    return at_query_ok(model, "AT+CREG?", reply) != 0 || is_registered(reply) ? 0 : -1;
}

int read_sim_state(const char *reply, std::span<char> text) {
    for (const SimState &row : SIM_STATES) {
        if (has_keystr(reply, row.words)) {
            text_copy(text, row.text);
            return row.state;
        }
    }
    return 0;
}

int modem_check_simcard(const ModemModel &model, std::span<char> text) {
    char reply[1024];
    return at_query(model, "AT+CPIN?", reply) == 0 ? read_sim_state(reply, text) : 0;
}

int fault_analysis(const ModemModel &model, std::span<char> text) {
    if (model.ops.check_simcard != nullptr) {
        char scratch[64] = {};
        const int state = model.ops.check_simcard(model, std::span(scratch));
        for (const Fault &fault : SIM_FAULTS) {
            if (state == fault.sim_state) {
                text_copy(text, fault.text);
                return state;
            }
        }
    }
    if (model.ops.check_register == nullptr || model.ops.check_register(model) >= 0) {
        return 0;
    }
    text_copy(text, "NO_REG");
    return NOT_REGISTERED;
}
