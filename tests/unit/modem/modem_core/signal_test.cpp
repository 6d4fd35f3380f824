// Signal level and generation as they are read of a report or of a reply: the grades of every technology at their
// borders, types and values that are anything, and the CSQ value.
#include "modem/modem_core/signal.h"

#include <array>
#include <climits>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/json.h"
#include "support/child.h"
#include "support/json_text.h"
#include "support/replies.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

// What is read of a report.
struct Reading {
    int generation;
    int32_t level;
    bool operator==(const Reading &) const = default;
};
void PrintTo(const Reading &reading, std::ostream *out) {
    *out << "generation " << reading.generation << " level " << reading.level;
}
constexpr Reading NOTHING = {-1, UNTOUCHED};

Reading read(const std::string &report) {
    Reading reading = NOTHING;
    reading.generation = read_qmi_signal(parse_json(report).get(), &reading.level);
    return reading;
}

std::string measurements(const std::string &report) {
    const Json out(json_object_new_object());
    read_qmi_measurements(parse_json(report).get(), out.get());
    return plain_json(out.get());
}

using Values = std::map<std::string, int>;

int32_t level_of(const char *type, const Values &values) {
    const Json report(json_object_new_object());
    vjson_add_string(report.get(), "type", type);
    for (const auto &[key, value] : values) {
        vjson_add_int(report.get(), key.c_str(), value);
    }
    int32_t level = UNTOUCHED;
    read_qmi_signal(report.get(), &level);
    return level;
}

// A value and the score that it must have.
struct Grade {
    const char *key;
    int value;
    int score;
};

// What the part-score of a value is, told from the levels alone: the other parts are set so that the level reaches
// `border` only where this part scores at least `wanted`.
int lte_score(const char *key, int value) {
    static const std::map<std::string, std::array<int, 4>> SCORING = {
        {"rsrp", {-130, -110, -100, -80}},
        {"rsrq", {-20, -13, -11, -5}},
        {"snr", {-10, 50, 150, 250}},
        {"rssi", {-100, -80, -70, -60}},
    };
    static constexpr int OTHERS[][3] = {{4, 3, 3}, {3, 3, 3}, {3, 3, 2}}; // with a 2, a 3 and a 4 they make 12
    int score = 1;
    for (const auto &others : OTHERS) {
        Values values = {{key, value}};
        const int *other = others;
        for (const auto &[name, scoring] : SCORING) {
            if (name != key) {
                values[name] = scoring[static_cast<size_t>(*other++ - 1)];
            }
        }
        score += level_of("lte", values) >= 3;
    }
    return score;
}

int third_generation_score(const char *type, const std::string &key, int value) {
    static const std::map<std::string, std::array<int, 2>> SCORING = {{"rssi", {-100, -90}}, {"ecio", {-30, -15}}};
    const std::string other = key == "rssi" ? "ecio" : "rssi";
    const auto [one, two] = SCORING.at(other);
    return 1 + (level_of(type, {{key, value}, {other, two}}) >= 2) +
           (level_of(type, {{key, value}, {other, one}}) >= 2) + (level_of(type, {{key, value}, {other, two}}) >= 3);
}

// LTE.

TEST(LteSignal, four_scores_of_3_are_level_3) {
    EXPECT_EQ(read(R"({"type":"lte","rsrp":-95,"rsrq":-11,"snr":130,"rssi":-70})"), (Reading{4, 3}));
}

TEST(LteSignal, a_sum_of_14_is_level_3) {
    EXPECT_EQ(read(R"({"type":"lte","rsrp":-80,"rsrq":-13,"snr":250,"rssi":-60})"), (Reading{4, 3}));
}

TEST(LteSignal, a_sum_of_15_is_level_3_and_only_16_is_level_4) {
    EXPECT_EQ(read(R"({"type":"lte","rsrp":-80,"rsrq":-12,"snr":250,"rssi":-60})"), (Reading{4, 3}));
    EXPECT_EQ(read(R"({"type":"lte","rsrp":-80,"rsrq":-9,"snr":250,"rssi":-60})"), (Reading{4, 4}));
}

TEST(LteSignal, the_worst_of_all_is_level_1) {
    EXPECT_EQ(read(R"({"type":"lte","rsrp":-140,"rsrq":-20,"snr":-100,"rssi":-113})"), (Reading{4, 1}));
}

