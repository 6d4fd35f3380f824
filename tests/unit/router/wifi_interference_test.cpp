// The rule by which a Wi-Fi channel gives way to LTE bands: all of it, for modems at any position.
#include "router/wifi_interference.h"

#include <algorithm>
#include <array>
#include <climits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

constexpr int32_t MAY_STAY = 0;

// Bands that count, none, and such as look like one that counts.
const std::vector<int32_t> BANDS = {0,  7,  40,  1,   3,    4,     8,  20,  38,      39,     41,
                                    47, 70, 400, 407, 4007, 0x107, -7, -40, INT_MIN, INT_MAX};
// All there are, those around them, and what else a configuration may say.
const std::vector<int32_t> CHANNELS = {-1, 0,  1,  2,  3,  4,   5,   6,   7,       8,      9,
                                       10, 11, 12, 13, 14, 257, 111, -11, INT_MIN, INT_MAX};

int32_t better(const std::array<int32_t, 3> &bands, int32_t channel) {
    return handle_wifi_channel_fixed_interference_two(bands[0], bands[1], bands[2], channel);
}

std::string named(const std::array<int32_t, 3> &bands, int32_t channel) {
    return "bands " + std::to_string(bands[0]) + ", " + std::to_string(bands[1]) + ", " + std::to_string(bands[2]) +
           ", channel " + std::to_string(channel);
}

bool contains(const std::array<int32_t, 3> &bands, int32_t band) {
    return std::find(bands.begin(), bands.end(), band) != bands.end();
}

template <typename Check> void for_all_bands(Check check) {
    for (const int32_t first : BANDS) {
        for (const int32_t second : BANDS) {
            for (const int32_t third : BANDS) {
                check(std::array{first, second, third});
            }
        }
    }
}

TEST(WifiInterference, one_modem_on_band_40) {
    EXPECT_EQ(better({40, 0, 0}, 1), 11);
    EXPECT_EQ(better({40, 0, 0}, 6), MAY_STAY);
    EXPECT_EQ(better({40, 0, 0}, 11), MAY_STAY);
}

TEST(WifiInterference, one_modem_on_band_7) {
    EXPECT_EQ(better({7, 0, 0}, 1), MAY_STAY);
    EXPECT_EQ(better({7, 0, 0}, 6), MAY_STAY);
    EXPECT_EQ(better({7, 0, 0}, 11), 1);
}

TEST(WifiInterference, modems_on_both_bands_leave_the_middle) {
    EXPECT_EQ(better({7, 40, 0}, 1), 6);
    EXPECT_EQ(better({7, 40, 0}, 6), MAY_STAY);
    EXPECT_EQ(better({7, 40, 0}, 11), 6);
}

TEST(WifiInterference, no_modem_on_either) {
    for (const int32_t channel : CHANNELS) {
        EXPECT_EQ(better({0, 0, 0}, channel), MAY_STAY) << channel;
        EXPECT_EQ(better({3, 20, 8}, channel), MAY_STAY) << channel;
    }
}

TEST(WifiInterference, channels_between_the_judged_ones_stay_beside_any_band) {
    for (const int32_t channel : {2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 13, 14}) {
        for_all_bands(
            [channel](const auto &bands) { EXPECT_EQ(better(bands, channel), MAY_STAY) << named(bands, channel); });
    }
}

TEST(WifiInterference, the_whole_rule) {
    struct Row {
        bool band_7, band_40;
        int32_t for_channel_1, for_channel_11;
    };
    constexpr Row RULE[] = {{true, true, 6, 6},
                            {false, true, 11, MAY_STAY},
                            {true, false, MAY_STAY, 1},
                            {false, false, MAY_STAY, MAY_STAY}};
    int met[std::size(RULE)] = {};
    for_all_bands([&](const auto &bands) {
        for (size_t index = 0; index < std::size(RULE); index++) {
            const Row &row = RULE[index];
            if (row.band_7 != contains(bands, 7) || row.band_40 != contains(bands, 40)) {
                continue;
            }
            met[index]++;
            for (const int32_t channel : CHANNELS) {
                const int32_t expected = channel == 1    ? row.for_channel_1
                                         : channel == 11 ? row.for_channel_11
                                                         : MAY_STAY;
                EXPECT_EQ(better(bands, channel), expected) << named(bands, channel);
            }
        }
    });
    for (const int count : met) {
        EXPECT_GT(count, 0);
    }
}

TEST(WifiInterference, the_modems_position_does_not_count) {
    for_all_bands([](const auto &bands) {
        std::array<int32_t, 3> order = bands;
        std::sort(order.begin(), order.end());
        do {
            for (const int32_t channel : {1, 6, 11}) {
                EXPECT_EQ(better(order, channel), better(bands, channel)) << named(order, channel);
            }
        } while (std::next_permutation(order.begin(), order.end()));
    });
}

TEST(WifiInterference, the_channel_that_is_better_may_stay) {
    for_all_bands([](const auto &bands) {
        for (const int32_t channel : CHANNELS) {
            const int32_t next = better(bands, channel);
            EXPECT_EQ(better(bands, next), MAY_STAY) << named(bands, channel);
        }
    });
}

} // namespace
