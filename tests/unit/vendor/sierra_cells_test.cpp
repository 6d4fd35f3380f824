// The cells of Sierra Wireless modems from their status blocks.
#include "vendor/sierra_cells.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "support/json_text.h"
#include "support/replies.h"
#include "support/short_memory.h"
#include "support/sierra_blocks.h"

namespace {

using namespace sierra_blocks;

std::string read(const std::string &reply) {
    const Json cells(json_object_new_array());
    EXPECT_EQ(read_sierra_cells(reply.c_str(), cells.get()), 0);
    return plain_json(cells.get());
}

std::string recorded(const std::string &name) {
    return read(recorded_reply(name));
}

std::string replaced(std::string text, const std::string &before, const std::string &after) {
    const size_t at = text.find(before);
    EXPECT_NE(at, text.npos) << before;
    return text.replace(at, before.size(), after);
}

// --- LTE ---

TEST(SierraCells, em7455_on_two_carriers) {
    EXPECT_EQ(recorded("sierra-em7455/gstatus--lte-ca-active-tabs"),
              R"-([{"type":"PSS","state":"Attached","cellid":"0A1B2C3D (169552957)","band":"B2","bandwidth":"20 MHz",)-"
              R"-("tx-chan":"18800","rx-chan":"800","M-rssi":"-45","D-rssi":"-44","M-rsrp":"-81","D-rsrp":"-79",)-"
              R"-("rsrq":"-14.0","sinr":"23.8","tac":"7B21 (31521)","rat":"LTE"},)-"
              R"-({"type":"SSS","band":"B12","bandwidth":"10 MHz","chan":"5110","M-rssi":"-52","D-rssi":"-51",)-"
              R"-("M-rsrp":"-83","D-rsrp":"-81","rat":"LTE"}])-");
}

TEST(SierraCells, em7455_idle_on_one_carrier) {
    EXPECT_EQ(recorded("sierra-em7455/gstatus--lte-idle-tx-power-dashes-echo"),
              R"-([{"type":"PSS","state":"Attached","cellid":"021A2B3C (35269436)","band":"B8","bandwidth":"5 MHz",)-"
              R"-("tx-chan":"21764","rx-chan":"3764","M-rssi":"-84","D-rssi":"-85","M-rsrp":"-110","D-rsrp":"-118",)-"
              R"-("rsrq":"-12.7","sinr":"1.0","tac":"E1A2 (57762)","rat":"LTE"}])-");
}

TEST(SierraCells, em7455_columns_of_blanks_give_the_rest_of_the_line) {
    EXPECT_EQ(recorded("sierra-em7455/gstatus--dw5811e-negative-sinr-echo"),
              R"-([{"type":"PSS","state":"Attached","cellid":"021B2C3D (35335229)",)-"
              R"-("band":"B3               LTE bw:      10 MHz","bandwidth":"10 MHz","tx-chan":"19749",)-"
              R"-("rx-chan":"1749             LTE Tx chan: 19749",)-"
              R"-("M-rssi":"-74              RSRP (dBm):  -109","D-rssi":"-74              RSRP (dBm):  -117",)-"
              R"-("M-rsrp":"-109","D-rsrp":"-117","rsrq":"-17.4            Cell ID:     021B2C3D (35335229)",)-"
              R"-("sinr":"-2.6","tac":"D1A2 (53666)","rat":"LTE"}])-");
}

TEST(SierraCells, em7455_that_ends_after_rssi_has_fewer_members) {
    EXPECT_EQ(recorded("sierra-em7455/gstatus--lte-b25-ends-after-rssi"),
              R"-([{"type":"PSS","state":"Attached","band":"B25","bandwidth":"15 MHz","tx-chan":"26615",)-"
              R"-("rx-chan":"8615","M-rssi":"-48","D-rssi":"-64","M-rsrp":"-78","D-rsrp":"-94","rat":"LTE"}])-");
}

TEST(SierraCells, em7565_words_rsrp_otherwise) {
    EXPECT_EQ(recorded("sierra-em7565/gstatus--b66-idle-lowercase-hex"),
              R"-([{"type":"PSS","state":"Attached","cellid":"00a1b2c3 (10597059)","band":"B66","bandwidth":"20 MHz",)-"
              R"-("tx-chan":"132272","rx-chan":"0","M-rssi":"-87","D-rssi":"-55","rsrq":"-11.6","sinr":"12.2",)-"
              R"-("tac":"551d (21789)","rat":"LTE"}])-");
}

TEST(SierraCells, em9191_has_secondary_carriers_under_labels_of_its_own) {
    EXPECT_EQ(recorded("sierra-em9191/gstatus--endc-lte-scc-inactive-cut"),
              R"-([{"type":"PSS","state":"Attached","band":"B3","bandwidth":"20 MHz","tx-chan":"19700",)-"
              R"-("rx-chan":"1700","M-rssi":"-65","D-rssi":"-82","rat":"LTE"},{"type":"SSS","rat":"LTE"}])-");
}

TEST(SierraCells, where_memory_is_short_the_cells_before_are_kept) {
    for (const auto &[spared, expected] : {std::pair{0, "[]"}, std::pair{1, R"-([{"type":"PSS","rat":"LTE"}])-"}}) {
        const Json cells(json_object_new_array());
        {
            const ShortMemory short_now(spared);
            EXPECT_EQ(read_sierra_cells("\r\nLTE SCC\r\n\r\nOK\r\n", cells.get()), -1);
        }
        EXPECT_EQ(plain_json(cells.get()), expected);
    }
}

TEST(SierraCells, a_primary_carrier_alone) {
    const std::string lines = "System mode:   LTE\nRSRP (dBm):  -81\nRSRP (dBm):  -79\nRSRP (dBm):  -83";
    EXPECT_EQ(read(block(lines)), R"-([{"type":"PSS","M-rsrp":"-81","D-rsrp":"-79","rat":"LTE"}])-")
        << "no SCC, no SSS";
}

TEST(SierraCells, without_the_fourth_rsrp_the_secondary_carrier_has_no_d_rsrp) {
    EXPECT_EQ(read(block(replaced(AGGREGATED_LINES, "RSRP (dBm):  -80", ""))),
              R"-([{"type":"PSS","state":"Attached","cellid":"0A1B2C3D (169552957)","band":"B2","bandwidth":"20 MHz",)-"
              R"-("tx-chan":"18800","rx-chan":"800","M-rssi":"-45","D-rssi":"-44","M-rsrp":"-81","D-rsrp":"-79",)-"
              R"-("rsrq":"-14.0","sinr":"23.8","tac":"7B21 (31521)","rat":"LTE"},)-"
              R"-({"type":"SSS","band":"B12","bandwidth":"10 MHz","chan":"5110","M-rssi":"-52","D-rssi":"-51",)-"
              R"-("M-rsrp":"-83","rat":"LTE"}])-");
}

TEST(SierraCells, rsrp_is_counted_through_the_whole_reply) {
    const std::string lines = "LTE SCC\nRSRP (dBm):1\tRSRP (dBm):\t2\tRSRP (dBm): \tRSRP (dBm):4\tRSRP (dBm):5";
    EXPECT_EQ(read(block(lines)), R"-([{"type":"PSS","M-rsrp":"1","rat":"LTE"},)-"
                                  R"-({"type":"SSS","M-rsrp":"","D-rsrp":"4","rat":"LTE"}])-");
}

TEST(SierraCells, each_label_fills_its_member) {
    const std::string lte = R"-([{"type":"PSS")-";
    const std::string middle = R"-("rat":"LTE"},{"type":"SSS")-";
    const std::string end = R"-("rat":"LTE"}])-";
    struct Filled {
        const char *label, *primary, *secondary;
    };
    for (const auto &[label, primary, secondary] : {
             Filled{"PS state:", R"-("state":"v",)-", ""},
             {"Cell ID:", R"-("cellid":"v",)-", ""},
             {"LTE band:", R"-("band":"v",)-", ""},
             {"LTE bw:", R"-("bandwidth":"v",)-", ""},
             {"LTE Tx chan:", R"-("tx-chan":"v",)-", ""},
             {"LTE Rx chan:", R"-("rx-chan":"v",)-", ""},
             {"PCC RxM RSSI:", R"-("M-rssi":"v",)-", ""},
             {"PCC RxD RSSI:", R"-("D-rssi":"v",)-", ""},
             {"RSRP (dBm):", R"-("M-rsrp":"v",)-", ""},
             {"RSRQ (dB):", R"-("rsrq":"v",)-", ""},
             {"SINR (dB):", R"-("sinr":"v",)-", ""},
             {"TAC:", R"-("tac":"v",)-", ""},
             {"LTE Scell band:", "", R"-("band":"v",)-"},
             {"LTE Scell bw:", "", R"-("bandwidth":"v",)-"},
             {"LTE Scell chan:", "", R"-("chan":"v",)-"},
             {"SCC RxM RSSI:", "", R"-("M-rssi":"v",)-"},
             {"SCC RxD RSSI:", "", R"-("D-rssi":"v",)-"},
             {"LTE Scell  bw:", "", ""},
             {"lte band:", "", ""},
             {"rat:", "", ""},
         }) {
        EXPECT_EQ(read(block("LTE SCC\n" + std::string(label) + "   v  \t\tx")),
                  lte + "," + primary + middle + "," + secondary + end)
            << label;
        EXPECT_EQ(read(block("LTE SCC\n" + std::string(label))), lte + "," + middle + "," + end) << label;
    }
}

TEST(SierraCells, a_secondary_carrier_without_a_primary_one) {
    EXPECT_EQ(read(block("SCC RxM RSSI:  -52\t\tRSRP (dBm):  -83")),
              R"-([{"type":"SSS","M-rssi":"-52","rat":"LTE"}])-");
}

// --- WCDMA ---

TEST(SierraCells, mc7430_on_wcdma) {
    EXPECT_EQ(read(block(WCDMA_LINES)),
              R"-([{"type":"servingcell","state":"Attached","cellid":"01A2B3C4 (27440068)","band":"WCDMA 2100",)-"
              R"-("chan":"10662","M-rssi-c0":"-68","M-rssi-c1":"-106","D-rssi-c0":"-75","D-rssi-c1":"-110",)-"
              R"-("lac":"1A2B (6699)","rat":"WCDMA"}])-");
}

TEST(SierraCells, em7455_asleep_on_wcdma) {
    EXPECT_EQ(recorded("sierra-em7455/gstatus--wcdma-deep-sleep-no-service"),
              R"-([{"type":"servingcell","state":"Not attached","cellid":"00000000 (0)","band":"WCDMA 2100",)-"
              R"-("chan":"0","M-rssi-c0":"--- RxD RSSI C0: ---","M-rssi-c1":"--- RxD RSSI C1: ---",)-"
              R"-("D-rssi-c0":"---","D-rssi-c1":"---","lac":"0000 (0)","rat":"WCDMA"}])-");
}

TEST(SierraCells, mc7710_calls_its_cell_id_otherwise) {
    EXPECT_EQ(recorded("sierra-mc7710/gstatus--wcdma-pch-sleep"),
              R"-([{"type":"servingcell","state":"Attached","band":"WCDMA 2100","chan":"10662","lac":"1A2B (6699)",)-"
              R"-("rat":"WCDMA"}])-");
}

TEST(SierraCells, mc8705_has_columns_for_gsm) {
    EXPECT_EQ(recorded("sierra-mc8705/gstatus--wcdma-dch"),
              R"-([{"type":"servingcell","state":"Attached","band":"WCDMA800         GSM band:    Unknown",)-"
              R"-("chan":"4436             GSM channel: 65535","rat":"WCDMA"}])-");
}

TEST(SierraCells, each_wcdma_label_fills_its_member) {
    for (const auto &[label, member] : {std::pair{"PS state:", R"-("state":"v",)-"},
                                        {"UTRAN Cell ID:", R"-("cellid":"v",)-"},
                                        {"WCDMA band:", R"-("band":"v",)-"},
                                        {"WCDMA channel:", R"-("chan":"v",)-"},
                                        {"RxM RSSI C0:", R"-("M-rssi-c0":"v",)-"},
                                        {"RxM RSSI C1:", R"-("M-rssi-c1":"v",)-"},
                                        {"RxD RSSI C0:", R"-("D-rssi-c0":"v",)-"},
                                        {"RxD RSSI C1:", R"-("D-rssi-c1":"v",)-"},
                                        {"LAC:", R"-("lac":"v",)-"},
                                        {"Cell ID:", ""},
                                        {"WCDMA chan:", ""}}) {
        EXPECT_EQ(read(block("WCDMA\n" + std::string(label) + "v")),
                  R"-([{"type":"servingcell",)-" + std::string(member) + R"-("rat":"WCDMA"}])-")
            << label;
    }
}

// --- Both, and neither ---

TEST(SierraCells, all_three_in_their_order) {
    // The label of the WCDMA cell ends like that of the LTE cell, and the first one counts.
    EXPECT_EQ(read(block(WCDMA_LINES + std::string("\n") + AGGREGATED_LINES)),
              R"-([{"type":"PSS","state":"Attached","cellid":"01A2B3C4 (27440068)","band":"B2","bandwidth":"20 MHz",)-"
              R"-("tx-chan":"18800","rx-chan":"800","M-rssi":"-45","D-rssi":"-44","M-rsrp":"-81","D-rsrp":"-79",)-"
              R"-("rsrq":"-14.0","sinr":"23.8","tac":"7B21 (31521)","rat":"LTE"},)-"
              R"-({"type":"SSS","band":"B12","bandwidth":"10 MHz","chan":"5110","M-rssi":"-52","D-rssi":"-51",)-"
              R"-("M-rsrp":"-83","D-rsrp":"-80","rat":"LTE"},)-"
              R"-({"type":"servingcell","state":"Attached","cellid":"01A2B3C4 (27440068)","band":"WCDMA 2100",)-"
              R"-("chan":"10662","M-rssi-c0":"-68","M-rssi-c1":"-106","D-rssi-c0":"-75","D-rssi-c1":"-110",)-"
              R"-("lac":"1A2B (6699)","rat":"WCDMA"}])-");
}

TEST(SierraCells, neither_technology_has_no_cell) {
    EXPECT_EQ(recorded("sierra-mc7455/gstatus--low-power-mode-short"), "[]");
    EXPECT_EQ(recorded("sierra-mc7710/gstatus--low-power-broken-temperature"), "[]");
    EXPECT_EQ(read(""), "[]");
    EXPECT_EQ(read(block("System mode:   lte\t\tPS state:    Attached")), "[]");
}

TEST(SierraCells, what_is_in_the_array_stays) {
    const Json cells(json_object_new_array());
    json_object_array_add(cells.get(), json_object_new_string("first"));
    EXPECT_EQ(read_sierra_cells(block("LTE").c_str(), cells.get()), 0);
    EXPECT_EQ(read_sierra_cells(block("WCDMA").c_str(), cells.get()), 0);
    EXPECT_EQ(plain_json(cells.get()),
              R"-(["first",{"type":"PSS","rat":"LTE"},{"type":"servingcell","rat":"WCDMA"}])-");
}

TEST(SierraCells, values_longer_than_100_characters_are_cut) {
    const std::string start = R"-([{"type":"PSS","state":")-";
    const std::string end = R"-(","rat":"LTE"}])-";
    for (const size_t length : {100, 101, 300}) {
        EXPECT_EQ(read(block("LTE\nPS state:" + std::string(length, 'v'))), start + std::string(100, 'v') + end);
    }
    EXPECT_EQ(read(block("LTE\nPS state:" + std::string(99, 'v'))), start + std::string(99, 'v') + end);
}

TEST(SierraCells, bytes_that_are_no_utf8_become_replacement_characters) {
    EXPECT_EQ(read("LTE TAC: \xff\"\x01\xc3\t"),
              "[{\"type\":\"PSS\",\"tac\":\"\xef\xbf\xbd\\\"\\u0001\xef\xbf\xbd\",\"rat\":\"LTE\"}]");
    // The cut may go through a character; 100 bytes, each of which becomes three.
    const std::string tac = "LTE TAC:" + std::string(200, '\xff');
    const Json parsed = parse_json(read(tac));
    ASSERT_NE(parsed, nullptr);
    EXPECT_EQ(json_object_get_string_len(json_object_object_get(json_object_array_get_idx(parsed.get(), 0), "tac")),
              300);
}

TEST(SierraCellInfo, without_a_modem_nothing_is_appended) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    const Json cells(json_object_new_array());
    EXPECT_EQ(sierra_cell_info(model, cells.get()), 0);
    EXPECT_EQ(plain_json(cells.get()), "[]");
}

} // namespace
