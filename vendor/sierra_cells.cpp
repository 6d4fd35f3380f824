// Cells of Sierra Wireless modems; see sierra_cells.h.
#include "vendor/sierra_cells.h"

#include <span>

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "vendor/sierra_status.h"

namespace {

constexpr size_t REPLY_SIZE = 2048;

struct Member {
    char label[16];
    uint8_t occurrence; // of the label in the whole reply
    char key[10];
};

// RSRP has one label for all: the two antennas of the primary carrier come first, then those of the secondary one.
// clang-format off
constexpr Member PRIMARY_MEMBERS[] = {
    {"PS state:",     0, "state"},
    {"Cell ID:",      0, "cellid"},
    {"LTE band:",     0, "band"},
    {"LTE bw:",       0, "bandwidth"},
    {"LTE Tx chan:",  0, "tx-chan"},
    {"LTE Rx chan:",  0, "rx-chan"},
    {"PCC RxM RSSI:", 0, "M-rssi"},
    {"PCC RxD RSSI:", 0, "D-rssi"},
    {"RSRP (dBm):",   0, "M-rsrp"},
    {"RSRP (dBm):",   1, "D-rsrp"},
    {"RSRQ (dB):",    0, "rsrq"},
    {"SINR (dB):",    0, "sinr"},
    {"TAC:",          0, "tac"},
};
constexpr Member SECONDARY_MEMBERS[] = {
    {"LTE Scell band:", 0, "band"},
    {"LTE Scell bw:",   0, "bandwidth"},
    {"LTE Scell chan:", 0, "chan"},
    {"SCC RxM RSSI:",   0, "M-rssi"},
    {"SCC RxD RSSI:",   0, "D-rssi"},
    {"RSRP (dBm):",     2, "M-rsrp"},
    {"RSRP (dBm):",     3, "D-rsrp"},
};
constexpr Member WCDMA_MEMBERS[] = {
    {"PS state:",      0, "state"},
    {"UTRAN Cell ID:", 0, "cellid"},
    {"WCDMA band:",    0, "band"},
    {"WCDMA channel:", 0, "chan"},
    {"RxM RSSI C0:",   0, "M-rssi-c0"},
    {"RxM RSSI C1:",   0, "M-rssi-c1"},
    {"RxD RSSI C0:",   0, "D-rssi-c0"},
    {"RxD RSSI C1:",   0, "D-rssi-c1"},
    {"LAC:",           0, "lac"},
};
// clang-format on

struct CellKind {
    char type[12];
    char word[6]; // anywhere in the reply: there is such a cell
    char rat[6];
    std::span<const Member> members;
};

constexpr CellKind CELL_KINDS[] = {
    {"PSS", "LTE", "LTE", PRIMARY_MEMBERS},
    {"SSS", "SCC", "LTE", SECONDARY_MEMBERS},
    {"servingcell", "WCDMA", "WCDMA", WCDMA_MEMBERS},
};

void fill_cell(const char *reply, const CellKind &kind, json_object *cell) {
    vjson_add_string(cell, "type", kind.type);
    for (const Member &member : kind.members) {
        char value[SIERRA_LONGEST_VALUE + 1];
        if (sierra_read_label(reply, member.label, member.occurrence, value) == 0) {
            vjson_add_string(cell, member.key, value);
        }
    }
    vjson_add_string(cell, "rat", kind.rat);
}

} // namespace

int read_sierra_cells(const char *reply, json_object *cells) {
    for (const CellKind &kind : CELL_KINDS) {
        if (!has_keystr(reply, kind.word)) {
            continue;
        }
        Json cell(json_object_new_object());
        if (cell == nullptr) {
            return -1;
        }
        fill_cell(reply, kind, cell.get());
        vjson_array_add_object(cells, cell.release());
    }
    return 0;
}

int sierra_cell_info(const ModemModel &model, json_object *cells) {
    char reply[REPLY_SIZE] = {};
    return at_query_ok(model, SIERRA_STATUS_QUERY, reply) == 0 ? read_sierra_cells(reply, cells) : 0;
}
