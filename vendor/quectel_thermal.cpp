// Thermal limits of Quectel modems; see quectel_thermal.h.
#include "vendor/quectel_thermal.h"

#include "modem/at_query.h"
#include "platform/text.h"
#include "platform/uci.h"

namespace {

constexpr size_t COMMAND_SIZE = 100;

// A configured value, sent as it stands.
struct Setting {
    Setting(UciHandle *configuration, const char *path, const char *unset) {
        vuci2_get(configuration, path, text);
        if (text[0] == '\0') {
            text_copy(text, unset);
        }
    }

    char text[32] = {};
};

} // namespace

int quectel_thermal_ctrl(const ModemModel &model) {
    UciHandle *configuration = vuci2_init();
    // "limt" and "tigger" are how the options are spelt.
    const Setting limit(configuration, "velaconfig.modem.en_limt", "0");
    const Setting trigger(configuration, "velaconfig.modem.tigger", "95");
    const Setting clear(configuration, "velaconfig.modem.clear", "90");
    vuci2_free(configuration);

    char command[COMMAND_SIZE];
    text_format(command, "AT+QCFG=\"thermal/limit_rates\",%s", limit.text);
    if (at_set(model, command) != 0) {
        return -1;
    }
    text_format(command, "AT+QCFG=\"thermal/modem\",1,%s,%s", trigger.text, clear.text);
    return at_set(model, command);
}
