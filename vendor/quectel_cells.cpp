// Cells of Quectel modems; see quectel_cells.h.
#include "vendor/quectel_cells.h"

#include <string_view>

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"
#include "vendor/quectel_fields.h"
#include "vendor/quectel_tables.h"

namespace {

constexpr size_t REPLY_SIZE = 1024;

// Appends an object for each line of the reply for which `read` returns 0.
void append_each(const QuectelLine &line, int (*read)(const char *record, json_object *cell), const char *reply,
                 json_object *cells) {
    QuectelLines lines(reply, line);
    while (const char *record = lines.next()) {
        Json cell(json_object_new_object());
        if (cell == nullptr) {
            break;
        }
        if (read(record, cell.get()) == 0) {
            vjson_array_add_object(cells, cell.release());
        }
    }
}

// --- Carriers ---

constexpr QuectelLine CARRIER_LINE = {"+QCAINFO:", 9, 10};

const char *bandwidth_of_blocks(const char *value) {
    return quectel_word(QUECTEL_BANDWIDTH_VALUES, text_to_int(value));
}

const char *primary_state(const char *value) {
    return quectel_word(QUECTEL_PRIMARY_STATES, *value);
}

const char *secondary_state(const char *value) {
    return quectel_word(QUECTEL_SECONDARY_STATES, *value);
}

// The band is added before the bandwidth, although it is sent after it. The state stands between the two groups.
constexpr QuectelColumn CHANNEL_COLUMNS[] = {
    {1, "freq"},
    {3, "band"},
    {2, "bandwidth", bandwidth_of_blocks},
};
constexpr QuectelColumn CELL_COLUMNS[] = {
    {5, "pcid"}, {6, "rsrp"}, {7, "rsrq"}, {8, "rssi"}, {9, "sinr"},
};

struct CarrierKind {
    char word[4];
    char type[4];
    QuectelColumn state;
};

constexpr CarrierKind CARRIER_KINDS[] = {
    {"pss", "PSS", {4, "state", primary_state}},
    {"sss", "SSS", {4, "state", secondary_state}},
};

// The word is sought up to the end of the reply: a secondary carrier that is listed before the primary one counts as
// primary, and clients know it so. Modems that say "pcc" and "scc" have no carriers here.
int read_carrier(const char *record, json_object *carrier) {
    for (const CarrierKind &kind : CARRIER_KINDS) {
        if (has_keystr(record, kind.word)) {
            vjson_add_string(carrier, "type", kind.type);
            quectel_add_fields(record, CHANNEL_COLUMNS, carrier);
            quectel_add_fields(record, {&kind.state, 1}, carrier);
            quectel_add_fields(record, CELL_COLUMNS, carrier);
            return 0;
        }
    }
    return -1;
}

// --- Serving cells ---

constexpr int TECHNOLOGY_FIELD = 2;

const char *bandwidth_of_code(const char *value) {
    return quectel_word(QUECTEL_BANDWIDTH_CODES, *value);
}

constexpr QuectelColumn LTE_COLUMNS[] = {
    {1, "state"},
    {3, "mode"},
    {4, "mcc"},
    {5, "mnc"},
    {6, "cellid"},
    {7, "pcid"},
    {8, "earfcn"},
    {9, "band"},
    {10, "ul_bandwidth", bandwidth_of_code},
    {11, "dl_bandwidth", bandwidth_of_code},
    {12, "tac"},
    {13, "rsrp"},
    {14, "rsrq"},
    {15, "rssi"},
    {16, "sinr"},
    {17, "srxlev"},
};
// What all technologies but LTE begin with.
constexpr QuectelColumn COMMON_COLUMNS[] = {
    {1, "state"}, {3, "mcc"}, {4, "mnc"}, {5, "lac"}, {6, "cellid"},
};
constexpr QuectelColumn WCDMA_COLUMNS[] = {
    {7, "uarfcn"}, {8, "psc"}, {9, "rac"},   {10, "rscp"},        {11, "ecio"},
    {12, "phych"}, {13, "sf"}, {14, "slot"}, {15, "speech_code"}, {16, "commod"},
};
constexpr QuectelColumn TDSCDMA_COLUMNS[] = {
    {7, "pfreq"},
    {8, "rssi"},
    {9, "rscp"},
    {10, "ecio"},
};
constexpr QuectelColumn CDMA_COLUMNS[] = {
    {7, "bcch"},
    {8, "rxpwr"},
    {9, "ecio"},
    {10, "txpwr"},
};
constexpr QuectelColumn GSM_COLUMNS[] = {
    {10, "rxlev"},
};

struct ServingTechnology {
    char word[8];
    char rat[8]; // empty: the technology as it was sent
    std::span<const QuectelColumn> first_columns;
    std::span<const QuectelColumn> own_columns;
    bool in_whole_reply = false; // the word is sought from the record to the reply's end, not in its field alone
};

// In the order in which they are tried, as some words contain others.
constexpr ServingTechnology SERVING_TECHNOLOGIES[] = {
    {"LTE", "LTE", {}, LTE_COLUMNS},
    {"WCDMA", "WCDMA", COMMON_COLUMNS, WCDMA_COLUMNS},
    {"TDSCDMA", "TDSCDMA", COMMON_COLUMNS, TDSCDMA_COLUMNS},
    {"CDMA", "", COMMON_COLUMNS, CDMA_COLUMNS},
    {"HDR", "", COMMON_COLUMNS, CDMA_COLUMNS, true},
    {"GSM", "GSM", COMMON_COLUMNS, GSM_COLUMNS},
};

const ServingTechnology *serving_technology(const char *sent, const char *record) {
    for (const ServingTechnology &technology : SERVING_TECHNOLOGIES) {
        if (has_keystr(technology.in_whole_reply ? record : sent, technology.word)) {
            return &technology;
        }
    }
    return nullptr;
}

// --- Neighbour cells ---

constexpr QuectelLine NEIGHBOUR_CELL_LINE = {": \"neighbourcell", 2, 13};

constexpr QuectelColumn LTE_NEIGHBOUR_COLUMNS[] = {
    {2, "earfcn"}, {3, "cellid|pcid"}, // one key with a bar in it
};
constexpr QuectelColumn WCDMA_NEIGHBOUR_COLUMNS[] = {
    {2, "uarfcn"},
};

struct NeighbourTechnology {
    char rat[6];
    std::span<const QuectelColumn> columns;
};

constexpr NeighbourTechnology NEIGHBOUR_TECHNOLOGIES[] = {
    {"LTE", LTE_NEIGHBOUR_COLUMNS},
    {"WCDMA", WCDMA_NEIGHBOUR_COLUMNS},
    {"GSM", {}},
};

// The technology is sought up to the end of the reply: a GSM cell that is listed before an LTE one counts as LTE, and
// clients know it so.
int read_neighbour_cell(const char *record, json_object *cell) {
    vjson_add_string(cell, "type", "neighbourcell");
    for (const NeighbourTechnology &technology : NEIGHBOUR_TECHNOLOGIES) {
        if (has_keystr(record, technology.rat)) {
            quectel_add_fields(record, technology.columns, cell);
            vjson_add_string(cell, "rat", technology.rat);
            break;
        }
    }
    return 0;
}

// --- Asking ---

struct CellGroup {
    const char *command;
    void (*read)(const char *reply, json_object *cells);
};

constexpr CellGroup CELL_GROUPS[] = {
    {"AT+QCAINFO", read_quectel_carriers},
    {"AT+QENG=\"servingcell\"", read_quectel_serving_cells},
    {"AT+QENG=\"neighbourcell\"", read_quectel_neighbour_cells},
};

} // namespace

