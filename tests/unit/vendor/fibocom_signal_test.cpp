// Signal of Fibocom modems from their replies.
#include "vendor/fibocom_signal.h"

#include <array>
#include <string>

#include <gtest/gtest.h>

#include "support/json_text.h"
#include "support/replies.h"

namespace {

struct Read {
    std::string signal;
    int32_t level;

    bool operator==(const Read &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const Read &read) { return out << read.signal << read.level; }
};

Read read(const std::string &cesq_reply, const std::string &csq_reply) {
    const Json signal(json_object_new_object());
    int32_t level = -77;
    read_fibocom_signal(cesq_reply, csq_reply, signal.get(), &level);
    return {plain_json(signal.get()), level};
}

std::string cesq(const std::string &values) {
    return "\r\n+CESQ: " + values + "\r\n\r\nOK\r\n";
}

std::string csq(const std::string &values) {
    return "\r\n+CSQ: " + values + "\r\n\r\nOK\r\n";
}

std::string rssi(const std::string &csq_values) {
    return read("", csq(csq_values)).signal;
}

TEST(FibocomSignal, nl678e) {
    EXPECT_EQ(read(cesq("99,98,255,254,23,61"), csq("22,99")),
              (Read{R"({"rxlev":"99","ber":"98","rscp":"255","ecno":"254","rsrq":"23","rsrp":"61","rssi":"-69"})", 3}));
}

TEST(FibocomSignal, with_an_echo) {
    EXPECT_EQ(read("AT+CESQ\r" + cesq("99,98,255,254,23,61"), "AT+CSQ?\r" + csq("22,99")),
              read(cesq("99,98,255,254,23,61"), csq("22,99")));
}

TEST(FibocomSignal, recorded_replies_of_other_fibocom_modems) {
    EXPECT_EQ(read(recorded_reply("fibocom-fm350/cesq--lte-nine-fields"),
                   recorded_reply("fibocom-l860/csq--question-form-ber-6")),
              (Read{R"({"rxlev":"17","ber":"99","rscp":"255","ecno":"255","rsrq":"4","rsrp":"29","rssi":"-83"})", 1}))
        << "of nine values the first six";
    EXPECT_EQ(read(recorded_reply("fibocom-fm160/cesq--nine-fields"), "").level, 2);
}

TEST(FibocomSignal, rssi_is_in_dbm) {
    EXPECT_EQ(rssi("31,99"), R"({"rssi":"-51"})");
    EXPECT_EQ(rssi("0,99"), R"({"rssi":"-113"})");
    EXPECT_EQ(rssi("99,99"), R"({"rssi":"85"})");
    EXPECT_EQ(rssi("56"), R"({"rssi":"-1"})");
    EXPECT_EQ(rssi("57"), R"({"rssi":"1"})");
}

TEST(FibocomSignal, rssi_of_odd_numbers) {
    EXPECT_EQ(rssi("-1"), R"({"rssi":"-115"})");
    EXPECT_EQ(rssi("+5"), R"({"rssi":"-103"})");
    EXPECT_EQ(rssi(" 5dB"), R"({"rssi":"-103"})");
    EXPECT_EQ(rssi("007"), R"({"rssi":"-99"})");
    for (const char *none : {"x", "-", "\"20\"", " ", "--5", "\xff"}) {
        EXPECT_EQ(rssi(none), R"({"rssi":"-113"})") << none;
    }
}

TEST(FibocomSignal, rssi_of_numbers_beyond_32_bits) {
    EXPECT_EQ(rssi("2147483647"), R"({"rssi":"4294967181"})");
    EXPECT_EQ(rssi("2147483648"), R"({"rssi":"4294967181"})");
    EXPECT_EQ(rssi("-2147483648"), R"({"rssi":"-4294967409"})");
    EXPECT_EQ(rssi("-99999999999999999999"), R"({"rssi":"-4294967409"})");
    EXPECT_EQ(rssi("000000000000000020,99"), R"({"rssi":"-113"})") << "cut to 15 characters";
}

TEST(FibocomSignal, an_empty_rssi_is_shown_where_the_line_is_there_and_the_value_is_not) {
    EXPECT_EQ(read("", csq(",99")), (Read{R"({"rssi":""})", 1}));
    EXPECT_EQ(read("", csq("")), (Read{R"({"rssi":""})", 1}));
    EXPECT_EQ(read("", "\r\nOK\r\n+CSQ:"), (Read{R"({"rssi":""})", 1}));
}

TEST(FibocomSignal, without_the_csq_line_there_is_no_rssi) {
    for (const char *reply :
         {"", "\r\nOK\r\n", "\r\nERROR\r\n", "AT+CSQ?\r\r\nOK\r\n", "\r\n+CESQ: 1,2\r\n\r\nOK\r\n"}) {
        EXPECT_EQ(read("", reply), (Read{"{}", 1})) << reply;
    }
}

TEST(FibocomSignal, without_the_cesq_line_there_is_the_rssi_alone) {
    for (const char *reply :
         {"", "\r\nOK\r\n", "\r\nERROR\r\n", "AT+CESQ\r\r\nOK\r\n", "\r\n+CSQ: 1,2\r\n\r\nOK\r\n"}) {
        EXPECT_EQ(read(reply, csq("20,99")), (Read{R"({"rssi":"-73"})", 2})) << reply;
    }
}

TEST(FibocomSignal, values_of_cesq_that_are_empty_or_missing_are_left_out) {
    EXPECT_EQ(read(cesq("1,,3,,5,"), ""), (Read{R"({"rxlev":"1","rscp":"3","rsrq":"5"})", 1}));
    EXPECT_EQ(read(cesq(",2,,4,,6"), ""), (Read{R"({"ber":"2","ecno":"4","rsrp":"6"})", 1}));
    EXPECT_EQ(read(cesq("1,2"), ""), (Read{R"({"rxlev":"1","ber":"2"})", 1}));
    EXPECT_EQ(read(cesq(""), ""), (Read{"{}", 1}));
    EXPECT_EQ(read("+CESQ:", ""), (Read{"{}", 1}));
}

TEST(FibocomSignal, values_are_shown_as_they_were_sent_and_cut_to_15_characters) {
    EXPECT_EQ(read(cesq("\"99\", 1,x,-5,0x10,1234567890123456"), "").signal,
              R"({"rxlev":"\"99\"","ber":" 1","rscp":"x","ecno":"-5","rsrq":"0x10","rsrp":"123456789012345"})");
    EXPECT_EQ(read(cesq("\xff,\x01"), "").signal, "{\"rxlev\":\"\xEF\xBF\xBD\",\"ber\":\"\\u0001\"}");
}

