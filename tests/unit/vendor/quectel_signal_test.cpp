// Signal objects of Quectel modems from their replies, and which line decides the level.
#include "vendor/quectel_signal.h"

#include <string>

#include <gtest/gtest.h>

#include "support/json_text.h"
#include "support/replies.h"
#include "support/short_memory.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

struct Result {
    std::string signals;
    int rank;
    int32_t level;
    bool operator==(const Result &) const = default;
};

void PrintTo(const Result &result, std::ostream *out) {
    *out << result.signals << " rank " << result.rank << " level " << result.level;
}

using Reader = int(const char *reply, json_object *signals, int32_t *level);

Result read(Reader *reader, const std::string &reply) {
    const Json signals(json_object_new_array());
    int32_t level = UNTOUCHED;
    const int rank = reader(reply.c_str(), signals.get(), &level);
    return {plain_json(signals.get()), rank, level};
}

// AT+QCSQ with these lines' values.
template <typename... Lines> Result read_qcsq(const Lines &...values) {
    std::string reply = "\r\n";
    ((reply += std::string("+QCSQ: ") + values + "\r\n"), ...);
    return read(read_quectel_signals, reply + "\r\nOK\r\n");
}

// AT+QENG="servingcell" with these lines' values, from the state on.
template <typename... Lines> Result read_ep06(const Lines &...values) {
    std::string reply = "\r\n";
    ((reply += std::string("+QENG: \"servingcell\",") + values + "\r\n"), ...);
    return read(read_ep06_signals, reply + "\r\nOK\r\n");
}

const Result NOTHING = {"[]", -1, UNTOUCHED};

TEST(QuectelSignal, ec25_lte_sends_its_rssi_without_a_sign) {
    // Grades: rsrp 2, rsrq 4, sinr (177 + 5) / 10 = 18 3, rssi 2.
    EXPECT_EQ(read(read_quectel_signals, recorded_reply("quectel-ec25/qcsq--lte-positive-rssi")),
              (Result{R"([{"type":"LTE","rssi":"-80","rsrp":"-109","sinr":"18","rsrq":"-9"}])", 4, 2}));
}

TEST(QuectelSignal, bg96_gsm_sends_its_rssi_with_a_sign) {
    EXPECT_EQ(read(read_quectel_signals, recorded_reply("quectel-bg96/qcsq--gsm-negative")),
              (Result{R"([{"type":"GSM","rssi":"--48"}])", 2, 4}));
}

TEST(QuectelSignal, bg96_on_cat_m1_has_no_technology_that_is_known) {
    EXPECT_EQ(read(read_quectel_signals, recorded_reply("quectel-bg96/qcsq--cat-m1")), NOTHING);
}

TEST(QuectelSignal, a_negated_field_that_is_negative_already_gets_a_second_minus_sign) {
    // "--65" is no number for the grade either: it counts as 0, the best. Grades 3, 3, 3, 4.
    EXPECT_EQ(read_qcsq(R"("LTE",-65,-95,150,-10)"),
              (Result{R"([{"type":"LTE","rssi":"--65","rsrp":"-95","sinr":"15","rsrq":"-10"}])", 4, 3}));
}

