// Carriers, serving cells and neighbour cells of Quectel modems from their replies.
#include "vendor/quectel_cells.h"

#include <string>

#include <gtest/gtest.h>

#include "support/json_text.h"
#include "support/replies.h"
#include "support/short_memory.h"

namespace {

using Reader = void(const char *reply, json_object *cells);

std::string read(Reader *reader, const std::string &reply) {
    const Json cells(json_object_new_array());
    reader(reply.c_str(), cells.get());
    return plain_json(cells.get());
}

std::string carriers(const std::string &lines) {
    return read(read_quectel_carriers, "\r\n" + lines + "\r\n\r\nOK\r\n");
}

std::string serving(const std::string &values) {
    return read(read_quectel_serving_cells, "\r\n+QENG: \"servingcell\"," + values + "\r\n\r\nOK\r\n");
}

std::string neighbours(const std::string &lines) {
    return read(read_quectel_neighbour_cells, "\r\n" + lines + "\r\n\r\nOK\r\n");
}

std::string recorded_serving(const std::string &name) {
    return read(read_quectel_serving_cells, recorded_reply(name));
}

// --- Carriers ---

constexpr const char *PSS = R"(+QCAINFO: "pss",3350,100,"LTE BAND 7",1,20,-86,-13,-52,15)";
constexpr const char *SSS = R"(+QCAINFO: "sss",1500,75,"LTE BAND 3",2,28,-84,-9,-56,21)";

TEST(QuectelCarriers, ep06_primary_and_secondary) {
    EXPECT_EQ(carriers(std::string(PSS) + "\r\n" + SSS),
              R"([{"type":"PSS","freq":"3350","band":"LTE BAND 7","bandwidth":"20M","state":"Registered","pcid":"20",)"
              R"("rsrp":"-86","rsrq":"-13","rssi":"-52","sinr":"15"},)"
              R"({"type":"SSS","freq":"1500","band":"LTE BAND 3","bandwidth":"15M","state":"activated","pcid":"28",)"
              R"("rsrp":"-84","rsrq":"-9","rssi":"-56","sinr":"21"}])");
}

TEST(QuectelCarriers, a_pss_line_anywhere_behind_makes_a_secondary_carrier_a_primary_one) {
    EXPECT_EQ(carriers("+QCAINFO: \"sss\",1500,75,\"B3\",2\r\n+QCAINFO: \"pss\",3350,100,\"B7\",1"),
              R"([{"type":"PSS","freq":"1500","band":"B3","bandwidth":"15M","state":"-"},)"
              R"({"type":"PSS","freq":"3350","band":"B7","bandwidth":"20M","state":"Registered"}])");
}

TEST(QuectelCarriers, where_memory_is_short_the_carriers_before_are_kept) {
    const std::string reply = "\r\n+QCAINFO: \"pss\",3350\r\n+QCAINFO: \"sss\",1500\r\n\r\nOK\r\n";
    for (const auto &[spared, expected] : {std::pair{0, "[]"}, {1, R"([{"type":"PSS","freq":"3350"}])"}}) {
        const Json cells(json_object_new_array());
        {
            const ShortMemory short_now(spared);
            read_quectel_carriers(reply.c_str(), cells.get());
        }
        EXPECT_EQ(plain_json(cells.get()), expected);
    }
}

TEST(QuectelCarriers, states_of_both_kinds_by_the_first_character) {
    for (const auto &[sent, state] :
         {std::pair{"0", "No serving"}, {"1", "Registered"}, {"2", "-"}, {"", "-"}, {"10", "Registered"}, {"x", "-"}}) {
        EXPECT_EQ(carriers(R"(+QCAINFO: "pss",1,6,"B1",)" + std::string(sent)),
                  R"([{"type":"PSS","freq":"1","band":"B1","bandwidth":"1.4M","state":")" + std::string(state) +
                      R"("}])");
    }
    for (const auto &[sent, state] : {std::pair{"0", "Deconfigured"},
                                      {"1", "deactivated"},
                                      {"2", "activated"},
                                      {"3", "-"},
                                      {"", "-"},
                                      {"20", "activated"}}) {
        EXPECT_EQ(carriers(R"(+QCAINFO: "sss",1,6,"B1",)" + std::string(sent)),
                  R"([{"type":"SSS","freq":"1","band":"B1","bandwidth":"1.4M","state":")" + std::string(state) +
                      R"("}])");
    }
}

