// The signal level of Sierra Wireless modems from their status blocks.
#include "vendor/sierra_signal.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/replies.h"
#include "support/sierra_blocks.h"

namespace {

using namespace sierra_blocks;

constexpr int32_t UNTOUCHED = -77;

struct Result {
    int generation;
    int32_t level;
    bool operator==(const Result &) const = default;
};

void PrintTo(const Result &result, std::ostream *out) {
    *out << "generation " << result.generation << " level " << result.level;
}

const Result NOTHING = {-1, UNTOUCHED};

Result read(const std::string &reply) {
    int32_t level = UNTOUCHED;
    const int generation = read_sierra_signal(reply.c_str(), &level);
    return {generation, level};
}

// LTE with these measurements.
Result lte(int rssi, int rsrp, int rsrq, int sinr) {
    using std::to_string;
    return read(block(lte_lines(to_string(rssi), to_string(rsrp), to_string(rsrq), to_string(sinr))));
}

Result wcdma(const std::string &rssi) {
    return read(block("System mode:   WCDMA\nRxM RSSI C0:" + rssi + "\t\tRxD RSSI C0:   -75"));
}

std::string without(std::string text, const std::string &part) {
    const size_t at = text.find(part);
    EXPECT_NE(at, text.npos) << part;
    return text.erase(at, part.size());
}

// --- Recorded ---

TEST(SierraSignal, em7455_on_lte) {
    // Grades: rssi 4, rsrp 4, rsrq -14 1, sinr 23 4.
    EXPECT_EQ(read(recorded_reply("sierra-em7455/gstatus--lte-ca-active-tabs")), (Result{4, 3}));
    EXPECT_EQ(read(recorded_reply("sierra-em7455/gstatus--lte-ca-active-blank-aligned")), (Result{4, 3}));
    // 3, 2, 1, 1; 2, 2, 3, 1, where -12.7 counts as -12.
    EXPECT_EQ(read(recorded_reply("sierra-em7455/gstatus--dw5811e-negative-sinr-echo")), (Result{4, 1}));
    EXPECT_EQ(read(recorded_reply("sierra-em7455/gstatus--lte-idle-tx-power-dashes-echo")), (Result{4, 2}));
}

TEST(SierraSignal, wp76xx_with_whole_decibels) {
    // 3, 3, 1, 2
    EXPECT_EQ(read(recorded_reply("sierra-wp76xx/gstatus--mitigate-levels-ims-first")), (Result{4, 2}));
}

TEST(SierraSignal, a_block_that_was_cut_before_its_measurements) {
    EXPECT_EQ(read(recorded_reply("sierra-em7455/gstatus--lte-b25-ends-after-rssi")), NOTHING);
    EXPECT_EQ(read(recorded_reply("sierra-em7455/gstatus--lte-not-attached-deregistered-truncated")), NOTHING);
}

TEST(SierraSignal, firmware_with_other_labels) {
    EXPECT_EQ(read(recorded_reply("sierra-em7565/gstatus--b66-idle-lowercase-hex")), NOTHING) << "PCC RxM RSRP:";
    EXPECT_EQ(read(recorded_reply("sierra-em9191/gstatus--endc-lte-scc-inactive-cut")), NOTHING);
    EXPECT_EQ(read(recorded_reply("sierra-mc7710/gstatus--wcdma-pch-sleep")), NOTHING) << "RX level C0:";
    EXPECT_EQ(read(recorded_reply("sierra-mc8705/gstatus--wcdma-dch")), NOTHING) << "RX level (dBm):";
}

TEST(SierraSignal, em7455_asleep_has_dashes) {
    EXPECT_EQ(read(recorded_reply("sierra-em7455/gstatus--wcdma-deep-sleep-no-service")), NOTHING);
}

TEST(SierraSignal, low_power_has_no_technology) {
    EXPECT_EQ(read(recorded_reply("sierra-mc7455/gstatus--low-power-mode-short")), NOTHING);
    EXPECT_EQ(read(recorded_reply("sierra-mc7710/gstatus--low-power-broken-temperature")), NOTHING);
}

// --- Grades ---

TEST(SierraSignal, the_best_and_the_worst) {
    EXPECT_EQ(lte(-65, -90, -9, 13), (Result{4, 4}));
    EXPECT_EQ(lte(-86, -121, -14, 6), (Result{4, 1}));
    EXPECT_EQ(lte(0, 0, 0, 0), (Result{4, 3})) << "4, 4, 4, 1";
    EXPECT_EQ(lte(30, 30, 30, 30), (Result{4, 4}));
    EXPECT_EQ(lte(-2000000000, -2000000000, -2000000000, -2000000000), (Result{4, 1}));
}

// A value and the grade that it has.
struct Graded {
    int value;
    int grade;
};

// A value of each grade from 1 to 4.
constexpr int RSSI_OF[] = {-90, -80, -70, -60};
constexpr int RSRP_OF[] = {-125, -110, -100, -80};
constexpr int RSRQ_OF[] = {-20, -13, -11, -5};
constexpr int SINR_OF[] = {0, 8, 11, 20};

// One measurement at a time, with every combination of grades of the other three (here counted from 0): whatever its
// own grade, a step of it moves the level at some of them.
void expect_grades(std::initializer_list<Graded> values, Result (*read_with)(int value, int a, int b, int c)) {
    for (const auto &[value, grade] : values) {
        for (int others = 0; others < 4 * 4 * 4; others++) {
            const int a = others % 4, b = others / 4 % 4, c = others / 16;
            EXPECT_EQ(read_with(value, a, b, c), (Result{4, (grade + a + 1 + b + 1 + c + 1) / 4})) << value;
        }
    }
}

TEST(SierraSignal, rssi_grades) {
    expect_grades(
        {{0, 4}, {-64, 4}, {-65, 4}, {-66, 3}, {-74, 3}, {-75, 3}, {-76, 2}, {-84, 2}, {-85, 2}, {-86, 1}, {-200, 1}},
        [](int value, int a, int b, int c) { return lte(value, RSRP_OF[a], RSRQ_OF[b], SINR_OF[c]); });
}

TEST(SierraSignal, rsrp_grades) {
    expect_grades(
        {{0, 4}, {-89, 4}, {-90, 4}, {-91, 3}, {-105, 3}, {-106, 2}, {-119, 2}, {-120, 2}, {-121, 1}, {-200, 1}},
        [](int value, int a, int b, int c) { return lte(RSSI_OF[a], value, RSRQ_OF[b], SINR_OF[c]); });
}

TEST(SierraSignal, rsrq_grades) {
    expect_grades({{0, 4}, {-8, 4}, {-9, 4}, {-10, 3}, {-11, 3}, {-12, 3}, {-13, 2}, {-14, 1}, {-15, 1}, {-40, 1}},
                  [](int value, int a, int b, int c) { return lte(RSSI_OF[a], RSRP_OF[b], value, SINR_OF[c]); });
}

TEST(SierraSignal, sinr_grades) {
    expect_grades({{40, 4}, {14, 4}, {13, 4}, {12, 3}, {10, 3}, {9, 2}, {8, 2}, {7, 2}, {6, 1}, {0, 1}, {-20, 1}},
                  [](int value, int a, int b, int c) { return lte(RSSI_OF[a], RSRP_OF[b], RSRQ_OF[c], value); });
}

TEST(SierraSignal, wcdma_rssi_is_graded_as_on_lte_and_is_the_level) {
    for (const auto &[rssi, level] : {Graded{0, 4},
                                      {-64, 4},
                                      {-65, 4},
                                      {-66, 3},
                                      {-70, 3},
                                      {-75, 3},
                                      {-76, 2},
                                      {-80, 2},
                                      {-85, 2},
                                      {-86, 1},
                                      {-106, 1},
                                      {-200, 1}}) {
        EXPECT_EQ(wcdma(std::to_string(rssi)), (Result{3, level})) << rssi;
        EXPECT_EQ(wcdma("   " + std::to_string(rssi) + ".9"), (Result{3, level})) << rssi;
    }
    EXPECT_EQ(read(block(WCDMA_LINES)), (Result{3, 3}));
}

// The fraction is left out, toward zero: -13.9 is the -13 of grade 2, and 12.9 still no 13.
TEST(SierraSignal, fractions_are_left_out) {
    EXPECT_EQ(read(block(lte_lines("-65", "-90", "-9.9", "13.0"))), (Result{4, 4}));
    EXPECT_EQ(read(block(lte_lines("-65", "-90", "-13.9", "9.9"))), (Result{4, 3})) << "4, 4, 2, 2";
    EXPECT_EQ(read(block(lte_lines("-86", "-121", "-14.0", "6.9"))), (Result{4, 1}));
    EXPECT_EQ(read(block(lte_lines("-65.5", "-90.5", "-9.0", "12.9"))), (Result{4, 3})) << "4, 4, 4, 3";
}

// --- What is missing, and what is there twice ---

TEST(SierraSignal, each_of_the_four_measurements_is_needed) {
    const std::string lines = lte_lines("-60", "-80", "-8", "20");
    EXPECT_EQ(read(block(lines)), (Result{4, 4}));
    for (const char *label : {"PCC RxM RSSI:  ", "RSRP (dBm):  ", "RSRQ (dB):     ", "SINR (dB):     "}) {
        EXPECT_EQ(read(block(without(lines, label))), NOTHING) << label;
        std::string misspelt = lines;
        misspelt[lines.find(label) + 2] = '_';
        EXPECT_EQ(read(block(misspelt)), NOTHING) << label;
    }
    for (const char *value : {"---", "--", "", "n/a", "-", "x-60"}) {
        EXPECT_EQ(read(block(lte_lines(value, "-80", "-8", "20"))), NOTHING) << value;
        EXPECT_EQ(read(block(lte_lines("-60", value, "-8", "20"))), NOTHING) << value;
        EXPECT_EQ(read(block(lte_lines("-60", "-80", value, "20"))), NOTHING) << value;
        EXPECT_EQ(read(block(lte_lines("-60", "-80", "-8", value))), NOTHING) << value;
    }
}

TEST(SierraSignal, the_blanks_behind_an_lte_label_are_part_of_it) {
    const std::string lines = lte_lines("-60", "-80", "-8", "20");
    for (const auto &[before, after] : {std::pair{"RSSI:  ", "RSSI: "},
                                        {"RSSI:  ", "RSSI:"},
                                        {"RSSI:  ", "RSSI:\t"},
                                        {"(dBm):  ", "(dBm): "},
                                        {"(dBm):  ", "(dBm): \t"},
                                        {"RSRQ (dB):     ", "RSRQ (dB):    "},
                                        {"RSRQ (dB):     ", "RSRQ (dB):\t\t"},
                                        {"SINR (dB):     ", "SINR (dB):    "},
                                        {"SINR (dB):     ", "SINR (dB): "}}) {
        std::string changed = lines;
        changed.replace(changed.find(before), strlen(before), after);
        EXPECT_EQ(read(block(changed)), NOTHING) << after;
        changed.replace(changed.find(after), strlen(after), std::string(before) + "   \t");
        EXPECT_EQ(read(block(changed)), (Result{4, 4})) << "more of them do no harm";
    }
}

TEST(SierraSignal, the_first_of_several_measurements_counts) {
    const std::string lines = lte_lines("-60", "-80", "-8", "20");
    EXPECT_EQ(read(block(lines + "\n" + lte_lines("-90", "-130", "-20", "0"))), (Result{4, 4}));
    EXPECT_EQ(read(block(lte_lines("-90", "-130", "-20", "0") + "\n" + lines)), (Result{4, 1}));
    EXPECT_EQ(read(block(lte_lines("---", "-80", "-8", "20") + "\n" + lines)), NOTHING);
}

TEST(SierraSignal, lte_comes_before_wcdma) {
    const std::string lines = lte_lines("-60", "-80", "-8", "20");
    EXPECT_EQ(read(block(lines + "\n" + WCDMA_LINES)), (Result{4, 4}));
    EXPECT_EQ(read(block(WCDMA_LINES + std::string("\n") + lines)), (Result{4, 4}));
    EXPECT_EQ(read(block(WCDMA_LINES + std::string("\nLTE band:  B2"))), NOTHING) << "and is not given up for it";
    EXPECT_EQ(read(block(WCDMA_LINES + std::string("\nFILTER"))), NOTHING) << "wherever the three letters stand";
}

TEST(SierraSignal, neither_technology) {
    for (const char *lines : {"", "System mode:   GSM", "System mode:   lte\nRxM RSSI C0:   -60",
                              "PCC RxM RSSI:  -60\t\tRSRP (dBm):  -80\nRSRQ (dB):     -8\nSINR (dB):     20",
                              "System mode:   CDMA\nRxM RSSI C0:   -60"}) {
        EXPECT_EQ(read(block(lines)), NOTHING) << lines;
    }
    EXPECT_EQ(read(""), NOTHING);
    EXPECT_EQ(read("\r\nOK\r\n"), NOTHING);
}

TEST(SierraSignal, wcdma_without_its_measurement) {
    EXPECT_EQ(wcdma("---"), NOTHING);
    EXPECT_EQ(wcdma(""), NOTHING);
    EXPECT_EQ(wcdma("   "), NOTHING);
    EXPECT_EQ(read(block("System mode:   WCDMA\nRxD RSSI C0:   -60\nRxM RSSI C1:   -60")), NOTHING);
    EXPECT_EQ(read("WCDMA RxM RSSI C0:"), NOTHING);
    EXPECT_EQ(read("WCDMA RxM RSSI C0:-60"), (Result{3, 4}));
}

TEST(SierraGetSignal, without_a_modem_it_is_0_and_the_level_is_untouched) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    int32_t level = UNTOUCHED;
    EXPECT_EQ(sierra_get_signal(model, &level), 0);
    EXPECT_EQ(level, UNTOUCHED);
}

} // namespace
