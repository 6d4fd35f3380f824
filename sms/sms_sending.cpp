// Sending messages; see sms_sending.h.
#include "sms/sms_sending.h"

#include <cstring>

#include "platform/json.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"

namespace {

constexpr const char *COUNTRY = "velaconfig.modem_sms.country";
constexpr const char *COUNTRY_CODE = "velaconfig.modem_sms.country_code";

struct Country {
    char name[60];
    char code[20];
};

void get_country(json_object *reply) {
    Country country = {};
    UciHandle *configuration = vuci2_init();
    vuci2_get(configuration, COUNTRY, country.name);
    vuci2_get(configuration, COUNTRY_CODE, country.code);
    vuci2_free(configuration);
    vjson_add_string(reply, "country", country.name);
    vjson_add_string(reply, "country_code", country.code);
}

void set_country(const char *name, const char *code) {
    // What could not be read back aborts before anything is written.
    Country readable;
    text_copy(readable.name, name != nullptr ? name : "");
    text_copy(readable.code, code != nullptr ? code : "");
    UciHandle *configuration = vuci2_init();
    vuci2_set_name(configuration, "velaconfig", "modem_sms", nullptr, "service");
    vuci2_set(configuration, COUNTRY, name);
    vuci2_set(configuration, COUNTRY_CODE, code);
    vuci2_commit(configuration, "velaconfig");
    vuci2_free(configuration);
}

} // namespace

int32_t send_modem_sms(json_object *request, json_object * /*reply*/) {
    const ModemModel *row = nullptr;
    const int32_t picked = pick_row(request, &row);
    if (picked == API_PARAMETER_MISSING) {
        return picked;
    }
    // What the message lacks is told before a modem that does not exist.
    const char *number = vjson_get_string(request, "number");
    if (number == nullptr) {
        return API_NUMBER_MISSING;
    }
    const char *message = vjson_get_string(request, "message");
    if (message == nullptr) {
        return API_TEXT_MISSING;
    }
    if (picked != API_OK) {
        return picked;
    }
    const char *type = vjson_get_string(request, "type");
    cur_dev = row->modem_id;
    char command[300];
    text_format(command, "sendsms '%s' '%s' '%s'", number, message, type != nullptr ? type : "international");
    execCommand(command);
    return API_OK;
}

int32_t modem_sms_code(json_object *request, json_object *reply) {
    const char *action = vjson_get_string(request, "action");
    if (action == nullptr || strcmp(action, "get") == 0) {
        get_country(reply);
    } else if (strcmp(action, "set") == 0) {
        set_country(vjson_get_string(request, "country"), vjson_get_string(request, "country_code"));
    }
    return API_OK;
}
