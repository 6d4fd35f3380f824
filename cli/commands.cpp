// The commands of vela_modem: the table and the queries behind each row.
#include "cli/commands.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/connect_commands.h"
#include "cli/convert.h"
#include "modem/at_exchange.h"
#include "modem/discovery.h"
#include "modem/modem_core/carrier.h"
#include "modem/modem_core/registration.h"
#include "modem/modem_core/signal.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"
#include "router/mcu.h"
#include "router/wifi_channel.h"
#include "router/wifi_interference.h"

namespace {

constexpr int EXIT_USAGE = 255; // -1 as the shell sees it

void print_text(const char *text) {
    fputs(text, stdout);
}

void print_json(json_object *object) {
    puts(vjson_text(object, JSON_C_TO_STRING_PRETTY));
}

int not_supported() {
    print_text("Not support");
    return EXIT_SUCCESS;
}

// AT [device] <command>. Without a device the command goes to the model's AT port. With more than two arguments neither
// is taken, and the exchange fails at opening the port.
int run_at(const CommandContext &context) {
    constexpr size_t LONGEST_COMMAND = 255;
    constexpr size_t DEVICE_SIZE = 64;
    constexpr size_t REPLY_SIZE = 4096;
    if (context.arguments.empty()) {
        print_text("\nUsage:<vela_modem> <AT> [device] <command>");
        return EXIT_USAGE;
    }
    char reply[REPLY_SIZE] = {};
    char command[LONGEST_COMMAND + COMMAND_TAIL] = {};
    char device[DEVICE_SIZE] = {};
    const std::span<char> command_text = std::span(command).first(LONGEST_COMMAND + 1);
    if (context.arguments.size() == 1) {
        text_copy(command_text, context.arguments[0]);
        modem_search_port(context.model.bus, context.model.control_port, device);
    } else if (context.arguments.size() == 2) {
        text_copy(command_text, context.arguments[1]);
        text_copy(device, context.arguments[0]);
    }
    if (send_command(device, command, reply, sizeof reply) == 0) {
        printf("\n%s", reply);
    }
    return EXIT_SUCCESS;
}

int run_sim_status(const CommandContext &context) {
    char text[64] = {};
    print_text(fault_analysis(context.model, text) == 0 ? "READY" : text);
    return EXIT_SUCCESS;
}

// The measurements, the level and the generation as a text: the result of the model's own operation, or else of the
// signal file, counts up from the digit of "0G". Only the file's is looked at: below "1G" there is no signal to show.
int run_signal(const CommandContext &context) {
    const Json report(json_object_new_object());
    Json signals(json_object_new_array());
    int32_t strength = -1;
    const ModemModel &model = context.model;
    const bool has_operation = model.ops.signal_info != nullptr;
    const int generation = has_operation ? model.ops.signal_info(model, signals.get(), &strength)
                                         : conver_signal_file(model.bus, signals.get(), &strength);
    const char mode[] = {static_cast<char>('0' + static_cast<int8_t>(generation)), 'G', '\0'};
    if (!has_operation && static_cast<signed char>(mode[0]) < '1') {
        return not_supported();
    }
    vjson_add_object(report.get(), "signals", signals.release());
    vjson_add_int(report.get(), "strength", strength);
    vjson_add_string(report.get(), "mode", mode);
    print_json(report.get());
    return EXIT_SUCCESS;
}

int run_cells(const CommandContext &context) {
    if (context.model.ops.cell_info == nullptr) {
        return not_supported();
    }
    const Json cells(json_object_new_array());
    context.model.ops.cell_info(context.model, cells.get());
    print_json(cells.get());
    return EXIT_SUCCESS;
}

int run_iccid(const CommandContext &context) {
    if (context.model.ops.get_qccid == nullptr) {
        return not_supported();
    }
    char iccid[30] = {};
    context.model.ops.get_qccid(context.model, std::span(iccid));
    print_text(iccid);
    return EXIT_SUCCESS;
}

int run_thermal(const CommandContext &context) {
    if (context.model.ops.thermal_ctrl == nullptr) {
        return not_supported();
    }
    // Two blanks: scripts compare the line as it has always been.
    print_text(context.model.ops.thermal_ctrl(context.model) == 0 ? "thermal setting  success"
                                                                  : "thermal setting failed");
    return EXIT_SUCCESS;
}

// The name as the network reports it, or else as the operator list has it.
int run_carrier(const CommandContext &context) {
    char name[64] = {};
    const ModemModel &model = context.model;
    if (model.ops.get_operator != nullptr && model.ops.get_operator(model, std::span(name)) == 0) {
        print_text(name);
    }
    if (name[0] == '\0') {
        const Json report(json_object_new_object());
        const char *carrier = nullptr;
        if (modem_read_carrier(report.get(), model) == 0) {
            carrier = vjson_get_string(report.get(), "carrier");
        }
        print_text(carrier != nullptr ? carrier : "");
    }
    return EXIT_SUCCESS;
}

int run_check_register(const CommandContext &context) {
    if (context.model.ops.check_register == nullptr) {
        return not_supported();
    }
    printf("check_register=%d\n", context.model.ops.check_register(context.model));
    return EXIT_SUCCESS;
}

int run_get_mode(const CommandContext &context) {
    if (context.model.ops.get_mode == nullptr) {
        return not_supported();
    }
    char mode[5] = {};
    context.model.ops.get_mode(context.model, std::span(mode));
    printf("get_mode: %s\n", mode);
    return EXIT_SUCCESS;
}

// What the microcontroller would be told, a fault included.
int run_test(const CommandContext &context) {
    const Json status(json_object_new_object());
    modem_mcu_interface(context.model.bus, status.get());
    print_json(status.get());
    return EXIT_SUCCESS;
}

// A channel that the user chose stays: it is the web interface that hints at a better one.
int run_wifi_lte_interference(const CommandContext & /*context*/) {
    if (get_current_wifi24g_channel() == AUTOMATIC_CHANNEL) {
        handle_wifi_channel_auto_interference();
    }
    return EXIT_SUCCESS;
}

int run_convert(const CommandContext &context) {
    return convert_file(context.arguments);
}

// One row a line.
// clang-format off
constexpr Command COMMANDS[] = {
    {"connect", run_connect},
    {"connect-auto", run_connect_auto},
    {"new-connect-auto", run_new_connect_auto},
    {"disconnect", run_disconnect},
    {"sim-status", run_sim_status},
    {"AT", run_at},
    {"signal", run_signal},
    {"cells", run_cells},
    {"iccid", run_iccid},
    {"thermal", run_thermal},
    {"carrier", run_carrier},
    {"test", run_test},
    {"convert", run_convert},
    {"check_register", run_check_register},
    {"get_mode", run_get_mode},
    {"wifi_lte_interference", run_wifi_lte_interference},
};
// clang-format on

} // namespace

std::span<const Command> all_commands() {
    return COMMANDS;
}

int run_command(const char *name, const CommandContext &context) {
    for (const Command &command : COMMANDS) {
        if (strcmp(command.name, name) == 0) {
            return command.run(context);
        }
    }
    print_text("\nUsage:<vela_modem> <command> [option]");
    return EXIT_SUCCESS;
}