TEST(QuectelCarriers, bandwidths_by_their_number) {
    for (const auto &[sent, bandwidth] : {std::pair{"6", "1.4M"},
                                          {"15", "3M"},
                                          {"25", "5M"},
                                          {"50", "10M"},
                                          {"75", "15M"},
                                          {"100", "20M"},
                                          {"0100", "20M"},
                                          {"5", "-"},
                                          {"7", "-"},
                                          {"", "-"},
                                          {"-", "-"},
                                          {"4294967302", "-"}}) {
        EXPECT_EQ(carriers(R"(+QCAINFO: "pss",1,)" + std::string(sent) + ",B1"),
                  R"([{"type":"PSS","freq":"1","band":"B1","bandwidth":")" + std::string(bandwidth) + R"("}])");
    }
}

TEST(QuectelCarriers, a_line_without_fields_has_only_its_type) {
    EXPECT_EQ(carriers(R"(+QCAINFO: "pss")"), R"([{"type":"PSS"}])");
    EXPECT_EQ(carriers("+QCAINFO:pss"), R"([{"type":"PSS"}])");
}

TEST(QuectelCarriers, pcc_and_scc_are_no_carriers_here) {
    EXPECT_EQ(carriers("+QCAINFO: \"pcc\",3350,100,\"B7\",1\r\n+QCAINFO: \"scc\",1500,75,\"B3\",2"), "[]");
    EXPECT_EQ(read(read_quectel_carriers, recorded_reply("quectel-rm5xx/qcainfo--lte-4cc")), "[]");
    EXPECT_EQ(carriers(""), "[]");
}

TEST(QuectelAggregated, a_primary_and_a_secondary_carrier_of_one_spelling) {
    EXPECT_TRUE(is_quectel_aggregated((std::string(PSS) + "\r\n" + SSS + "\r\n\r\nOK\r\n").c_str()));
    EXPECT_TRUE(is_quectel_aggregated("+QCAINFO: \"scc\",1\r\n+QCAINFO: \"pcc\",2\r\n\r\nOK\r\n"));
    EXPECT_FALSE(is_quectel_aggregated(PSS));
    EXPECT_FALSE(is_quectel_aggregated(SSS));
    EXPECT_FALSE(is_quectel_aggregated("+QCAINFO: \"pss\",1\r\n+QCAINFO: \"scc\",2\r\n\r\nOK\r\n"));
    EXPECT_FALSE(is_quectel_aggregated("+QCAINFO: \"pcc\",1\r\n+QCAINFO: \"sss\",2\r\n\r\nOK\r\n"));
    EXPECT_FALSE(is_quectel_aggregated(recorded_reply("quectel-rm520n/qcainfo--lte-2cc").c_str())) << "capitals";
    EXPECT_FALSE(is_quectel_aggregated(""));
}

// --- Serving cells ---

TEST(QuectelServingCell, ec20_lte_tdd) {
    EXPECT_EQ(recorded_serving("quectel-ec20/qeng-servingcell--lte-tdd-noconn"),
              R"([{"type":"servingcell","state":"NOCONN","mode":"TDD","mcc":"460","mnc":"00","cellid":"C4A1B21",)"
              R"("pcid":"401","earfcn":"38950","band":"40","ul_bandwidth":"20M","dl_bandwidth":"20M","tac":"2A1C",)"
              R"("rsrp":"-90","rsrq":"-7","rssi":"-62","sinr":"24","srxlev":"37","rat":"LTE"}])");
}

TEST(QuectelServingCell, lte_bandwidth_codes_by_the_first_character) {
    const auto bandwidths = [](const std::string &codes) {
        return serving(R"("NOCONN","LTE","FDD",222,88,A,1,3350,7,)" + codes);
    };
    const std::string start = R"([{"type":"servingcell","state":"NOCONN","mode":"FDD","mcc":"222","mnc":"88",)"
                              R"("cellid":"A","pcid":"1","earfcn":"3350","band":"7","ul_bandwidth":")";
    const std::string end = R"(","rat":"LTE"}])";
    EXPECT_EQ(bandwidths("3,5"), start + R"(10M","dl_bandwidth":"20M)" + end);
    EXPECT_EQ(bandwidths("0,1"), start + R"(1.4M","dl_bandwidth":"3M)" + end);
    EXPECT_EQ(bandwidths("2,4"), start + R"(5M","dl_bandwidth":"15M)" + end);
    EXPECT_EQ(bandwidths("9,-"), start + R"(-","dl_bandwidth":"-)" + end);
    EXPECT_EQ(bandwidths(",25"), start + R"(-","dl_bandwidth":"5M)" + end);
}

