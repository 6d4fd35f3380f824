// Signal level and generation; see signal.h.
#include "modem/modem_core/signal.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "modem/signal_grades.h"
#include "platform/json.h"
#include "platform/owners.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace {

// A member of the report that counts for the level.
struct Quantity {
    char key[7];
    GradeLimits limits;
};

constexpr GradeLimits LTE_SNR = {200, 120, 0}; // tenths of a dB

constexpr Quantity LTE_QUANTITIES[] = {{"rsrp", LTE_RSRP}, {"rsrq", LTE_RSRQ}, {"snr", LTE_SNR}, {"rssi", LTE_RSSI}};
constexpr Quantity THIRD_GENERATION_QUANTITIES[] = {{"rssi", RSSI_2G_3G}, {"ecio", ECIO_3G}};
constexpr Quantity SECOND_GENERATION_QUANTITIES[] = {{"signal", RSSI_2G_3G}};

// A member of the report and the key it is shown under.
struct Measurement {
    char key[5];
    char source[7];
};

constexpr Measurement LTE_MEASUREMENTS[] = {{"rssi", "rssi"}, {"rsrp", "rsrp"}, {"rsrq", "rsrq"}, {"sinr", "snr"}};
constexpr Measurement ECIO_MEASUREMENTS[] = {{"rssi", "rssi"}, {"ecio", "ecio"}};
// GSM shows "signal" and TDMA "rssi", although both are graded by "signal"; clients know them so.
constexpr Measurement GSM_MEASUREMENTS[] = {{"rssi", "signal"}};
constexpr Measurement TDMA_MEASUREMENTS[] = {{"rssi", "rssi"}};

struct Technology {
    char type[6];
    char shown_as[6];
    int generation;
    std::span<const Quantity> quantities;
    std::span<const Measurement> measurements;
};

// In the order in which types are compared.
constexpr Technology TECHNOLOGIES[] = {
    {"lte", "LTE", 4, LTE_QUANTITIES, LTE_MEASUREMENTS},
    {"wcdma", "WCDMA", 3, THIRD_GENERATION_QUANTITIES, ECIO_MEASUREMENTS},
    {"hdr", "HDR", 3, THIRD_GENERATION_QUANTITIES, ECIO_MEASUREMENTS},
    {"cdma", "CDMA", 2, THIRD_GENERATION_QUANTITIES, ECIO_MEASUREMENTS},
    {"gsm", "GSM", 2, SECOND_GENERATION_QUANTITIES, GSM_MEASUREMENTS},
    {"tdma", "TDMA", 2, SECOND_GENERATION_QUANTITIES, TDMA_MEASUREMENTS},
};

const Technology *technology_of(json_object *report) {
    const char *type = vjson_get_string(report, "type");
    if (type == nullptr) {
        return nullptr;
    }
    for (const Technology &technology : TECHNOLOGIES) {
        if (strncmp(type, technology.type, strlen(type)) == 0) {
            return &technology;
        }
    }
    return nullptr;
}

// The ranges of the CSQ value that make a level; all other values are level 0.
struct CsqLevel {
    int32_t lowest, highest;
    int32_t level;
};

constexpr CsqLevel CSQ_LEVELS[] = {{24, 31, 4}, {19, 23, 3}, {14, 18, 2}, {2, 13, 1}};

int32_t level_of_csq(int32_t csq) {
    for (const CsqLevel &row : CSQ_LEVELS) {
        if (csq >= row.lowest && csq <= row.highest) {
            return row.level;
        }
    }
    return 0;
}

bool signal_file_exists(const char *bus) {
    char path[64];
    text_format(path, "/tmp/modem.%s/signal", bus);
    return access(path, F_OK) == 0;
}

// The text of the signal file; null where it cannot be read or is empty.
Allocated<char> read_signal_file(const char *bus) {
    char command[64];
    text_format(command, "cat /tmp/modem.%s/signal 2>/dev/null", bus);
    return Allocated<char>(getShellCommandReturnDynamic(command));
}

} // namespace

