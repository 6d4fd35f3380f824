// The commands that connect and disconnect; see connect_commands.h.
#include "cli/connect_commands.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "connection/connect.h"
#include "modem/debug.h"
#include "modem/modem_core/carrier.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"
#include "platform/uci.h"
#include "vendor/apn_database.h"

namespace {

constexpr int EXIT_NO_DATABASE = 255; // -1 as the shell sees it

int report_connection(int result) {
    if (result == 0) {
        fputs("\nconnect success", stdout);
    }
    return EXIT_SUCCESS;
}

// A saved configuration. What is not configured is an empty text.
struct SavedSettings {
    char device[32] = {};
    char service[32] = {};
    char apn[32] = {};
    char mtu[32] = {};
    char isp_operator[32] = {};
    char pincode[32] = {};
    char dialnumber[32] = {};
    char username[64] = {};
    char password[64] = {};
    char auth[32] = {};
};

// Reads option `name` of the section; a null name stands for the operator, which is kept elsewhere.
struct SavedOption {
    const char *name;
    std::span<char> value;
};

// Returns whether all of it could be read: half of what is configured connects to something else.
bool read_saved(UciHandle *configuration, const char *section, SavedSettings *saved) {
    const SavedOption options[] = {
        {"device", saved->device},
        {"service", saved->service},
        {"apn", saved->apn},
        {"mtu", saved->mtu},
        {nullptr, saved->isp_operator},
        {"pincode", saved->pincode},
        {"dialnumber", saved->dialnumber},
        {"username", saved->username},
        {"password", saved->password},
        {"auth", saved->auth},
    };
    for (const SavedOption &option : options) {
        char path[64] = "velaconfig.modem.operator";
        if (option.name != nullptr) {
            text_format(path, "network.%s.%s", section, option.name);
        }
        vuci2_get(configuration, path, option.value);
    }
    return configuration != nullptr && configuration->trouble == 0;
}

ConnectionSettings settings_of(const SavedSettings &saved) {
    return {
        .device = saved.device,
        .service = saved.service,
        .apn = saved.apn,
        .pincode = saved.pincode,
        .dialnumber = saved.dialnumber,
        .username = saved.username,
        .password = saved.password,
        .auth = saved.auth,
        .mtu = saved.mtu,
        .isp_operator = saved.isp_operator,
    };
}

} // namespace

// The program's name, the command and three more make five arguments; where the fifth is missing the line is too short,
// while a missing sixth is a connection without an APN. Any other word than these two is passed over in silence.
int run_connect(const CommandContext &context) {
    constexpr size_t FEWEST_ARGUMENTS = 3;
    if (context.arguments.size() < FEWEST_ARGUMENTS) {
        fputs("\nUsage:<vela_modem> <connect> <serial/qmi> <device> <server> <apn>", stdout);
        return EXIT_SUCCESS;
    }
    const ConnectionSettings settings = {
        .device = context.arguments[1],
        .service = context.arguments[2],
        .apn = context.arguments.size() > FEWEST_ARGUMENTS ? context.arguments[FEWEST_ARGUMENTS] : nullptr,
    };
    const char *mode = context.arguments[0];
    if (strcmp(mode, "serial") == 0) {
        return report_connection(modem_connect_serial(context.model, settings));
    }
    if (strcmp(mode, "qmi") == 0) {
        return report_connection(modem_connect_qmi(context.model, settings));
    }
    return EXIT_SUCCESS;
}

int run_connect_auto(const CommandContext &context) {
    isp_object = json_object_new_object();
    const bool loaded = parse_apn_database("/www/src/lib/apn-config.js", &isp_object) >= 0;
    int status = EXIT_NO_DATABASE;
    if (loaded) {
        const Json entries(json_object_new_array());
        const bool known = modem_get_isp(context.model, entries.get()) == 0;
        status = report_connection(modem_connect_auto(context.model, known ? entries.get() : nullptr, {}));
    } else {
        DEBUG_printf("parse file failed\n");
    }
    json_object_put(isp_object);
    isp_object = nullptr;
    return status;
}

int run_new_connect_auto(const CommandContext &context) {
    SavedSettings saved;
    char section[20] = {};
    UciHandle *configuration = vuci2_init();
    getShellCommandReturnLine("uci show network | grep modem | grep ifname |cut -d '.' -f2", section);
    const bool known = read_saved(configuration, section, &saved);
    vuci2_free(configuration);
    if (!known) {
        return EXIT_SUCCESS;
    }
    const ConnectionSettings settings = settings_of(saved);
    if (strstr(saved.device, "cdc-wdm") != nullptr) {
        return report_connection(modem_connect_qmi(context.model, settings));
    }
    if (strstr(saved.device, "ttyUSB") != nullptr || strstr(saved.device, "ttyACM") != nullptr) {
        return report_connection(modem_connect_serial(context.model, settings));
    }
    return EXIT_SUCCESS;
}

int run_disconnect(const CommandContext & /*context*/) {
    if (modem_iface_disconnect() == 0) {
        fputs("\nmodem disconnect", stdout);
    }
    return EXIT_SUCCESS;
}
