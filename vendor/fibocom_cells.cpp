// Cells of Fibocom modems; see fibocom_cells.h.
#include "vendor/fibocom_cells.h"

#include "modem/at_query.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/text.h"
#include "vendor/fibocom_fields.h"
#include "vendor/fibocom_signal.h"

namespace {

constexpr size_t REPLY_SIZE = 1024;

// Between a heading and the line below it is a carriage return and a line feed.
constexpr FibocomList SERVING_CELL = {"LTE service cell:", 19};
constexpr FibocomList NEIGHBOUR_CELLS = {"LTE neighbor cell:", 20};

// --- Serving cell ---

// The modem's codes, 100 and the number of an LTE band, that are shown by that number; any other is shown as it is.
struct BandCode {
    char code[4];
    char band[3];
};

constexpr BandCode BAND_CODES[] = {
    {"101", "1"},  {"103", "3"},  {"105", "5"},  {"107", "7"},  {"108", "8"},
    {"120", "20"}, {"128", "28"}, {"132", "32"}, {"140", "40"}, {"141", "41"},
};

void band_of_code(std::span<char> value) {
    for (const BandCode &row : BAND_CODES) {
        if (std::string_view(row.code) == value.data()) {
            text_copy(value, row.band);
            return;
        }
    }
}

constexpr int TECHNOLOGY_FIELD = 1;

constexpr FibocomColumn SERVING_COLUMNS[] = {
    {0, "IsServiceCell"},
    {TECHNOLOGY_FIELD, "rat"},
    {2, "mcc"},
    {3, "mnc"},
    {4, "tac"},
    {5, "cellid"},
    {6, "earfcn"},
    {7, "physicalcellId"},
    {8, "band", band_of_code},
    {9, "bandwidth"},
    {10, "rssnr_value"},
    {11, "rxlev"},
    {12, "rsrp"},
    {13, "rsrq"},
};

void read_serving_cell(std::string_view reply, std::string_view csq, json_object *cells) {
    const std::string_view line = fibocom_find_list(reply, SERVING_CELL);
    if (line.data() == nullptr) {
        return;
    }
    Json cell(json_object_new_object());
    fibocom_add_fields(line, SERVING_COLUMNS, cell.get());
    fibocom_add_fields(fibocom_find_list(csq, FIBOCOM_CSQ), FIBOCOM_RSSI_COLUMNS, cell.get());
    vjson_array_add_object(cells, cell.release());
}

// --- Neighbour cells ---

// A neighbour's line has no band, nor a ratio of signal and noise.
constexpr FibocomColumn NEIGHBOUR_COLUMNS[] = {
    {0, "IsServiceCell"}, {TECHNOLOGY_FIELD, "rat"}, {2, "mcc"},       {3, "mnc"},   {4, "tac"},   {5, "cellid"},
    {6, "earfcn"},        {7, "physicalcellId"},     {8, "bandwidth"}, {9, "rxlev"}, {10, "rsrp"}, {11, "rsrq"},
};

void read_neighbour_cells(std::string_view reply, json_object *cells) {
    std::string_view rest = fibocom_find_list(reply, NEIGHBOUR_CELLS);
    while (!rest.empty()) {
        const std::string_view line = text_before(rest, rest.find_first_of("\r\n"));
        rest = text_from(rest, line.size() + 1);
        if (line.starts_with("OK")) {
            return;
        }
        if (line.empty() || line.starts_with(NEIGHBOUR_CELLS.label)) {
            continue;
        }
        Json cell(json_object_new_object());
        fibocom_add_fields(line, NEIGHBOUR_COLUMNS, cell.get());
        vjson_array_add_object(cells, cell.release());
    }
}

// --- Generation ---

struct Technology {
    char sent[2];
    char mode[3];
};

constexpr Technology TECHNOLOGIES[] = {{"1", "2G"}, {"2", "3G"}, {"3", "3G"}, {"4", "4G"}};

} // namespace

void read_fibocom_cells(std::string_view reply, std::string_view csq, json_object *cells) {
    read_serving_cell(reply, csq, cells);
    read_neighbour_cells(reply, cells);
}

const char *read_fibocom_mode(std::string_view reply) {
    char sent[FIBOCOM_FIELD_SIZE] = {};
    fibocom_atcmd_value_parser(fibocom_find_list(reply, SERVING_CELL), TECHNOLOGY_FIELD, sent);
    for (const Technology &technology : TECHNOLOGIES) {
        if (std::string_view(technology.sent) == sent) {
            return technology.mode;
        }
    }
    return nullptr;
}

int fibocom_cell_info(const ModemModel &model, json_object *cells) {
    char reply[REPLY_SIZE] = {};
    if (at_query_ok(model, "AT+GTCCINFO?", reply) != 0) {
        return 0;
    }
    char csq[REPLY_SIZE] = {};
    if (at_query_ok(model, "AT+CSQ?", csq) != 0) {
        text_clear(csq);
    }
    read_fibocom_cells(reply, csq, cells);
    return 0;
}
