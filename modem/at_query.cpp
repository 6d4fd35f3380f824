// One question to a modem; see at_query.h.
#include "modem/at_query.h"

#include "modem/at_exchange.h"
#include "modem/discovery.h"
#include "platform/text.h"

int at_send(const char *port, const char *command, std::span<char> reply) {
    char line[LONGEST_QUERY + COMMAND_TAIL] = {};
    text_copy(std::span(line).first(LONGEST_QUERY + 1), command);
    text_clear(reply);
    return send_command(port, line, reply.data(), static_cast<int>(reply.size()));
}

int at_query(const ModemModel &model, const char *command, std::span<char> reply) {
    char port[PORT_PATH_SIZE] = {};
    if (modem_search_port(model.bus, model.control_port, port) < 1) {
        return EXCHANGE_NO_REPLY;
    }
    return at_send(port, command, reply);
}

int at_query_ok(const ModemModel &model, const char *command, std::span<char> reply) {
    return at_query(model, command, reply) == 0 && is_ok(reply.data()) ? 0 : -1;
}

int at_set(const ModemModel &model, const char *command) {
    char reply[200];
    return at_query(model, command, reply) != 0 || is_ok(reply) ? 0 : -1;
}