TEST(QuectelServingCell, ec2x_wcdma) {
    EXPECT_EQ(recorded_serving("quectel-ec2x/qeng-servingcell--wcdma-noconn-310-nospace-table"),
              R"([{"type":"servingcell","state":"NOCONN","mcc":"310","mnc":"410","lac":"DEA6","cellid":"2A83C",)"
              R"("uarfcn":"4385","psc":"84","rac":"254","rscp":"-98","ecio":"-7","phych":"-","sf":"-","slot":"-",)"
              R"("speech_code":"-","commod":"-","rat":"WCDMA"}])");
}

TEST(QuectelServingCell, ec2x_wcdma_with_one_field_fewer_has_one_member_fewer) {
    EXPECT_EQ(recorded_serving("quectel-ec2x/qeng-servingcell--wcdma-noconn-dashes-from-psc"),
              R"([{"type":"servingcell","state":"NOCONN","mcc":"440","mnc":"20","lac":"0","cellid":"ABCDEFF",)"
              R"("uarfcn":"0","psc":"-","rac":"-","rscp":"-","ecio":"-","phych":"-","sf":"-","slot":"-",)"
              R"("speech_code":"-","commod":"-","rat":"WCDMA"}])");
}

TEST(QuectelServingCell, tdscdma) {
    EXPECT_EQ(serving(R"("NOCONN","TDSCDMA",460,00,1A,2B,10054,-60,-70,-5)"),
              R"([{"type":"servingcell","state":"NOCONN","mcc":"460","mnc":"00","lac":"1A","cellid":"2B",)"
              R"("pfreq":"10054","rssi":"-60","rscp":"-70","ecio":"-5","rat":"TDSCDMA"}])");
}

TEST(QuectelServingCell, cdma_and_hdr_keep_the_technology_as_sent) {
    const std::string cdma =
        R"([{"type":"servingcell","state":"NOCONN","mcc":"460","mnc":"03","lac":"1A","cellid":"2B",)"
        R"("bcch":"283","rxpwr":"-70","ecio":"-8","txpwr":"-20","rat":")";
    EXPECT_EQ(serving(R"("NOCONN","CDMA",460,03,1A,2B,283,-70,-8,-20)"), cdma + R"(CDMA"}])");
    EXPECT_EQ(serving(R"("NOCONN","CDMA 1X",460,03,1A,2B,283,-70,-8,-20)"), cdma + R"(CDMA 1X"}])");
    EXPECT_EQ(serving(R"("NOCONN","HDR",460,03,1A,2B,283,-70,-8,-20)"), cdma + R"(HDR"}])");
}

TEST(QuectelServingCell, hdr_anywhere_behind_makes_any_other_technology_an_hdr_cell) {
    EXPECT_EQ(serving("\"NOCONN\",\"GSM\",460,03,1A,2B,31,98,-,-63\r\n+QENG: \"servingcell\",\"NOCONN\",\"HDR\",460"),
              R"([{"type":"servingcell","state":"NOCONN","mcc":"460","mnc":"03","lac":"1A","cellid":"2B",)"
              R"("bcch":"31","rxpwr":"98","ecio":"-","txpwr":"-63","rat":"GSM"},)"
              R"({"type":"servingcell","state":"NOCONN","mcc":"460","rat":"HDR"}])");
    EXPECT_EQ(serving("\"NOCONN\",\"WCDMA\",460\r\n+QENG: \"servingcell\",\"NOCONN\",\"HDR\",460"),
              R"([{"type":"servingcell","state":"NOCONN","mcc":"460","rat":"WCDMA"},)"
              R"({"type":"servingcell","state":"NOCONN","mcc":"460","rat":"HDR"}])")
        << "what is asked for before HDR stays";
}

TEST(QuectelServingCell, ec2x_gsm_behind_an_echo) {
    EXPECT_EQ(recorded_serving("quectel-ec2x/qeng-servingcell--gsm-limsrv-semicolon-echo"),
              R"([{"type":"servingcell","state":"LIMSRV","mcc":"432","mnc":"11","lac":"5A7","cellid":"1F3C",)"
              R"("rxlev":"-63","rat":"GSM"}])");
}

