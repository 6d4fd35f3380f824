// The modems that the router is configured for: the buses in the list option velaconfig.modem.bus, of which the first
// three count.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "modem/model.h"
#include "platform/owners.h"

constexpr size_t MOST_MODEMS = 3;
// A bus of the list has at most 9 characters; a longer one aborts.
constexpr size_t CONFIGURED_BUS_SIZE = 10;

// The buses by their position in the list; an entry that is missing or empty is an empty text.
using ConfiguredBuses = std::array<std::array<char, CONFIGURED_BUS_SIZE>, MOST_MODEMS>;

ConfiguredBuses configured_buses();

// The modem at one position of the list, as it was found.
struct ConfiguredModem {
    ModemModel model;     // modem_id is negative where there is none
    Json report;          // its detailed report (modem/detection.h); null where there is none
    int32_t lte_band = 0; // of its serving cell (modem_get_current_band); 0 where there is none or it is unknown

    bool found() const { return model.modem_id >= 0; }
};

// Detects the modem on the bus at `position` (from 0) with full detail, and reads its band: from the option
// velaconfig.modem.dev1, dev2 or dev3, by position, or from the modem. An empty bus has no modem.
ConfiguredModem find_configured_modem(const ConfiguredBuses &buses, size_t position);
