// How a request names its modem; see handler.h.
#include "api/handler.h"

#include <cstring>

#include "modem/discovery.h"
#include "platform/json.h"
#include "platform/shell.h"

int32_t pick_row(json_object *request, const ModemModel **row) {
    // The tree of sysfs may have changed since the last request.
    modem_forget_device();
    if (!vjson_contain_key(request, "modem_id")) {
        return API_PARAMETER_MISSING;
    }
    const int32_t modem_id = vjson_get_int(request, "modem_id");
    if (modem_id == MODEM_ID_NONE) {
        return API_PARAMETER_MISSING;
    }
    *row = modem_list_find_id(modem_head, modem_id);
    return *row != nullptr ? API_OK : API_NO_SUCH_MODEM;
}

int32_t pick_modem(json_object *request, ModemModel *model) {
    const ModemModel *row = nullptr;
    const int32_t picked = pick_row(request, &row);
    if (picked != API_OK) {
        return picked;
    }
    *model = *row;
    const char *bus = vjson_get_string(request, "bus");
    if (bus != nullptr) {
        replace_modem_struct(model, bus);
    }
    return API_OK;
}

int32_t pick_modem_on_bus(json_object *request, ModemModel *model) {
    return vjson_get_string(request, "bus") != nullptr ? pick_modem(request, model) : API_PARAMETER_MISSING;
}

const char *requested_bus(json_object *request) {
    modem_forget_device();
    const char *bus = vjson_get_string(request, "bus");
    return bus != nullptr ? bus : "1-1.2";
}

bool is_plain_bus(const char *bus) {
    return is_shell_word(bus) && strchr(bus, '/') == nullptr;
}

int32_t pick_row_and_bus(json_object *request, const ModemModel **row, const char **bus) {
    *bus = requested_bus(request);
    const int32_t picked = pick_row(request, row);
    return picked == API_OK && !is_plain_bus(*bus) ? API_PARAMETER_MISSING : picked;
}