int read_qmi_signal(json_object *report, int32_t *level) {
    const Technology *technology = technology_of(report);
    if (technology == nullptr) {
        return -1;
    }
    int32_t sum = 0;
    for (const Quantity &quantity : technology->quantities) {
        sum += signal_grade(quantity.limits, vjson_get_int(report, quantity.key));
    }
    *level = sum / static_cast<int32_t>(technology->quantities.size());
    return technology->generation;
}

void read_qmi_measurements(json_object *report, json_object *out) {
    const Technology *technology = technology_of(report);
    if (technology == nullptr) {
        return;
    }
    vjson_add_string(out, "type", technology->shown_as);
    for (const Measurement &measurement : technology->measurements) {
        char value[12];
        text_format(value, "%d", vjson_get_int(report, measurement.source));
        vjson_add_string(out, measurement.key, value);
    }
}

int32_t read_csq(const char *reply) {
    constexpr size_t MOST_DIGITS = 8;
    const char *next = after_line_break(reply);
    if (next == nullptr) {
        return -1;
    }
    next += strcspn(next, "0123456789");
    const size_t digits = strspn(next, "0123456789");
    return digits > MOST_DIGITS ? -1 : static_cast<int32_t>(strtol(next, nullptr, 10));
}

int get_qmi_signal(const char *bus, int32_t *level) {
    if (!signal_file_exists(bus)) {
        return -1;
    }
    const Allocated<char> text = read_signal_file(bus);
    if (text == nullptr) {
        return -1;
    }
    const Json report(json_tokener_parse(text.get()));
    return read_qmi_signal(report.get(), level);
}

int conver_signal_file(const char *bus, json_object *signals, int32_t *level) {
    json_object *measurements = json_object_new_object();
    vjson_array_add_object(signals, json_object_get(measurements));
    const Json keep_measurements(measurements);
    if (!signal_file_exists(bus)) {
        return -1;
    }
    const Allocated<char> text = read_signal_file(bus);
    if (text != nullptr) {
        const Json report(json_tokener_parse(text.get()));
        if (report == nullptr) {
            return -1;
        }
        read_qmi_measurements(report.get(), measurements);
    }
    // The connection scripts may have written the file anew meanwhile: the level is that of the present one.
    return get_qmi_signal(bus, level);
}

int modem_get_rssi(const ModemModel &model, int32_t *level) {
    char reply[100];
    if (at_query_ok(model, "AT+CSQ", reply) != 0) {
        return -1;
    }
    const int32_t csq = read_csq(reply);
    if (csq < 0) {
        return -1;
    }
    *level = level_of_csq(csq);
    return 1;
}

namespace {

// The generation from the first source that the model has; 0 where it has none.
int measured_generation(const ModemModel &model, int32_t *level, json_object *reply) {
    if (model.ops.signal_info != nullptr) {
        Json signals(json_object_new_array());
        const int generation = model.ops.signal_info(model, signals.get(), level);
        vjson_add_object(reply, "signal_info", signals.release());
        return generation;
    }
    if (signal_file_exists(model.bus)) {
        return get_qmi_signal(model.bus, level);
    }
    return model.ops.get_rssi != nullptr ? model.ops.get_rssi(model, level) : 0;
}

bool carriers_are_aggregated(const ModemModel &model) {
    return model.ops.check_cat6 != nullptr && model.ops.check_cat6(model) == 1;
}

} // namespace

int get_modem_signal(const ModemModel &model, std::span<char> mode, int32_t *level, json_object *reply) {
    const auto generation = static_cast<int8_t>(measured_generation(model, level, reply));
    if (generation == 2 || generation == 3) {
        text_format(mode, "%dG", generation);
        return 0;
    }
    if (generation == 4) {
        text_copy(mode, carriers_are_aggregated(model) ? "4G+" : "4G");
        return 0;
    }
    if (generation > 4) {
        return -1;
    }
    if (*level <= 0) {
        return -1;
    }
    if (model.ops.get_mode != nullptr) {
        model.ops.get_mode(model, mode);
    }
    return 0;
}