int read_quectel_serving_cell(const char *record, json_object *cell) {
    char sent[QUECTEL_FIELD_SIZE] = {};
    if (quectel_get_field(record, TECHNOLOGY_FIELD, sent) != 0) {
        return -1;
    }
    vjson_add_string(cell, "type", "servingcell");
    const ServingTechnology *technology = serving_technology(sent, record);
    if (technology == nullptr) {
        quectel_add_fields(record, COMMON_COLUMNS, cell);
        return 0;
    }
    quectel_add_fields(record, technology->first_columns, cell);
    quectel_add_fields(record, technology->own_columns, cell);
    vjson_add_string(cell, "rat", technology->rat[0] != '\0' ? technology->rat : sent);
    return 0;
}

void read_quectel_carriers(const char *reply, json_object *cells) {
    append_each(CARRIER_LINE, read_carrier, reply, cells);
}

void read_quectel_serving_cells(const char *reply, json_object *cells) {
    append_each(SERVING_CELL_LINE, read_quectel_serving_cell, reply, cells);
}

void read_quectel_neighbour_cells(const char *reply, json_object *cells) {
    append_each(NEIGHBOUR_CELL_LINE, read_neighbour_cell, reply, cells);
}

int32_t read_quectel_lte_band(const char *reply) {
    QuectelLines lines(reply, SERVING_CELL_LINE);
    while (const char *record = lines.next()) {
        const Json cell(json_object_new_object());
        if (read_quectel_serving_cell(record, cell.get()) != 0) {
            continue;
        }
        const char *rat = vjson_get_string(cell.get(), "rat");
        if (rat != nullptr && std::string_view(rat) == "LTE") {
            const char *band = vjson_get_string(cell.get(), "band");
            return band != nullptr ? text_to_int(band) : 0;
        }
    }
    return 0;
}

bool is_quectel_aggregated(const char *reply) {
    return (has_keystr(reply, "pss") && has_keystr(reply, "sss")) ||
           (has_keystr(reply, "pcc") && has_keystr(reply, "scc"));
}

int quectel_cell_info(const ModemModel &model, json_object *cells) {
    for (const CellGroup &group : CELL_GROUPS) {
        char reply[REPLY_SIZE] = {};
        if (at_query_ok(model, group.command, reply) == 0) {
            group.read(reply, cells);
        }
    }
    return 0;
}

int quectel_check_cat6(const ModemModel &model) {
    char reply[REPLY_SIZE] = {};
    return at_query_ok(model, "AT+QCAINFO", reply) == 0 && is_quectel_aggregated(reply) ? 1 : 0;
}
