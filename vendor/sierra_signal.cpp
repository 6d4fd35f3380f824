// Signal level of Sierra Wireless modems; see sierra_signal.h.
#include "vendor/sierra_signal.h"

#include <span>

#include "modem/at_query.h"
#include "modem/at_reply.h"
#include "modem/signal_grades.h"
#include "vendor/sierra_busy.h"
#include "vendor/sierra_status.h"

namespace {

constexpr size_t REPLY_SIZE = 1024;

constexpr GradeLimits SIERRA_LTE_SINR = {13, 10, 7}; // these steps are this dialect's own

struct Quantity {
    char label[16];
    GradeLimits limits;
};

// The blanks belong to the labels: a line with fewer of them is not read.
constexpr Quantity LTE_QUANTITIES[] = {
    {"PCC RxM RSSI:  ", LTE_RSSI},
    {"RSRP (dBm):  ", LTE_RSRP},
    {"RSRQ (dB):     ", LTE_RSRQ},
    {"SINR (dB):     ", SIERRA_LTE_SINR},
};
// Graded like LTE's.
constexpr Quantity WCDMA_QUANTITIES[] = {{"RxM RSSI C0:", LTE_RSSI}};

struct Technology {
    char name[6];
    int generation;
    std::span<const Quantity> quantities;
};

// In the order in which they are looked for.
constexpr Technology TECHNOLOGIES[] = {{"LTE", 4, LTE_QUANTITIES}, {"WCDMA", 3, WCDMA_QUANTITIES}};

int read_level(const char *reply, const Technology &technology, int32_t *level) {
    int32_t sum = 0;
    for (const Quantity &quantity : technology.quantities) {
        int32_t value = 0;
        if (sierra_read_int(reply, quantity.label, &value) != 0) {
            return -1;
        }
        sum += signal_grade(quantity.limits, value);
    }
    *level = sum / static_cast<int32_t>(technology.quantities.size());
    return technology.generation;
}

} // namespace

int read_sierra_signal(const char *reply, int32_t *level) {
    for (const Technology &technology : TECHNOLOGIES) {
        if (has_keystr(reply, technology.name)) {
            return read_level(reply, technology, level);
        }
    }
    return -1;
}

int sierra_get_signal(const ModemModel &model, int32_t *level) {
    if (sierra_is_busy(model, "modem device busy,can't to get signal\n")) {
        return -1;
    }
    char reply[REPLY_SIZE] = {};
    return at_query_ok(model, SIERRA_STATUS_QUERY, reply) == 0 ? read_sierra_signal(reply, level) : 0;
}
