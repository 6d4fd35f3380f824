// Grades and levels of Quectel signal objects, along the grade tables.
#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/json_text.h"
#include "vendor/quectel_signal.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

struct Graded {
    int rank;
    int32_t level;
    bool operator==(const Graded &) const = default;
};

void PrintTo(const Graded &graded, std::ostream *out) {
    *out << "rank " << graded.rank << " level " << graded.level;
}

Graded grade(const std::string &signal, bool ep06 = false, int32_t level = UNTOUCHED) {
    const Json object = parse_json(signal);
    const int rank = quectel_signal_level(object.get(), &level, ep06);
    return {rank, level};
}

// A quantity and one value for each grade from 1 to 4.
struct Quantity {
    const char *key;
    std::array<int, 4> values;
};

constexpr Quantity LTE[] = {
    {"rsrp", {-130, -110, -100, -80}},
    {"rsrq", {-20, -13, -11, -5}},
    {"sinr", {-5, 5, 15, 25}},
    {"rssi", {-90, -80, -70, -60}},
};
constexpr Quantity WCDMA[] = {
    {"rssi", {-100, -90, -75, -60}},
    {"ecio", {-25, -15, -5, 5}},
    {"rscp", {-90, -80, -65, -50}},
};
constexpr Quantity CDMA[] = {WCDMA[0], WCDMA[1]};
constexpr Quantity CDMA_EVDO[] = {{"rssi0", WCDMA[0].values}, {"ecio0", WCDMA[1].values}};
constexpr Quantity GSM[] = {WCDMA[0]};

std::string member(const char *key, int value) {
    return std::string(",\"") + key + "\":\"" + std::to_string(value) + '"';
}

// The level of an object where quantity `tested` is `value` and the grades of the others add up to `others`.
int32_t level_with(const std::string &type, std::span<const Quantity> quantities, size_t tested, int value,
                   int others) {
    std::string signal = R"({"type":")" + type + '"';
    int left = static_cast<int>(quantities.size()) - 1;
    for (size_t i = 0; i < quantities.size(); i++) {
        if (i == tested) {
            signal += member(quantities[i].key, value);
            continue;
        }
        left--;
        const int one = std::min(4, others - left);
        others -= one;
        signal += member(quantities[i].key, quantities[i].values.at(static_cast<size_t>(one - 1)));
    }
    EXPECT_EQ(others, 0);
    return grade(signal + '}').level;
}

struct Limit {
    int value;
    int grade;
};

// A level is a truncated mean. A grade shows where it makes the sum just reach the next level, and, with others that
// are one less, just fail to.
void expect_grades(const std::string &type, std::span<const Quantity> quantities, size_t tested,
                   const std::vector<Limit> &limits) {
    const int count = static_cast<int>(quantities.size());
    for (const Limit &limit : limits) {
        SCOPED_TRACE(type + " " + quantities[tested].key + " " + std::to_string(limit.value));
        if (count == 1) {
            EXPECT_EQ(level_with(type, quantities, tested, limit.value, 0), limit.grade);
            continue;
        }
        int level = 1;
        while (level * count - 1 - limit.grade < count - 1) {
            level++;
        }
        const int others = level * count - limit.grade;
        ASSERT_LE(others, 4 * (count - 1));
        EXPECT_EQ(level_with(type, quantities, tested, limit.value, others), level);
        EXPECT_EQ(level_with(type, quantities, tested, limit.value, others - 1), level - 1);
    }
}

const std::vector<Limit> RSSI_2G3G = {{0, 4}, {-70, 4}, {-71, 3}, {-80, 3}, {-81, 2}, {-95, 2}, {-96, 1}, {-999, 1}};
const std::vector<Limit> ECIO = {{7, 4}, {0, 4}, {-1, 3}, {-10, 3}, {-11, 2}, {-20, 2}, {-21, 1}, {-999, 1}};

TEST(QuectelSignalLevel, lte_grades) {
    expect_grades("LTE", LTE, 0, {{0, 4}, {-90, 4}, {-91, 3}, {-105, 3}, {-106, 2}, {-120, 2}, {-121, 1}, {-999, 1}});
    expect_grades("LTE", LTE, 1, {{0, 4}, {-9, 4}, {-10, 3}, {-12, 3}, {-13, 2}, {-14, 1}, {-999, 1}});
    expect_grades("LTE", LTE, 2, {{99, 4}, {20, 4}, {19, 3}, {12, 3}, {11, 2}, {0, 2}, {-1, 1}, {-999, 1}});
    expect_grades("LTE", LTE, 3, {{0, 4}, {-65, 4}, {-66, 3}, {-75, 3}, {-76, 2}, {-85, 2}, {-86, 1}, {-999, 1}});
}

TEST(QuectelSignalLevel, wcdma_and_tdscdma_grades) {
    for (const char *type : {"WCDMA", "TDSCDMA"}) {
        expect_grades(type, WCDMA, 0, RSSI_2G3G);
        expect_grades(type, WCDMA, 1, ECIO);
        expect_grades(type, WCDMA, 2, {{0, 4}, {-60, 4}, {-61, 3}, {-70, 3}, {-71, 2}, {-85, 2}, {-86, 1}, {-999, 1}});
    }
}