TEST(LteSignal, an_rsrq_of_minus_13_alone_scores_2) {
    EXPECT_EQ(lte_score("rsrq", -12), 3);
    EXPECT_EQ(lte_score("rsrq", -13), 2);
    EXPECT_EQ(lte_score("rsrq", -14), 1);
}

TEST(LteSignal, every_grade_at_its_borders) {
    constexpr Grade GRADES[] = {
        {"rsrp", 0, 4},       {"rsrp", -44, 4},  {"rsrp", -90, 4},  {"rsrp", -91, 3},  {"rsrp", -105, 3},
        {"rsrp", -106, 2},    {"rsrp", -120, 2}, {"rsrp", -121, 1}, {"rsrp", -140, 1}, {"rsrp", INT_MIN, 1},
        {"rsrp", INT_MAX, 4}, {"rsrq", 0, 4},    {"rsrq", -9, 4},   {"rsrq", -10, 3},  {"rsrq", -12, 3},
        {"rsrq", -13, 2},     {"rsrq", -14, 1},  {"rsrq", -15, 1},  {"rsrq", -20, 1},  {"rsrq", INT_MIN, 1},
        {"rsrq", INT_MAX, 4}, {"snr", 300, 4},   {"snr", 200, 4},   {"snr", 199, 3},   {"snr", 120, 3},
        {"snr", 119, 2},      {"snr", 0, 2},     {"snr", -1, 1},    {"snr", -200, 1},  {"snr", INT_MIN, 1},
        {"snr", INT_MAX, 4},  {"rssi", -51, 4},  {"rssi", -65, 4},  {"rssi", -66, 3},  {"rssi", -75, 3},
        {"rssi", -76, 2},     {"rssi", -85, 2},  {"rssi", -86, 1},  {"rssi", -113, 1}, {"rssi", INT_MIN, 1},
        {"rssi", INT_MAX, 4},
    };
    for (const Grade &grade : GRADES) {
        EXPECT_EQ(lte_score(grade.key, grade.value), grade.score) << grade.key << " " << grade.value;
    }
}

// WCDMA, HDR and CDMA.

TEST(WcdmaSignal, two_scores_of_2_are_level_2) {
    EXPECT_EQ(read(R"({"type":"wcdma","rssi":-85,"ecio":-12})"), (Reading{3, 2}));
}

TEST(WcdmaSignal, an_odd_sum_is_rounded_down) {
    EXPECT_EQ(read(R"({"type":"wcdma","rssi":-70,"ecio":-1})"), (Reading{3, 3}));
    EXPECT_EQ(read(R"({"type":"wcdma","rssi":-70,"ecio":0})"), (Reading{3, 4}));
    EXPECT_EQ(read(R"({"type":"wcdma","rssi":-96,"ecio":-20})"), (Reading{3, 1}));
    EXPECT_EQ(read(R"({"type":"wcdma","rssi":-96,"ecio":-21})"), (Reading{3, 1}));
}

TEST(WcdmaSignal, hdr_is_3g_as_well_and_cdma_is_2g_with_the_same_level) {
    EXPECT_EQ(read(R"({"type":"hdr","rssi":-75,"ecio":-5})"), (Reading{3, 3}));
    EXPECT_EQ(read(R"({"type":"cdma","rssi":-75,"ecio":-5})"), (Reading{2, 3}));
}

TEST(WcdmaSignal, every_grade_at_its_borders) {
    constexpr Grade GRADES[] = {
        {"rssi", 0, 4},   {"rssi", -70, 4}, {"rssi", -71, 3},  {"rssi", -80, 3},     {"rssi", -81, 2},
        {"rssi", -95, 2}, {"rssi", -96, 1}, {"rssi", -120, 1}, {"rssi", INT_MIN, 1}, {"rssi", INT_MAX, 4},
        {"ecio", 5, 4},   {"ecio", 0, 4},   {"ecio", -1, 3},   {"ecio", -10, 3},     {"ecio", -11, 2},
        {"ecio", -20, 2}, {"ecio", -21, 1}, {"ecio", -31, 1},  {"ecio", INT_MIN, 1}, {"ecio", INT_MAX, 4},
    };
    for (const char *type : {"wcdma", "hdr", "cdma"}) {
        for (const Grade &grade : GRADES) {
            EXPECT_EQ(third_generation_score(type, grade.key, grade.value), grade.score)
                << type << " " << grade.key << " " << grade.value;
        }
    }
}

