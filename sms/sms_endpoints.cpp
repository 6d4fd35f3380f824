// The endpoints of received messages; see sms_endpoints.h.
#include "sms/sms_endpoints.h"

#include "platform/json.h"
#include "platform/owners.h"
#include "sms/sms_store.h"

namespace {

// The message that a request for one modem names by its file.
int32_t pick_message(json_object *request, const char **file_name) {
    const ModemModel *row = nullptr;
    const int32_t picked = pick_row(request, &row);
    if (picked == API_PARAMETER_MISSING) {
        return picked;
    }
    // A missing message is told before a modem that does not exist.
    *file_name = vjson_get_string(request, "msg_id");
    return *file_name == nullptr ? API_MESSAGE_MISSING : picked;
}

} // namespace

int del_modem_sms(const char *file_name) {
    const ModemModel *row = modem_list_find_id(modem_head, MODEM_ID_UNKNOWN);
    return row != nullptr && row->ops.del_sms != nullptr ? row->ops.del_sms(file_name) : -1;
}

int del_all_modem_sms(int32_t modem_id) {
    const ModemModel *row = modem_list_find_id(modem_head, modem_id);
    return row != nullptr && row->ops.del_all_sms != nullptr ? row->ops.del_all_sms() : -1;
}

int32_t list_modem_sms(json_object *request, json_object *reply) {
    const ModemModel *row = nullptr;
    const int32_t picked = pick_row(request, &row);
    if (picked != API_OK) {
        return picked;
    }
    Json messages(json_object_new_array());
    if (messages != nullptr) {
        modem_list_sms(messages.get());
    }
    vjson_add_object(reply, "messages", messages.release());
    return API_OK;
}

int32_t delete_modem_sms(json_object *request, json_object * /*reply*/) {
    const char *file_name = nullptr;
    const int32_t picked = pick_message(request, &file_name);
    if (picked != API_OK) {
        return picked;
    }
    return del_modem_sms(file_name) == 0 ? API_OK : API_DELETE_FAILED;
}

int32_t delete_all_modem_sms(json_object *request, json_object * /*reply*/) {
    const ModemModel *row = nullptr;
    const int32_t picked = pick_row(request, &row);
    if (picked != API_OK) {
        return picked;
    }
    return del_all_modem_sms(row->modem_id) == 0 ? API_OK : API_DELETE_FAILED;
}

int32_t modem_sms_status(json_object *request, json_object * /*reply*/) {
    const char *file_name = nullptr;
    const int32_t picked = pick_message(request, &file_name);
    if (picked != API_OK) {
        return picked;
    }
    return modem_sms_replace_status(file_name) == 0 ? API_OK : API_MARK_FAILED;
}
