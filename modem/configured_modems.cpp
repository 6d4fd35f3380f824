// The configured modems; see configured_modems.h.
#include "modem/configured_modems.h"

#include <iterator>
#include <utility>

#include "modem/detection.h"
#include "modem/modem_core/mode_band.h"
#include "platform/uci.h"

namespace {

constexpr char BAND_OPTIONS[][22] = {"velaconfig.modem.dev1", "velaconfig.modem.dev2", "velaconfig.modem.dev3"};
static_assert(std::size(BAND_OPTIONS) == MOST_MODEMS);

} // namespace

ConfiguredBuses configured_buses() {
    ConfiguredBuses buses = {};
    UciHandle *configuration = vuci2_init();
    for (size_t position = 0; position < MOST_MODEMS; position++) {
        vuci2_get_list_index(configuration, "velaconfig.modem.bus", static_cast<int>(position), buses[position]);
    }
    vuci2_free(configuration);
    return buses;
}

ConfiguredModem find_configured_modem(const ConfiguredBuses &buses, size_t position) {
    ConfiguredModem modem = {};
    modem.model.modem_id = MODEM_ID_NONE;
    const char *bus = buses[position].data();
    if (*bus == '\0') {
        return modem;
    }
    Json report(json_object_new_object());
    detect_modem(&modem.model, report.get(), bus, 1);
    if (modem.found()) {
        modem.report = std::move(report);
        modem.lte_band = modem_get_current_band(bus, modem.model.control_port, BAND_OPTIONS[position]);
    }
    return modem;
}