// GSM and TDMA.

TEST(GsmSignal, minus_75_is_level_3) {
    EXPECT_EQ(read(R"({"type":"gsm","signal":-75})"), (Reading{2, 3}));
}

TEST(GsmSignal, every_grade_at_its_borders_for_tdma_too) {
    constexpr std::pair<int, int> GRADES[] = {
        {0, 4},   {-51, 4}, {-70, 4}, {-71, 3},  {-80, 3},     {-81, 2},
        {-95, 2}, {-96, 1}, {-97, 1}, {-113, 1}, {INT_MIN, 1}, {INT_MAX, 4},
    };
    for (const char *type : {"gsm", "tdma"}) {
        for (const auto &[value, level] : GRADES) {
            EXPECT_EQ(level_of(type, {{"signal", value}}), level) << type << " " << value;
        }
    }
}

TEST(GsmSignal, the_level_of_tdma_is_that_of_signal_too_although_rssi_is_what_it_shows) {
    EXPECT_EQ(read(R"({"type":"tdma","signal":-100,"rssi":-50})"), (Reading{2, 1}));
    EXPECT_EQ(read(R"({"type":"gsm","signal":-100,"rssi":-50})"), (Reading{2, 1}));
}

// The type.

TEST(SignalType, every_technology_has_its_generation) {
    constexpr std::pair<const char *, int> GENERATIONS[] = {{"lte", 4},  {"wcdma", 3}, {"hdr", 3},
                                                            {"cdma", 2}, {"gsm", 2},   {"tdma", 2}};
    for (const auto &[type, generation] : GENERATIONS) {
        EXPECT_EQ(read(std::string(R"({"type":")") + type + R"("})").generation, generation) << type;
    }
}

TEST(SignalType, a_beginning_stands_for_the_first_technology_that_has_it) {
    const std::string technologies[] = {"lte", "wcdma", "hdr", "cdma", "gsm", "tdma"};
    for (const std::string &technology : technologies) {
        const std::string whole = measurements(R"({"type":")" + technology + R"("})");
        for (size_t length = 1; length <= technology.size(); length++) {
            EXPECT_EQ(measurements(R"({"type":")" + technology.substr(0, length) + R"("})"), whole)
                << technology << length;
        }
    }
}

TEST(SignalType, an_empty_type_counts_as_lte) {
    EXPECT_EQ(read(R"({"type":"","rsrp":-95,"rsrq":-11,"snr":130,"rssi":-70})"), (Reading{4, 3}));
    EXPECT_EQ(measurements(R"({"type":"","rssi":-70})"),
              R"({"type":"LTE","rssi":"-70","rsrp":"0","rsrq":"0","sinr":"0"})");
}

TEST(SignalType, what_begins_no_technology_gives_nothing) {
    for (const char *type :
         {"LTE", "Lte", "lte ", " lte", "lte-a", "wcdma2", "umts", "te", "dma", "nr5g", "x", "\\n"}) {
        const std::string report = std::string(R"({"type":")") + type + R"(","rssi":-60,"signal":-60})";
        EXPECT_EQ(read(report), NOTHING) << type;
        EXPECT_EQ(measurements(report), "{}") << type;
    }
}

TEST(SignalType, a_type_that_is_missing_or_no_text_gives_nothing) {
    for (const char *report :
         {R"({})", R"({"rssi":-60,"rsrp":-80})", R"({"type":null})", R"({"type":4})", R"({"type":true})",
          R"({"type":["lte"]})", R"({"type":{"type":"lte"}})", R"({"Type":"lte"})"}) {
        EXPECT_EQ(read(report), NOTHING) << report;
        EXPECT_EQ(measurements(report), "{}") << report;
    }
}

TEST(SignalType, a_report_that_is_no_object_gives_nothing) {
    for (const char *report : {"[]", R"([{"type":"lte"}])", R"("lte")", "4", "-1.5", "true", "null", ""}) {
        EXPECT_EQ(read(report), NOTHING) << report;
        EXPECT_EQ(measurements(report), "{}") << report;
    }
}

// The integers.

TEST(SignalValues, a_missing_one_counts_as_0) {
    EXPECT_EQ(read(R"({"type":"lte"})"), (Reading{4, 3})) << "4 + 4 + 2 + 4";
    EXPECT_EQ(read(R"({"type":"wcdma"})"), (Reading{3, 4}));
    EXPECT_EQ(read(R"({"type":"gsm"})"), (Reading{2, 4}));
}

TEST(SignalValues, a_number_in_a_text_counts) {
    EXPECT_EQ(read(R"({"type":"gsm","signal":"-75"})"), (Reading{2, 3}));
    EXPECT_EQ(measurements(R"({"type":"gsm","signal":"-75"})"), R"({"type":"GSM","rssi":"-75"})");
}

TEST(SignalValues, numbers_beyond_32_bits_keep_their_sign) {
    EXPECT_EQ(read(R"({"type":"gsm","signal":-99999999999999999999999999999999})"), (Reading{2, 1}));
    EXPECT_EQ(read(R"({"type":"gsm","signal":-2147483649})"), (Reading{2, 1}));
    EXPECT_EQ(read(R"({"type":"gsm","signal":99999999999999999999999999999999})"), (Reading{2, 4}));
    EXPECT_EQ(measurements(R"({"type":"gsm","signal":-99999999999})"), R"({"type":"GSM","rssi":"-2147483648"})");
    EXPECT_EQ(measurements(R"({"type":"gsm","signal":99999999999})"), R"({"type":"GSM","rssi":"2147483647"})");
}

TEST(SignalValues, of_any_type_give_a_level_and_texts) {
    for (const char *type : {"lte", "wcdma", "hdr", "cdma", "gsm", "tdma", ""}) {
        for (const char *value : {"null", "true", "[]", "[1]", "{}", "\"\"", "\"x\"", "\"\\u0000\"", "1.5", "-0.5",
                                  "1e308", "-1e308", "-75.9", "9223372036854775807", "-9223372036854775808",
                                  "18446744073709551615", "NaN", "-Infinity", "Infinity"}) {
            std::string report = std::string(R"({"type":")") + type + "\"";
            for (const char *key : {"rssi", "rsrp", "rsrq", "snr", "ecio", "signal"}) {
                report += std::string(",\"") + key + "\":" + value;
            }
            report += "}";
            const Reading reading = read(report);
            EXPECT_GE(reading.generation, 2) << report;
            EXPECT_GE(reading.level, 1) << report;
            EXPECT_LE(reading.level, 4) << report;
            const Json texts = parse_json(measurements(report));
            json_object_object_foreach(texts.get(), key, member) {
                EXPECT_EQ(json_object_get_type(member), json_type_string) << report << key;
            }
        }
    }
}

// Measurements as texts.

TEST(Measurements, the_keys_of_every_technology_in_their_order) {
    const std::string values = R"(,"rssi":-71,"rsrp":-72,"rsrq":-13,"snr":-14,"ecio":-5,"signal":-76})";
    constexpr std::pair<const char *, const char *> EXPECTED[] = {
        {"lte", R"({"type":"LTE","rssi":"-71","rsrp":"-72","rsrq":"-13","sinr":"-14"})"},
        {"wcdma", R"({"type":"WCDMA","rssi":"-71","ecio":"-5"})"},
        {"hdr", R"({"type":"HDR","rssi":"-71","ecio":"-5"})"},
        {"cdma", R"({"type":"CDMA","rssi":"-71","ecio":"-5"})"},
        {"gsm", R"({"type":"GSM","rssi":"-76"})"},
        {"tdma", R"({"type":"TDMA","rssi":"-71"})"},
    };
    for (const auto &[type, expected] : EXPECTED) {
        EXPECT_EQ(measurements(std::string(R"({"type":")") + type + "\"" + values), expected);
    }
}

TEST(Measurements, the_rssi_of_gsm_is_its_signal_and_that_of_tdma_its_rssi) {
    EXPECT_EQ(measurements(R"({"type":"gsm","signal":-75})"), R"({"type":"GSM","rssi":"-75"})");
    EXPECT_EQ(measurements(R"({"type":"gsm","rssi":-75})"), R"({"type":"GSM","rssi":"0"})");
    EXPECT_EQ(measurements(R"({"type":"tdma","signal":-75})"), R"({"type":"TDMA","rssi":"0"})");
    EXPECT_EQ(measurements(R"({"type":"tdma","rssi":-75})"), R"({"type":"TDMA","rssi":"-75"})");
}

// The CSQ value.

TEST(Csq, the_recorded_ones) {
    const std::pair<const char *, int> expected[] = {
        {"huawei-e1752/csq--echo-framing-exact", 11},
        {"quectel-eg25/csq--weak", 10},
        {"quectel-rg650v/csq", 16},
        {"fibocom-l860/csq--question-form-ber-6", 15},
        {"simcom-sim7600/csq--18", 18},
        {"simcom-sim7600/cgreg--0-2-then-csq-31", 31},
        {"simcom-sim7670/csq--21-0", 21},
        {"zte-3g/csq", 12},
        // The first digits after the first line break count, also those of an unsolicited line before the answer.
        {"huawei-e3372/csq--rssi-hcsq-urcs-before-answer", 26},
    };
    for (const auto &[name, value] : expected) {
        EXPECT_EQ(read_csq(recorded_reply(name).c_str()), value) << name;
    }
}

TEST(Csq, every_value_there_is) {
    for (int value = 0; value <= 99; value++) {
        const std::string reply = "\r\n+CSQ: " + std::to_string(value) + ",99\r\n\r\nOK\r\n";
        EXPECT_EQ(read_csq(reply.c_str()), value);
    }
}

TEST(Csq, no_line_break_fails) {
    for (const char *reply : {"", "+CSQ: 20,99", "+CSQ: 20,99\r", "20\rOK\r", "+CSQ: 20\nOK", "\n", "\r"}) {
        EXPECT_EQ(read_csq(reply), -1) << reply;
    }
}

TEST(Csq, a_line_break_is_a_return_or_a_line_feed_before_a_line_feed) {
    EXPECT_EQ(read_csq("1\r\n2"), 2);
    EXPECT_EQ(read_csq("1\n\n2"), 2);
    EXPECT_EQ(read_csq("1\r2\n3\r\n4"), 4);
    EXPECT_EQ(read_csq("1\r\r\n2"), 2);
}

TEST(Csq, no_digits_count_as_0) {
    EXPECT_EQ(read_csq("\r\n"), 0);
    EXPECT_EQ(read_csq("\r\n+CSQ: \r\n\r\nOK\r\n"), 0);
}

TEST(Csq, digits_may_stand_on_a_later_line) {
    EXPECT_EQ(read_csq("\r\n\r\nRING\r\n+CSQ: 17,99\r\n"), 17);
}

TEST(Csq, what_is_before_the_digits_does_not_matter) {
    EXPECT_EQ(read_csq("\r\n+CSQ: -17,99\r\n"), 17);
    EXPECT_EQ(read_csq("\r\n\xff\x80\x01 17"), 17);
    EXPECT_EQ(read_csq("\r\n17"), 17);
}

TEST(Csq, eight_digits_are_a_number_and_nine_a_failure) {
    EXPECT_EQ(read_csq("\r\n+CSQ: 99999999,99\r\n"), 99999999);
    EXPECT_EQ(read_csq("\r\n+CSQ: 00000017,99\r\n"), 17);
    EXPECT_EQ(read_csq("\r\n+CSQ: 000000017,99\r\n"), -1);
    EXPECT_EQ(read_csq("\r\n+CSQ: 123456789,99\r\n"), -1);
    EXPECT_EQ(read_csq("\r\n123456789"), -1);
    EXPECT_EQ(read_csq(("\r\n+CSQ: " + std::string(30, '9') + ",99\r\n").c_str()), -1);
    EXPECT_EQ(read_csq(("\r\n" + std::string(100000, '1')).c_str()), -1);
}

TEST(Csq, every_beginning_of_every_recorded_reply) {
    for (const RecordedReply &recorded : recorded_replies()) {
        for (size_t length = 0; length <= recorded.wire.size(); length++) {
            // Of exactly this size on the heap, so that a read beyond it is seen.
            const auto reply = std::make_unique<char[]>(length + 1);
            recorded.wire.copy(reply.get(), length);
            const int32_t value = read_csq(reply.get());
            ASSERT_GE(value, -1) << recorded.name << " " << length;
            ASSERT_LE(value, 99999999) << recorded.name << " " << length;
        }
    }
}

TEST(Csq, a_modem_that_is_not_there_has_no_signal) {
    in_child_with_empty({"/sys", "/dev"}, [] {
        ModemModel model = *modem_list_find_id(modem_head, 3);
        replace_modem_struct(&model, "1-1.2");
        int32_t level = UNTOUCHED;
        EXPECT_EQ(modem_get_rssi(model, &level), -1);
        EXPECT_EQ(level, UNTOUCHED);
    });
}

} // namespace
