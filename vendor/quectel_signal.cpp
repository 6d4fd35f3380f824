// Signal of Quectel modems; see quectel_signal.h.
#include "vendor/quectel_signal.h"

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

// --- AT+QCSQ ---

constexpr QuectelLine SIGNAL_LINE = {"+QCSQ: ", 7, 12};

enum class Reading : uint8_t {
    AS_SENT,
    NEGATED, // a minus sign before the number, whatever the number's own sign; clients know "--65"
    SCALED,  // a tenth, rounded; the modem counts fifths of a dB above -20, so this is no dB, but clients know it so
};

struct Measurement {
    char key[6];
    uint8_t field;
    Reading reading;
};

constexpr Measurement LTE_MEASUREMENTS[] = {
    {"rssi", 1, Reading::NEGATED},
    {"rsrp", 2, Reading::AS_SENT},
    {"sinr", 3, Reading::SCALED},
    {"rsrq", 4, Reading::AS_SENT},
};
constexpr Measurement WCDMA_MEASUREMENTS[] = {
    {"rssi", 1, Reading::NEGATED},
    {"rscp", 2, Reading::AS_SENT},
    {"ecio", 3, Reading::AS_SENT},
};
constexpr Measurement GSM_MEASUREMENTS[] = {
    {"rssi", 1, Reading::NEGATED},
};
constexpr Measurement CDMA_EVDO_MEASUREMENTS[] = {
    {"rssi0", 1, Reading::NEGATED}, {"ecio0", 2, Reading::AS_SENT}, {"rssi1", 3, Reading::NEGATED},
    {"ecio1", 4, Reading::AS_SENT}, {"sinr", 5, Reading::SCALED},
};
constexpr Measurement CDMA_MEASUREMENTS[] = {
    {"rssi", 1, Reading::NEGATED},
    {"ecio", 2, Reading::AS_SENT},
};
constexpr Measurement EVDO_MEASUREMENTS[] = {
    {"rssi", 1, Reading::NEGATED},
    {"ecio", 2, Reading::AS_SENT},
    {"sinr", 3, Reading::SCALED},
};

// What becomes the type: the word, or the mode as it was sent.
enum class Type : uint8_t { WORD, AS_SENT };

// A system mode by the word that it contains. In the order in which they are tried, as some words contain others.
struct SystemMode {
    char word[10];
    Type type;
    std::span<const Measurement> measurements;
};

constexpr SystemMode SYSTEM_MODES[] = {
    {"LTE", Type::WORD, LTE_MEASUREMENTS},
    {"TDSCDMA", Type::AS_SENT, WCDMA_MEASUREMENTS},
    {"WCDMA", Type::AS_SENT, WCDMA_MEASUREMENTS},
    {"GSM", Type::WORD, GSM_MEASUREMENTS},
    {"CDMA-EVDO", Type::WORD, CDMA_EVDO_MEASUREMENTS},
    {"CDMA", Type::WORD, CDMA_MEASUREMENTS},
    {"EVDO", Type::WORD, EVDO_MEASUREMENTS},
};

void add_measurement(const char *record, const Measurement &measurement, json_object *signal) {
    // A measurement that is not there reads as the dash that modems themselves send for one.
    char sent[12] = "-";
    quectel_get_field(record, measurement.field, sent);
    char value[16] = {};
    switch (measurement.reading) {
    case Reading::AS_SENT:
        text_copy(value, sent);
        break;
    case Reading::NEGATED:
        text_format(value, "-%d", text_to_int(sent));
        break;
    case Reading::SCALED:
        text_format(value, "%d", static_cast<int>((int64_t{text_to_int(sent)} + 5) / 10));
        break;
    }
    vjson_add_string(signal, measurement.key, value);
}

bool read_signal(const char *record, json_object *signal) {
    char sent_mode[QUECTEL_FIELD_SIZE] = {};
    if (quectel_get_field(record, 0, sent_mode) != 0) {
        return false;
    }
    for (const SystemMode &mode : SYSTEM_MODES) {
        if (has_keystr(sent_mode, mode.word)) {
            vjson_add_string(signal, "type", mode.type == Type::WORD ? mode.word : sent_mode);
            for (const Measurement &measurement : mode.measurements) {
                add_measurement(record, measurement, signal);
            }
            return true;
        }
    }
    return false;
}

// --- AT+QENG="servingcell" of the EP06 ---

constexpr int TECHNOLOGY_FIELD = 2;