TEST(QuectelServingCell, bg95_emtc_is_no_known_technology_and_has_the_common_members_without_rat) {
    EXPECT_EQ(recorded_serving("quectel-bg95/qeng-servingcell--emtc-noconn-5-digit-ci-1-digit-tac"),
              R"([{"type":"servingcell","state":"NOCONN","mcc":"FDD","mnc":"274","lac":"02","cellid":"4A15C"}])");
    EXPECT_EQ(recorded_serving("quectel-rg650v/qeng-servingcell--sa-fdd"),
              R"([{"type":"servingcell","state":"NOCONN","mcc":"FDD","mnc":"310","lac":"260","cellid":"1A7461035"}])");
}

TEST(QuectelServingCell, a_modem_that_searches_has_no_serving_cell) {
    EXPECT_EQ(recorded_serving("quectel-ec2x/qeng-servingcell--search"), "[]");
    EXPECT_EQ(recorded_serving("quectel-rm520n/qeng-servingcell--nsa-three-lines"), "[]");
}

TEST(QuectelServingCell, a_line_without_a_blank_behind_the_colon_is_not_read) {
    EXPECT_EQ(recorded_serving("quectel-ec2x/qeng-servingcell--manual-gsm-noconn-no-space"), "[]");
}

TEST(QuectelServingCell, a_record_that_is_cut_keeps_the_members_whose_fields_were_complete) {
    const std::string reply = R"(+QENG: "servingcell","NOCONN","LTE","FDD",222,88,4A1)";
    EXPECT_EQ(read(read_quectel_serving_cells, reply),
              R"([{"type":"servingcell","state":"NOCONN","mode":"FDD","mcc":"222","mnc":"88","rat":"LTE"}])");
    EXPECT_EQ(read(read_quectel_serving_cells, reply + "\r\n"),
              R"([{"type":"servingcell","state":"NOCONN","mode":"FDD","mcc":"222","mnc":"88","cellid":"4A1",)"
              R"("rat":"LTE"}])");
}

TEST(QuectelServingCell, the_technology_is_found_by_the_word_in_its_field) {
    EXPECT_EQ(serving(R"("CONNECT","FDD LTE","FDD",222)"),
              R"([{"type":"servingcell","state":"CONNECT","mode":"FDD","mcc":"222","rat":"LTE"}])");
    EXPECT_EQ(serving(R"("CONNECT",LTE)"), R"([{"type":"servingcell","state":"CONNECT","rat":"LTE"}])");
}

TEST(QuectelServingCell, a_record_without_a_technology_adds_nothing_to_its_object) {
    const Json cell(json_object_new_object());
    EXPECT_EQ(read_quectel_serving_cell("\"servingcell\",\"SEARCH\"\r\n", cell.get()), -1);
    EXPECT_EQ(plain_json(cell.get()), "{}");
    EXPECT_EQ(read_quectel_serving_cell("\"servingcell\",\"NOCONN\",\"LTE\",\"FDD\"\r\n", cell.get()), 0);
    EXPECT_EQ(plain_json(cell.get()), R"({"type":"servingcell","state":"NOCONN","mode":"FDD","rat":"LTE"})");
}

