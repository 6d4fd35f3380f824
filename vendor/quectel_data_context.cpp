// Data context of Quectel modems; see quectel_data_context.h.
#include "vendor/quectel_data_context.h"

#include <string_view>

#include "modem/at_query.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace {

constexpr size_t COMMAND_SIZE = 100;

// A context, as the two commands have it. Both have to name the same one, and the same type in their own ways.
struct DataContext {
    int number;
    char pdp_type[7]; // of AT+CGDCONT (3GPP TS 27.007)
    int context_type; // of AT+QICSGP (Quectel's TCP/IP manual): 1 IPv4, 3 IPv4 and IPv6
};

constexpr DataContext ORDINARY = {1, "IP", 1};
constexpr DataContext VERIZON = {3, "IPV4V6", 3};

struct Authentication {
    char text[12];
    int code;
};

constexpr Authentication AUTHENTICATIONS[] = {{"NONE", 0}, {"PAP", 1}, {"CHAP", 2}, {"PAP or CHAP", 3}};

// Whether what the command prints begins so. More than that beginning does not matter, so it may be cut.
bool prints(const char *command, std::string_view beginning) {
    char output[20] = {};
    getShellCommandReturn(command, output);
    return std::string_view(output).starts_with(beginning);
}

// The context of the SIM in the modem; null where the SIM is not ready.
const DataContext *data_context() {
    if (!prints("cat /tmp/sim_status", "ready")) {
        return nullptr;
    }
    return prints("cat /tmp/sim_type", "verizon") ? &VERIZON : &ORDINARY;
}

const char *or_empty(const char *text) {
    return text != nullptr ? text : "";
}

} // namespace

int quectel_authentication_code(const char *text) {
    for (const Authentication &row : AUTHENTICATIONS) {
        if (std::string_view(row.text) == text) {
            return row.code;
        }
    }
    return 0;
}

int quectel_set_apn(const ModemModel &model, const char *apn) {
    const DataContext *context = data_context();
    if (context == nullptr) {
        return -1;
    }
    char command[COMMAND_SIZE];
    text_format(command, "AT+CGDCONT=%d,\"%s\",\"%s\"", context->number, context->pdp_type, or_empty(apn));
    return at_set(model, command);
}

int quectel_set_ath(const ModemModel &model, const char *apn, const char *username, const char *password,
                    const char *authentication) {
    const DataContext *context = data_context();
    if (context == nullptr) {
        return -1;
    }
    char command[COMMAND_SIZE];
    text_format(command, "AT+QICSGP=%d,%d,\"%s\",\"%s\",\"%s\",%d", context->number, context->context_type,
                or_empty(apn), or_empty(username), or_empty(password),
                quectel_authentication_code(or_empty(authentication)));
    return at_set(model, command);
}