TEST(QuectelSignal, a_scaled_field_is_a_tenth_of_it_plus_five_truncated_toward_zero) {
    for (const auto &[sent, scaled] : {std::pair{"0", "0"},
                                       {"4", "0"},
                                       {"5", "1"},
                                       {"14", "1"},
                                       {"250", "25"},
                                       {"-5", "0"},
                                       {"-14", "0"},
                                       {"-15", "-1"},
                                       {"-24", "-1"},
                                       {"-25", "-2"},
                                       {"-", "0"},
                                       {"99999999999", "214748365"}}) {
        EXPECT_EQ(read_qcsq(std::string(R"("LTE",80,-95,)") + sent + ",-10").signals,
                  std::string(R"([{"type":"LTE","rssi":"-80","rsrp":"-95","sinr":")") + scaled + R"(","rsrq":"-10"}])")
            << sent;
    }
}

TEST(QuectelSignal, the_technologies_and_their_keys) {
    EXPECT_EQ(read_qcsq(R"("WCDMA",78,-85,-12)"),
              (Result{R"([{"type":"WCDMA","rssi":"-78","rscp":"-85","ecio":"-12"}])", 3, 2}));
    EXPECT_EQ(read_qcsq(R"("TDSCDMA",78,-85,-12)"),
              (Result{R"([{"type":"TDSCDMA","rssi":"-78","rscp":"-85","ecio":"-12"}])", 3, 2}));
    EXPECT_EQ(read_qcsq(R"("GSM",96)"), (Result{R"([{"type":"GSM","rssi":"-96"}])", 2, 1}));
    EXPECT_EQ(read_qcsq(R"("CDMA",90,-15)"), (Result{R"([{"type":"CDMA","rssi":"-90","ecio":"-15"}])", 2, 2}));
    EXPECT_EQ(read_qcsq(R"("EVDO",90,-15,100)"),
              (Result{R"([{"type":"EVDO","rssi":"-90","ecio":"-15","sinr":"10"}])", 3, 2}));
    EXPECT_EQ(
        read_qcsq(R"("CDMA-EVDO",70,-1,96,-21,44)"),
        (Result{R"([{"type":"CDMA-EVDO","rssi0":"-70","ecio0":"-1","rssi1":"-96","ecio1":"-21","sinr":"4"}])", 3, 3}));
}

TEST(QuectelSignal, where_memory_is_short_the_lines_before_count) {
    const std::string reply = "\r\n+QCSQ: \"GSM\",96\r\n+QCSQ: \"WCDMA\",78,-85,-12\r\n\r\nOK\r\n";
    for (const auto &[spared, expected] :
         {std::pair{0, NOTHING}, {1, Result{R"([{"type":"GSM","rssi":"-96"}])", 2, 1}}}) {
        const Json signals(json_object_new_array());
        int32_t level = UNTOUCHED;
        int rank = 0;
        {
            const ShortMemory short_now(spared);
            rank = read_quectel_signals(reply.c_str(), signals.get(), &level);
        }
        EXPECT_EQ((Result{plain_json(signals.get()), rank, level}), expected);
    }
}

TEST(QuectelSignal, the_system_mode_is_found_by_the_word_in_it) {
    EXPECT_EQ(read_qcsq(R"("FDD LTE",80,-95,150,-10)").signals,
              R"([{"type":"LTE","rssi":"-80","rsrp":"-95","sinr":"15","rsrq":"-10"}])");
    EXPECT_EQ(read_qcsq(R"("GSM/GPRS",80)").signals, R"([{"type":"GSM","rssi":"-80"}])");
    EXPECT_EQ(read_qcsq(R"(LTE,80,-95,150,-10)").rank, 4) << "without quotes";
}

TEST(QuectelSignal, wcdma_keeps_the_mode_as_sent_and_has_no_level_under_another_name) {
    EXPECT_EQ(read_qcsq(R"("WCDMA R99",78,-85,-12)"),
              (Result{R"([{"type":"WCDMA R99","rssi":"-78","rscp":"-85","ecio":"-12"}])", -1, UNTOUCHED}));
}

TEST(QuectelSignal, no_service_adds_nothing_and_leaves_the_level) {
    EXPECT_EQ(read_qcsq(R"("NOSERVICE")"), NOTHING);
    EXPECT_EQ(read_qcsq(R"("")"), NOTHING);
    EXPECT_EQ(read_qcsq(""), NOTHING);
    EXPECT_EQ(read_qcsq("NOSERVICE"), NOTHING);
    EXPECT_EQ(read_qcsq(R"("NOSERVICE")", R"("")"), NOTHING);
    EXPECT_EQ(read_quectel_signals("\r\nOK\r\n", nullptr, nullptr), -1);
}

TEST(QuectelSignal, fields_that_are_missing_read_as_a_dash) {
    // Grades: rssi "-0" 4, rsrp 4, rsrq 4, sinr "0" 2.
    EXPECT_EQ(read_qcsq(R"("LTE")"),
              (Result{R"([{"type":"LTE","rssi":"-0","rsrp":"-","sinr":"0","rsrq":"-"}])", 4, 3}));
    EXPECT_EQ(read_qcsq(R"("LTE",80,-95)").signals,
              R"([{"type":"LTE","rssi":"-80","rsrp":"-95","sinr":"0","rsrq":"-"}])");
    EXPECT_EQ(read_qcsq(R"("LTE",,-95,,)").signals, R"([{"type":"LTE","rssi":"-0","rsrp":"-95","sinr":"0","rsrq":""}])")
        << "an empty field is not missing";
}

TEST(QuectelSignal, a_field_is_cut_at_11_characters_and_a_number_at_32_bits) {
    EXPECT_EQ(read_qcsq(R"("LTE",80,-95+QENG: "servingcell",150,-10)").signals,
              R"([{"type":"LTE","rssi":"-80","rsrp":"-95+QENG: \"","sinr":"15","rsrq":"-10"}])");
    EXPECT_EQ(read_qcsq(R"("GSM",-65432109876)").signals, R"([{"type":"GSM","rssi":"--2147483648"}])");
    EXPECT_EQ(read_qcsq(R"("GSM",-12345678901)").signals, R"([{"type":"GSM","rssi":"--1234567890"}])");
}

