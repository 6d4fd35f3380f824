// "/modem/at"; see at_endpoint.h.
#include "api/at_endpoint.h"

#include <cstring>

#include "modem/at_exchange.h"
#include "platform/json.h"
#include "platform/text.h"
#include "vendor/quectel_default_band.h"

namespace {

constexpr size_t LONGEST_COMMAND = 256;
constexpr size_t REPLY_SIZE = 4096;

} // namespace

int32_t execute_modem_at(json_object *request, json_object *reply) {
    const char *text = vjson_get_string(request, "at-command");
    const char *port = vjson_get_string(request, "at-port");
    if (text == nullptr || port == nullptr) {
        return API_EXCHANGE_FAILED;
    }
    char command[LONGEST_COMMAND + COMMAND_TAIL] = {};
    text_copy(std::span(command).first(LONGEST_COMMAND + 1), text);
    char message[REPLY_SIZE] = {};
    if (strcmp(command, "default_band") == 0) {
        const int result = quectel_set_default_band(port, message);
        vjson_add_string(reply, "message", message);
        return result == 0 ? API_OK : API_NOT_SUPPORTED;
    }
    if (send_command(port, command, message, sizeof message) != 0) {
        return API_EXCHANGE_FAILED;
    }
    vjson_add_string(reply, "message", message);
    return API_OK;
}