constexpr QuectelColumn EP06_LTE_COLUMNS[] = {
    {13, "rsrp"},
    {14, "rsrq"},
    {15, "rssi"},
    {16, "sinr"},
};
constexpr QuectelColumn EP06_WCDMA_COLUMNS[] = {
    {10, "rscp"},
    {11, "ecio"},
};

struct Ep06Technology {
    char name[6];
    std::span<const QuectelColumn> columns;
};

constexpr Ep06Technology EP06_TECHNOLOGIES[] = {
    {"LTE", EP06_LTE_COLUMNS},
    {"WCDMA", EP06_WCDMA_COLUMNS},
};

bool read_ep06_signal(const char *record, json_object *signal) {
    char sent_technology[QUECTEL_FIELD_SIZE] = {};
    if (quectel_get_field(record, TECHNOLOGY_FIELD, sent_technology) != 0) {
        return false;
    }
    for (const Ep06Technology &technology : EP06_TECHNOLOGIES) {
        if (has_keystr(sent_technology, technology.name)) {
            vjson_add_string(signal, "type", technology.name);
            quectel_add_fields(record, technology.columns, signal);
            return true;
        }
    }
    return false;
}

// --- Both ---

struct SignalReader {
    QuectelLine line;
    bool (*read)(const char *record, json_object *signal); // false: no known technology
    bool ep06;
};

int read_signals(const SignalReader &reader, const char *reply, json_object *signals, int32_t *level) {
    int best_rank = 0;
    // One level for all lines: on an EP06 each 3G line starts from what the line before it left.
    int32_t line_level = -1;
    QuectelLines lines(reply, reader.line);
    while (const char *record = lines.next()) {
        Json signal(json_object_new_object());
        if (signal == nullptr) {
            break;
        }
        if (!reader.read(record, signal.get())) {
            continue;
        }
        const int rank = quectel_signal_level(signal.get(), &line_level, reader.ep06);
        vjson_array_add_object(signals, signal.release());
        if (rank > best_rank) {
            best_rank = rank;
            *level = line_level;
        }
    }
    return best_rank > 0 ? best_rank : -1;
}

int32_t grade(json_object *signal, const QuectelQuantity &quantity) {
    const char *text = vjson_get_string(signal, quantity.key);
    const int32_t value = text != nullptr ? text_to_int(text) : 0;
    return signal_grade(quantity.limits, value);
}

const QuectelTechnology *technology_of(std::string_view type) {
    for (const QuectelTechnology &technology : QUECTEL_TECHNOLOGIES) {
        if (std::string_view(technology.type).starts_with(type)) {
            return &technology;
        }
    }
    return nullptr;
}

} // namespace

int quectel_signal_level(json_object *signal, int32_t *level, bool ep06) {
    const char *type = vjson_get_string(signal, "type");
    const QuectelTechnology *technology = type != nullptr ? technology_of(type) : nullptr;
    if (technology == nullptr) {
        return 0;
    }
    const bool adds_up = ep06 && technology->adds_up;
    std::span<const QuectelQuantity> quantities = technology->quantities;
    int64_t sum = 0;
    if (adds_up) {
        quantities = QUECTEL_EP06_WCDMA_QUANTITIES;
        sum = *level;
    }
    for (const QuectelQuantity &quantity : quantities) {
        sum += grade(signal, quantity);
    }
    *level = static_cast<int32_t>(sum / static_cast<int64_t>(quantities.size()));
    return technology->rank;
}

int read_quectel_signals(const char *reply, json_object *signals, int32_t *level) {
    return read_signals({SIGNAL_LINE, read_signal, false}, reply, signals, level);
}

int read_ep06_signals(const char *reply, json_object *signals, int32_t *level) {
    return read_signals({SERVING_CELL_LINE, read_ep06_signal, true}, reply, signals, level);
}

int quectel_signal_info(const ModemModel &model, json_object *signals, int32_t *level) {
    char reply[REPLY_SIZE] = {};
    return at_query_ok(model, "AT+QCSQ", reply) == 0 ? read_quectel_signals(reply, signals, level) : -1;
}

int ep06_signal_info(const ModemModel &model, json_object *signals, int32_t *level) {
    char reply[REPLY_SIZE] = {};
    return at_query_ok(model, "AT+QENG=\"servingcell\"", reply) == 0 ? read_ep06_signals(reply, signals, level) : -1;
}