TEST(QuectelSignalLevel, cdma_and_evdo_grades) {
    for (const char *type : {"CDMA", "EVDO"}) {
        expect_grades(type, CDMA, 0, RSSI_2G3G);
        expect_grades(type, CDMA, 1, ECIO);
    }
    expect_grades("CDMA-EVDO", CDMA_EVDO, 0, RSSI_2G3G);
    expect_grades("CDMA-EVDO", CDMA_EVDO, 1, ECIO);
}

TEST(QuectelSignalLevel, gsm_grades) {
    expect_grades("GSM", GSM, 0, RSSI_2G3G);
}

TEST(QuectelSignalLevel, each_technology_has_its_rank) {
    // Missing quantities count as 0: the best grade but for the sinr of LTE, which makes 4 + 4 + 2 + 4.
    EXPECT_EQ(grade(R"({"type":"LTE"})"), (Graded{4, 3}));
    EXPECT_EQ(grade(R"({"type":"WCDMA"})"), (Graded{3, 4}));
    EXPECT_EQ(grade(R"({"type":"TDSCDMA"})"), (Graded{3, 4}));
    EXPECT_EQ(grade(R"({"type":"CDMA"})"), (Graded{2, 4}));
    EXPECT_EQ(grade(R"({"type":"EVDO"})"), (Graded{3, 4}));
    EXPECT_EQ(grade(R"({"type":"CDMA-EVDO"})"), (Graded{3, 4}));
    EXPECT_EQ(grade(R"({"type":"GSM"})"), (Graded{2, 4}));
}

TEST(QuectelSignalLevel, without_a_known_type_the_rank_is_0_and_the_level_untouched) {
    EXPECT_EQ(grade("{}"), (Graded{0, UNTOUCHED}));
    EXPECT_EQ(grade(R"({"type":4})"), (Graded{0, UNTOUCHED}));
    for (const char *type : {"NR5G", "lte", "LTE ", "LTEX", "FDD LTE", "HSDPA", "CDMA-EVDO1", " "}) {
        EXPECT_EQ(grade(R"({"type":")" + std::string(type) + R"("})"), (Graded{0, UNTOUCHED})) << type;
    }
}

TEST(QuectelSignalLevel, a_type_that_is_the_beginning_of_a_name_counts_as_that_name) {
    const auto rank_of = [](const std::string &type) { return grade(R"({"type":")" + type + R"("})").rank; };
    EXPECT_EQ(rank_of(""), 4) << "an empty type is LTE";
    EXPECT_EQ(rank_of("L"), 4);
    EXPECT_EQ(rank_of("W"), 3);
    EXPECT_EQ(rank_of("TDS"), 3);
    EXPECT_EQ(rank_of("C"), 2) << "CDMA is compared before CDMA-EVDO";
    EXPECT_EQ(rank_of("CDMA"), 2);
    EXPECT_EQ(rank_of("CDMA-"), 3);
    EXPECT_EQ(rank_of("EV"), 3);
    EXPECT_EQ(rank_of("G"), 2);
}

TEST(QuectelSignalLevel, a_value_with_two_minus_signs_counts_as_0) {
    EXPECT_EQ(grade(R"({"type":"GSM","rssi":"--99"})"), (Graded{2, 4}));
    EXPECT_EQ(grade(R"({"type":"GSM","rssi":"-99"})"), (Graded{2, 1}));
}

TEST(QuectelSignalLevel, on_an_ep06_wcdma_adds_to_the_level_that_was_there) {
    const std::string best = R"({"type":"WCDMA","rscp":"-60","ecio":"0"})";
    const std::string worst = R"({"type":"TDSCDMA","rscp":"-86","ecio":"-21"})";
    EXPECT_EQ(grade(best, true, -1), (Graded{3, 3})) << "(-1 + 4 + 4) / 2";
    EXPECT_EQ(grade(best, true, 3), (Graded{3, 5})) << "(3 + 4 + 4) / 2: beyond the four bars";
    EXPECT_EQ(grade(worst, true, -1), (Graded{3, 0})) << "(-1 + 1 + 1) / 2";
    EXPECT_EQ(grade(worst, true, -5), (Graded{3, -1})) << "-3 / 2 is truncated toward zero";
    EXPECT_EQ(grade(worst, true, 4), (Graded{3, 3})) << "(4 + 1 + 1) / 2";
}

TEST(QuectelSignalLevel, on_an_ep06_the_rssi_of_wcdma_does_not_count) {
    EXPECT_EQ(grade(R"({"type":"WCDMA","rssi":"-120","rscp":"-60","ecio":"0"})", true, -1), (Graded{3, 3}));
}

TEST(QuectelSignalLevel, on_an_ep06_a_missing_ecio_has_grade_4) {
    EXPECT_EQ(grade(R"({"type":"WCDMA","rscp":"-86"})", true, -1), (Graded{3, 2})) << "(-1 + 4 + 1) / 2";
}

TEST(QuectelSignalLevel, on_an_ep06_other_technologies_are_as_elsewhere) {
    EXPECT_EQ(grade(R"({"type":"LTE","rsrp":"-84","rsrq":"-9","rssi":"-56","sinr":"21"})", true, 7), (Graded{4, 4}));
    EXPECT_EQ(grade(R"({"type":"GSM","rssi":"-99"})", true, 7), (Graded{2, 1}));
    EXPECT_EQ(grade(R"({"type":"CDMA","rssi":"-99","ecio":"-21"})", true, 7), (Graded{2, 1}));
}

} // namespace