TEST(QuectelLteBand, of_the_first_lte_cell) {
    EXPECT_EQ(read_quectel_lte_band(recorded_reply("quectel-ec20/qeng-servingcell--lte-tdd-noconn").c_str()), 40);
    EXPECT_EQ(read_quectel_lte_band(recorded_reply("quectel-ep06/qnwinfo-qeng-qspn--chained-echo").c_str()), 7);
    EXPECT_EQ(read_quectel_lte_band("+QENG: \"servingcell\",\"SEARCH\"\r\n"
                                    "+QENG: \"servingcell\",\"NOCONN\",\"GSM\",460,01,5504,2B55,52,123,8,-67\r\n"
                                    "+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",1,2,3,4,5,20,3,3\r\n"
                                    "+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",1,2,3,4,5,28,3,3\r\n"),
              20);
}

TEST(QuectelLteBand, none_without_an_lte_cell_or_without_its_band) {
    for (const char *name : {"quectel-ec2x/qeng-servingcell--search", "quectel-ec2x/qeng-servingcell--wcdma-noconn-440",
                             "quectel-bg96/qeng-servingcell--cat-m-connect"}) {
        EXPECT_EQ(read_quectel_lte_band(recorded_reply(name).c_str()), 0) << name;
    }
    EXPECT_EQ(read_quectel_lte_band(""), 0);
    EXPECT_EQ(read_quectel_lte_band("+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",1,2\r\n"
                                    "+QENG: \"servingcell\",\"NOCONN\",\"LTE\",\"FDD\",1,2,3,4,5,28,3,3\r\n"),
              0);
}

// --- Neighbour cells ---

TEST(QuectelNeighbourCells, ec25_lte_intra_and_inter) {
    EXPECT_EQ(
        read(read_quectel_neighbour_cells, recorded_reply("quectel-ec25/qeng-neighbourcell--lte-intra-inter-dashes")),
        R"([{"type":"neighbourcell","earfcn":"1250","cellid|pcid":"193","rat":"LTE"},)"
        R"({"type":"neighbourcell","earfcn":"1250","cellid|pcid":"396","rat":"LTE"},)"
        R"({"type":"neighbourcell","earfcn":"1551","cellid|pcid":"193","rat":"LTE"},)"
        R"({"type":"neighbourcell","earfcn":"1551","cellid|pcid":"396","rat":"LTE"},)"
        R"({"type":"neighbourcell","earfcn":"1551","cellid|pcid":"378","rat":"LTE"},)"
        R"({"type":"neighbourcell","earfcn":"1551","cellid|pcid":"178","rat":"LTE"}])");
}

TEST(QuectelNeighbourCells, each_technology_has_its_members) {
    EXPECT_EQ(neighbours(R"(+QENG: "neighbourcell","LTE",1250,193,-9)"),
              R"([{"type":"neighbourcell","earfcn":"1250","cellid|pcid":"193","rat":"LTE"}])");
    EXPECT_EQ(neighbours(R"(+QENG: "neighbourcell","WCDMA",10736,58,-78)"),
              R"([{"type":"neighbourcell","uarfcn":"10736","rat":"WCDMA"}])");
    EXPECT_EQ(neighbours(R"(+QENG: "neighbourcell","GSM",460,01)"), R"([{"type":"neighbourcell","rat":"GSM"}])");
    EXPECT_EQ(neighbours(R"(+QENG: "neighbourcell","TDSCDMA",460)"), R"([{"type":"neighbourcell"}])");
    EXPECT_EQ(neighbours(R"(+QENG: "neighbourcell")"), R"([{"type":"neighbourcell"}])");
}

TEST(QuectelNeighbourCells, a_later_technology_decides_an_earlier_line) {
    EXPECT_EQ(neighbours("+QENG: \"neighbourcell\",\"GSM\",460,01,5504\r\n"
                         "+QENG: \"neighbourcell\",\"WCDMA\",10736,58\r\n"
                         "+QENG: \"neighbourcell\",\"LTE\",1250,193\r\n"
                         "+QENG: \"neighbourcell\",\"GSM\",461,01"),
              R"([{"type":"neighbourcell","earfcn":"460","cellid|pcid":"01","rat":"LTE"},)"
              R"({"type":"neighbourcell","earfcn":"10736","cellid|pcid":"58","rat":"LTE"},)"
              R"({"type":"neighbourcell","earfcn":"1250","cellid|pcid":"193","rat":"LTE"},)"
              R"({"type":"neighbourcell","rat":"GSM"}])");
    EXPECT_EQ(neighbours("+QENG: \"neighbourcell\",\"GSM\",460\r\n+QENG: \"neighbourcell\",\"WCDMA\",10736"),
              R"([{"type":"neighbourcell","uarfcn":"460","rat":"WCDMA"},)"
              R"({"type":"neighbourcell","uarfcn":"10736","rat":"WCDMA"}])");
}

TEST(QuectelNeighbourCells, the_rat_is_there_where_the_fields_are_not) {
    EXPECT_EQ(neighbours(R"(+QENG: "neighbourcell","LTE",1250)"),
              R"([{"type":"neighbourcell","earfcn":"1250","rat":"LTE"}])");
    EXPECT_EQ(neighbours(R"(+QENG: "neighbourcell","LTE")"), R"([{"type":"neighbourcell","rat":"LTE"}])");
}

TEST(QuectelNeighbourCells, none) {
    EXPECT_EQ(neighbours(""), "[]");
    EXPECT_EQ(read(read_quectel_neighbour_cells, "AT+QENG=\"neighbourcell\"\r\r\nOK\r\n"), "[]");
}

TEST(QuectelCellInfo, without_a_modem_there_are_no_cells_and_no_failure) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    const Json cells(json_object_new_array());
    EXPECT_EQ(quectel_cell_info(model, cells.get()), 0);
    EXPECT_EQ(plain_json(cells.get()), "[]");
    EXPECT_EQ(quectel_check_cat6(model), 0);
}

} // namespace