TEST(QuectelSignal, lte_decides_over_gsm_whatever_the_order) {
    const std::string lte = R"("LTE",110,-125,0,-20)"; // level 1
    const std::string gsm = R"("GSM",50)";             // level 4
    EXPECT_EQ(read_qcsq(lte, gsm).level, 1);
    EXPECT_EQ(read_qcsq(gsm, lte).level, 1);
    EXPECT_EQ(read_qcsq(lte, gsm).rank, 4);
    EXPECT_EQ(read_qcsq(gsm, lte).rank, 4);
    EXPECT_EQ(read_qcsq(gsm, lte).signals, R"([{"type":"GSM","rssi":"-50"},)"
                                           R"({"type":"LTE","rssi":"-110","rsrp":"-125","sinr":"0","rsrq":"-20"}])");
}

TEST(QuectelSignal, of_two_lines_of_one_rank_the_first_decides) {
    EXPECT_EQ(read_qcsq(R"("GSM",75)", R"("GSM",50)").level, 3);
    EXPECT_EQ(read_qcsq(R"("GSM",75)", R"("CDMA",50,0)").level, 3);
}

TEST(QuectelSignal, a_line_without_service_does_not_hide_another) {
    EXPECT_EQ(read_qcsq(R"("NOSERVICE")", R"("GSM",75)"), (Result{R"([{"type":"GSM","rssi":"-75"}])", 2, 3}));
}

// --- EP06 ---

TEST(Ep06Signal, ep06_lte_with_18_fields) {
    // Grades: rsrp 4, rsrq 4, rssi 4, sinr 4.
    EXPECT_EQ(read(read_ep06_signals, recorded_reply("quectel-ep06/qeng-servingcell--lte-noconn-18-fields")),
              (Result{R"([{"type":"LTE","rsrp":"-84","rsrq":"-9","rssi":"-56","sinr":"21"}])", 4, 4}));
}

TEST(Ep06Signal, ep06_older_firmware_with_an_echo_and_chained_commands) {
    // Grades: 4, 2, 4, 3.
    EXPECT_EQ(read(read_ep06_signals, recorded_reply("quectel-ep06/qnwinfo-qeng-qspn--chained-echo")),
              (Result{R"([{"type":"LTE","rsrp":"-86","rsrq":"-13","rssi":"-52","sinr":"15"}])", 4, 3}));
}

