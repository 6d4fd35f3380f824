// What the microcontroller is told of a modem; see mcu.h.
#include "router/mcu.h"

#include <syslog.h>

#include "connection/interface_control.h"
#include "modem/detection.h"
#include "modem/model.h"
#include "modem/modem_core/carrier.h"
#include "modem/modem_core/registration.h"
#include "modem/modem_core/signal.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"
#include "sms/sms_store.h"

namespace {

constexpr int NO_STATUS = -1;
constexpr int FAULT = 0;
// Callers know a positive result, as json_object_put() has when it releases an object.
constexpr int FULL_STATUS = 1;

constexpr int32_t LINK_TIMEOUT = 100;

int no_status(const char *message) {
    syslog(LOG_DEBUG, "%s", message);
    return NO_STATUS;
}

// The name alone: the codes that come with it mean nothing to the microcontroller.
void add_carrier(json_object *reply, const ModemModel &model) {
    modem_read_carrier(reply, model);
    vjson_del_key(reply, "mcc");
    vjson_del_key(reply, "mnc");
}

void add_new_messages(json_object *reply, const ModemModel &model) {
    const int count = modem_check_new_sms(model.bus);
    if (count > 0) {
        char text[12];
        text_format(text, "%d", count);
        vjson_add_string(reply, "sms", text);
    }
}

// The digit of a level, or what else stands there in the character table.
char level_digit(int32_t level) {
    constexpr char UNREAD = '0' - 1;
    const auto digit = static_cast<char>('0' + static_cast<uint8_t>(level));
    // A level that could not be read is reported as full strength, on purpose.
    return digit == UNREAD ? '4' : digit;
}

void add_signal(json_object *reply, const ModemModel &model) {
    if (model.ops.signal_info == nullptr) {
        return;
    }
    char mode[8] = {};
    int32_t level = -1;
    get_modem_signal(model, mode, &level, reply);
    const char digit[] = {level_digit(level), '\0'};
    vjson_add_string(reply, "signal", digit);
    vjson_add_string(reply, "modem_mode", mode);
}

void add_link(json_object *reply, const ModemModel &model) {
    if (iface_status(model.ifname, LINK_TIMEOUT) == IFACE_UP) {
        vjson_add_string(reply, "modem_up", "1");
    }
}

} // namespace

int modem_mcu_interface(const char *bus, json_object *reply) {
    const Json report(json_object_new_object());
    if (report == nullptr) {
        return no_status("MCU ALLOCAL MEMORY FAILED\n");
    }
    ModemModel model;
    detect_modem(&model, report.get(), bus, 0);
    if (model.modem_id < 0) {
        return no_status("MCU DETECT MODEM FAILED\n");
    }
    char fault[80] = {};
    if (fault_analysis(model, fault) != 0) {
        vjson_add_string(reply, "SIM", fault);
        syslog(LOG_DEBUG, "MCU SIM ERROR\n");
        return FAULT;
    }
    add_carrier(reply, model);
    add_new_messages(reply, model);
    add_signal(reply, model);
    add_link(reply, model);
    return FULL_STATUS;
}
