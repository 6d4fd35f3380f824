// What the numbers of Quectel replies mean: grades of measurements, and words for bandwidth and state codes.
//
// Grades and words are shown to people and compared by scripts, so each table is exactly what they have always seen.
#pragma once

#include <cstdint>
#include <span>

#include "modem/signal_grades.h"

// --- Grades ---

// These two are graded in Quectel's own way; the others as everywhere (modem/signal_grades.h).
//                                                 4    3    2
inline constexpr GradeLimits QUECTEL_LTE_SINR = {20, 12, 0};
inline constexpr GradeLimits QUECTEL_RSCP = {-60, -70, -85};

// A measurement that counts for the level: its key in the signal object and its limits.
struct QuectelQuantity {
    char key[6];
    GradeLimits limits;
};

inline constexpr QuectelQuantity QUECTEL_LTE_QUANTITIES[] = {
    {"rsrp", LTE_RSRP},
    {"rsrq", LTE_RSRQ},
    {"sinr", QUECTEL_LTE_SINR},
    {"rssi", LTE_RSSI},
};
inline constexpr QuectelQuantity QUECTEL_WCDMA_QUANTITIES[] = {
    {"rssi", RSSI_2G_3G},
    {"ecio", ECIO_3G},
    {"rscp", QUECTEL_RSCP},
};
inline constexpr QuectelQuantity QUECTEL_EP06_WCDMA_QUANTITIES[] = {
    {"ecio", ECIO_3G},
    {"rscp", QUECTEL_RSCP},
};
inline constexpr QuectelQuantity QUECTEL_CDMA_QUANTITIES[] = {
    {"rssi", RSSI_2G_3G},
    {"ecio", ECIO_3G},
};
inline constexpr QuectelQuantity QUECTEL_CDMA_EVDO_QUANTITIES[] = {
    {"rssi0", RSSI_2G_3G},
    {"ecio0", ECIO_3G},
};
inline constexpr QuectelQuantity QUECTEL_GSM_QUANTITIES[] = {
    {"rssi", RSSI_2G_3G},
};

// A technology by the "type" of its signal object: its rank (the generation, and how it compares with others), and what
// counts for its level (the sum of the grades divided by their number). `adds_up`: on an EP06 the level starts from the
// previous line's, see quectel_signal_level.
struct QuectelTechnology {
    char type[10];
    uint8_t rank;
    bool adds_up;
    std::span<const QuectelQuantity> quantities;
};

// In the order in which types are compared, which decides what a shortened type stands for. One row a line.
// clang-format off
inline constexpr QuectelTechnology QUECTEL_TECHNOLOGIES[] = {
    {"LTE", 4, false, QUECTEL_LTE_QUANTITIES},
    {"WCDMA", 3, true, QUECTEL_WCDMA_QUANTITIES},
    {"TDSCDMA", 3, true, QUECTEL_WCDMA_QUANTITIES},
    {"CDMA", 2, false, QUECTEL_CDMA_QUANTITIES},
    {"EVDO", 3, false, QUECTEL_CDMA_QUANTITIES},
    {"CDMA-EVDO", 3, false, QUECTEL_CDMA_EVDO_QUANTITIES},
    {"GSM", 2, false, QUECTEL_GSM_QUANTITIES},
};
// clang-format on

// --- Words ---

struct QuectelWord {
    uint8_t code;
    char word[13];
};

// "ul_bandwidth" and "dl_bandwidth" of the serving cell, by the first character of the field.
inline constexpr QuectelWord QUECTEL_BANDWIDTH_CODES[] = {
    {'0', "1.4M"}, {'1', "3M"}, {'2', "5M"}, {'3', "10M"}, {'4', "15M"}, {'5', "20M"},
};
// "bandwidth" of a carrier, by the number of its resource blocks.
inline constexpr QuectelWord QUECTEL_BANDWIDTH_VALUES[] = {
    {6, "1.4M"}, {15, "3M"}, {25, "5M"}, {50, "10M"}, {75, "15M"}, {100, "20M"},
};
// "state" of the primary and of a secondary carrier, by the first character of the field. The capitals differ.
inline constexpr QuectelWord QUECTEL_PRIMARY_STATES[] = {
    {'0', "No serving"},
    {'1', "Registered"},
};
inline constexpr QuectelWord QUECTEL_SECONDARY_STATES[] = {
    {'0', "Deconfigured"},
    {'1', "deactivated"},
    {'2', "activated"},
};

// The word for a code, "-" where the table has none.
constexpr const char *quectel_word(std::span<const QuectelWord> words, int32_t code) {
    for (const QuectelWord &one : words) {
        if (one.code == code) {
            return one.word;
        }
    }
    return "-";
}
