// What a radio measurement is worth: grade 4 (best) to 1, by the least value for each grade. A signal level is the mean
// of the grades of what was measured.
//
// The dialects share a table where it is the same quantity on the same scale. Where one of them grades a quantity in
// its own way, its table stands with that dialect: the bars on clients' screens are tuned to it.
#pragma once

#include <array>
#include <cstdint>

constexpr int32_t BEST_GRADE = 4;

// The least value for each grade from the best to the last but one; anything below the last limit has grade 1.
using GradeLimits = std::array<int16_t, BEST_GRADE - 1>;

constexpr int32_t signal_grade(const GradeLimits &limits, int32_t value) {
    int32_t grade = BEST_GRADE;
    for (const int32_t least : limits) {
        if (value >= least) {
            break;
        }
        grade--;
    }
    return grade;
}

//                                           4     3     2
inline constexpr GradeLimits LTE_RSRP = {-90, -105, -120};
inline constexpr GradeLimits LTE_RSRQ = {-9, -12, -13}; // grade 2 is the one value -13
inline constexpr GradeLimits LTE_RSSI = {-65, -75, -85};
inline constexpr GradeLimits RSSI_2G_3G = {-70, -80, -95};
inline constexpr GradeLimits ECIO_3G = {0, -10, -20};
