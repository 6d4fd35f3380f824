// Carrier and APNs of the SIM; see carrier.h.
#include "modem/modem_core/carrier.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "modem/at_query.h"
#include "modem/debug.h"
#include "modem/modem_core/identity.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "vendor/apn_database.h"

namespace {

constexpr size_t LONGEST_CARRIER = 16;
// A country code with a network code of three digits, and of two.
constexpr size_t KEY_LENGTHS[] = {6, 5};
constexpr size_t SHORT_MNC_LENGTH = 2;

// The second fields of the lines of the operator list that contain the key; null where there is none.
Allocated<char> search_operator_list(std::string_view key) {
    // Behind its first five digits a damaged IMSI file may hold any byte; no other than a digit may reach the shell.
    if (!is_all_digits(key)) {
        return nullptr;
    }
    char command[80];
    text_format(command, "cat /usr/share/modem/operator.dat|grep %.*s|cut -d ',' -f 2", static_cast<int>(key.size()),
                key.data());
    return Allocated<char>(getShellCommandReturnDynamic(command));
}

Allocated<char> find_carrier(std::string_view network) {
    for (const size_t length : KEY_LENGTHS) {
        Allocated<char> name = search_operator_list(text_before(network, length));
        if (name != nullptr) {
            return name;
        }
    }
    return nullptr;
}

} // namespace

void cut_carrier_name(char *text) {
    const size_t length = strlen(text);
    if (length >= 2 && text[length - 1] == '\n') {
        text[length - 1] = '\0';
    }
    text[std::min(length, LONGEST_CARRIER)] = '\0';
}

int parse_operator_name(const char *reply, std::span<char> name) {
    const std::string_view all(reply);
    const size_t quote = all.find('"');
    const std::string_view rest = text_from(all, quote == all.npos ? all.size() : quote + 1);
    const std::string_view found = text_before(rest, rest.find_first_of("\"\r\n"));
    text_copy_cut(name, found);
    return found.empty() ? -1 : 0;
}

int modem_read_carrier(json_object *reply, const ModemModel &model) {
    char mcc[MCC_SIZE] = {};
    char mnc[MNC_SIZE] = {};
    if (modem_get_mcc_mnc(model, mcc, mnc) != 0) {
        vjson_add_string(reply, "carrier", "");
        return -1;
    }
    vjson_add_string(reply, "mnc", mnc);
    vjson_add_string(reply, "mcc", mcc);
    char network[MCC_SIZE + MNC_SIZE];
    text_format(network, "%s%s", mcc, mnc);
    const Allocated<char> carrier = find_carrier(network);
    if (carrier != nullptr) {
        cut_carrier_name(carrier.get());
    }
    vjson_add_string(reply, "carrier", carrier != nullptr ? carrier.get() : "");
    return 0;
}

int modem_get_operator(const ModemModel &model, std::span<char> name) {
    char reply[100] = {};
    return at_query_ok(model, "AT+COPS?", reply) == 0 ? parse_operator_name(reply, name) : -1;
}

int modem_get_isp(const ModemModel &model, json_object *entries) {
    if (get_custom_apns(model, entries, nullptr) == 0) {
        return 0;
    }
    char mcc[MCC_SIZE] = {};
    char mnc[MNC_SIZE] = {};
    if (modem_get_mcc_mnc(model, mcc, mnc) != 0) {
        DEBUG_printf("get isp failed\n");
        return -1;
    }
    int found = find_apns(isp_object, mcc, mnc, entries);
    if (found == 0) {
        mnc[SHORT_MNC_LENGTH] = '\0';
        found = find_apns(isp_object, mcc, mnc, entries);
    }
    if (found > 0) {
        DEBUG_printf("%s\n", vjson_text(entries, JSON_C_TO_STRING_SPACED));
        return 0;
    }
    if (found == 0) {
        DEBUG_printf("get isp failed\n");
    }
    return -1;
}