TEST(Ep06Signal, wcdma_starts_from_minus_one) {
    // (-1 + ecio 3 + rscp 1) / 2
    EXPECT_EQ(read(read_ep06_signals, recorded_reply("quectel-ec2x/qeng-servingcell--wcdma-noconn-310-nospace-table")),
              (Result{R"([{"type":"WCDMA","rscp":"-98","ecio":"-7"}])", 3, 1}));
    // (-1 + 1 + 1) / 2, truncated: even the weakest line is no -1, and the strongest no 4.
    EXPECT_EQ(read_ep06(R"("NOCONN","WCDMA",440,10,75,6A1,107,58,0,-99,-25,-,-,-,-,-)").level, 0);
    EXPECT_EQ(read_ep06(R"("NOCONN","WCDMA",440,10,75,6A1,107,58,0,-50,0,-,-,-,-,-)").level, 3);
}

TEST(Ep06Signal, wcdma_dashes_and_missing_fields_count_as_the_best) {
    EXPECT_EQ(read(read_ep06_signals, recorded_reply("quectel-ec2x/qeng-servingcell--wcdma-noconn-dashes-from-psc")),
              (Result{R"([{"type":"WCDMA","rscp":"-","ecio":"-"}])", 3, 3}));
    EXPECT_EQ(read_ep06(R"("NOCONN","WCDMA",440,10,75,6A1,107,58,0,-99)"),
              (Result{R"([{"type":"WCDMA","rscp":"-99"}])", 3, 2}));
    EXPECT_EQ(read_ep06(R"("NOCONN","WCDMA")"), (Result{R"([{"type":"WCDMA"}])", 3, 3}));
}

TEST(Ep06Signal, of_two_wcdma_lines_the_first_decides) {
    const std::string weak = R"("NOCONN","WCDMA",440,10,75,6A1,107,58,0,-99,-25,-,-,-,-,-)";
    const std::string strong = R"("NOCONN","WCDMA",440,10,75,6A1,107,58,0,-50,0,-,-,-,-,-)";
    EXPECT_EQ(read_ep06(weak, strong).level, 0);
    EXPECT_EQ(read_ep06(strong, weak).level, 3);
}

TEST(Ep06Signal, lte_decides_over_wcdma_whatever_the_order) {
    const std::string lte = R"("NOCONN","LTE","FDD",222,88,4A1,28,1500,3,3,3,7A1,-110,-13,-80,5,35)"; // 2, 2, 2, 2
    const std::string wcdma = R"("NOCONN","WCDMA",440,10,75,6A1,107,58,0,-50,0,-,-,-,-,-)";
    EXPECT_EQ(read_ep06(lte, wcdma).level, 2);
    EXPECT_EQ(read_ep06(wcdma, lte).level, 2);
    EXPECT_EQ(read_ep06(wcdma, lte).rank, 4);
}

TEST(Ep06Signal, other_technologies_and_a_search_add_nothing) {
    EXPECT_EQ(read(read_ep06_signals, recorded_reply("quectel-ec2x/qeng-servingcell--search")), NOTHING);
    EXPECT_EQ(read(read_ep06_signals, recorded_reply("quectel-ec2x/qeng-servingcell--gsm-limsrv-semicolon-echo")),
              NOTHING);
    EXPECT_EQ(read(read_ep06_signals, recorded_reply("quectel-rm520n/qeng-servingcell--nsa-three-lines")), NOTHING);
}

TEST(QuectelSignalInfo, without_a_modem_it_is_a_failure_and_nothing_is_touched) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    const Json signals(json_object_new_array());
    int32_t level = UNTOUCHED;
    EXPECT_EQ(quectel_signal_info(model, signals.get(), &level), -1);
    EXPECT_EQ(ep06_signal_info(model, signals.get(), &level), -1);
    EXPECT_EQ(level, UNTOUCHED);
    EXPECT_EQ(plain_json(signals.get()), "[]");
}

} // namespace
