// Starting a connection, enabling and disabling an interface; see link_endpoints.h.
#include "connection/link_endpoints.h"

#include <cstring>

#include "api/handler.h"
#include "connection/bring_up.h"
#include "connection/connect.h"
#include "connection/interface_control.h"
#include "platform/board.h"
#include "platform/json.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"

namespace {

constexpr size_t COMMAND_SIZE = 100;

// The halvor's connection cache is stopped whenever a link changes.
void stop_connection_cache() {
    if (strcmp(get_model_name(), "halvor") == 0) {
        execCommand("/etc/init.d/shortcut-fe stop");
    }
}

} // namespace

int32_t modem_auto_connect(json_object *request, json_object * /*reply*/) {
    if (!vjson_contain_key(request, "modem_id") || vjson_get_int(request, "modem_id") == MODEM_ID_NONE) {
        return API_PARAMETER_MISSING;
    }
    char command[COMMAND_SIZE];
    const char *bus = requested_bus(request);
    text_format(command, "vela_modem -B %s connect-auto", bus);
    if (!is_plain_bus(bus)) {
        return API_PARAMETER_MISSING;
    }
    stop_connection_cache();
    fork_exec2(command);
    return API_OK;
}

int32_t enable_modem(json_object *request, json_object * /*reply*/) {
    constexpr int WAIT_COUNT = 2;
    constexpr int32_t BUS_TIMEOUT_S = 5;
    ModemModel model = {};
    replace_modem_struct(&model, requested_bus(request));
    if (model.bus[0] == '\0' || !is_plain_bus(model.bus)) {
        return API_PARAMETER_MISSING;
    }
    const bool disable = vjson_get_boolean(request, "disable") != 0;
    char end_tracking[COMMAND_SIZE];
    text_format(end_tracking, "kill $(ps|grep mwan3track|grep %s|awk -F ' ' '{print $1}')", model.ifname);
    forget_failures(model.bus);
    if (disable) {
        modem_disconnect(WAIT_COUNT, model.ifname);
    }
    UciHandle *configuration = vuci2_init();
    vuci2_set_name(configuration, "network", model.ifname, "disabled", disable ? "1" : "0");
    if (disable) {
        execCommand(end_tracking);
    }
    vuci2_commit(configuration, "network");
    vuci2_free(configuration);
    execCommand("killall uqmi 2>/dev/null");
    execCommand("killall -9 vela_modem 2>/dev/null");
    stop_connection_cache();
    ubus_network_reload(BUS_TIMEOUT_S);
    return API_OK;
}
