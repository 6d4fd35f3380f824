// vela_modem, the command line: finds the modem on one bus, runs one command against it, exits.
#include <cstdio>
#include <cstdlib>

#include "cli/arguments.h"
#include "cli/commands.h"
#include "modem/debug.h"
#include "modem/detection.h"
#include "platform/json.h"
#include "platform/owners.h"

namespace {

// The commands iccid, carrier, test, convert, check_register and get_mode are for scripts and left out.
void print_usage() {
    fputs("\nUsage:<vela_modem> [-D] [-B <bus>] <command> [option]"
          "\nCommand possible:connect|connect-auto|new-connect-auto|disconnect|sim-status|AT|signal|cells|thermal|"
          "wifi_lte_interference\n",
          stdout);
}

} // namespace

int main(int argc, char **argv) {
    Arguments arguments;
    if (!parse_arguments(argc, argv, &arguments)) {
        print_usage();
        return EXIT_SUCCESS;
    }
    DEBUG = arguments.debug ? 1 : 0;
    const Json report(json_object_new_object());
    ModemModel model;
    detect_modem(&model, report.get(), arguments.bus, 0);
    if (model.modem_id < 0) {
        return EXIT_SUCCESS;
    }
    DEBUG_printf("%s\n", vjson_text(report.get(), JSON_C_TO_STRING_PRETTY));
    set_current_modem(model);
    return run_command(arguments.command, {.model = model, .arguments = arguments.rest});
}