TEST(FibocomSignal, values_begin_at_their_place_behind_the_prefix) {
    EXPECT_EQ(read("\r\n+CESQ:99,98\r\n", "\r\n+CSQ:22,99\r\n").signal, R"({"rxlev":"9","ber":"98","rssi":"-109"})")
        << "without the blank the first character is lost";
}

// --- Level ---

// The values of a CESQ reply that count, and the CSQ value.
struct Values {
    int rsrp, rsrq, csq;
};

int32_t level(const Values &values) {
    return read(cesq("99,99,255,255," + std::to_string(values.rsrq) + "," + std::to_string(values.rsrp)),
                csq(std::to_string(values.csq) + ",99"))
        .level;
}

struct Quantity {
    const char *name;
    int Values::*value;
    std::array<int, 5> least; // for each grade, 0 is unused
};

constexpr Quantity QUANTITIES[] = {
    {"rsrp", &Values::rsrp, {0, 0, 45, 60, 80}},
    {"rsrq", &Values::rsrq, {0, 0, 10, 20, 28}},
    {"csq", &Values::csq, {0, 0, 10, 15, 20}},
};

TEST(FibocomLevel, all_of_the_best_and_none) {
    EXPECT_EQ(level({80, 28, 20}), 4);
    EXPECT_EQ(read("", "").level, 1);
    EXPECT_EQ(level({0, 0, 0}), 1);
}

TEST(FibocomLevel, both_sides_of_every_limit) {
    for (const Quantity &quantity : QUANTITIES) {
        for (size_t grade = 2; grade <= 4; grade++) {
            // The others are such that with this grade the sum is 6, which makes level 2, and with one below it 5.
            Values values = {};
            size_t others = 6 - grade - 2;
            for (const Quantity &other : QUANTITIES) {
                if (&other != &quantity && others > 0) {
                    values.*other.value = other.least[2];
                    others--;
                }
            }
            ASSERT_EQ(others, 0u);
            values.*quantity.value = quantity.least[grade];
            EXPECT_EQ(level(values), 2) << quantity.name << " " << grade;
            values.*quantity.value = quantity.least[grade] - 1;
            EXPECT_EQ(level(values), 1) << quantity.name << " below " << grade;
        }
    }
}

TEST(FibocomLevel, a_third_of_the_grades_of_all_three) {
    for (int rsrp = 1; rsrp <= 4; rsrp++) {
        for (int rsrq = 1; rsrq <= 4; rsrq++) {
            for (int csq_grade = 1; csq_grade <= 4; csq_grade++) {
                EXPECT_EQ(level({QUANTITIES[0].least[static_cast<size_t>(rsrp)],
                                 QUANTITIES[1].least[static_cast<size_t>(rsrq)],
                                 QUANTITIES[2].least[static_cast<size_t>(csq_grade)]}),
                          (rsrp + rsrq + csq_grade) / 3)
                    << rsrp << rsrq << csq_grade;
            }
        }
    }
}

TEST(FibocomLevel, numbers_that_stand_for_not_known_have_the_best_grade) {
    EXPECT_EQ(level({255, 255, 99}), 4);
}

TEST(FibocomLevel, numbers_beyond_all_limits) {
    EXPECT_EQ(level({INT32_MAX, INT32_MAX, INT32_MAX}), 4);
    EXPECT_EQ(level({INT32_MIN, INT32_MIN, INT32_MIN}), 1);
    EXPECT_EQ(read(cesq(",,,,99999999999999999999,99999999999999999999"), csq("99999999999999999999")).level, 4);
    EXPECT_EQ(read(cesq(",,,,-99999999999999999999,x"), csq("-99999999999999999999")).level, 1);
}

TEST(FibocomLevel, a_missing_value_has_the_lowest_grade) {
    EXPECT_EQ(read(cesq("99,99,255,255,,80"), csq("20,99")).level, 3);
    EXPECT_EQ(read(cesq("99,99,255,255,28,"), csq("20,99")).level, 3);
    EXPECT_EQ(read(cesq("99,99,255,255,28,80"), csq(",99")).level, 3);
    EXPECT_EQ(read(cesq("99,99,255,255,28,80"), "").level, 3);
    EXPECT_EQ(read("", csq("20,99")).level, 2);
}

TEST(FibocomSignalInfo, without_a_modem_there_is_an_object_without_members_and_level_1) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    const Json signals = parse_json(R"(["before"])");
    int32_t level = -77;
    EXPECT_EQ(fibocom_signal_info(model, signals.get(), &level), 0);
    EXPECT_EQ(plain_json(signals.get()), R"(["before",{}])");
    EXPECT_EQ(level, 1);
}

} // namespace
