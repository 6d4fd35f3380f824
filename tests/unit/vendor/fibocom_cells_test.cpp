// Cells of Fibocom modems, and the generation in use, from their replies.
#include "vendor/fibocom_cells.h"

#include <string>

#include <gtest/gtest.h>

#include "support/json_text.h"
#include "support/replies.h"

namespace {

std::string cells(const std::string &reply, const std::string &csq = "") {
    const Json read(json_object_new_array());
    read_fibocom_cells(reply, csq, read.get());
    return plain_json(read.get());
}

std::string serving_reply(const std::string &line) {
    return "\r\n+GTCCINFO:\r\nLTE service cell:\r\n" + line + "\r\n\r\nOK\r\n";
}

std::string serving(const std::string &line, const std::string &csq = "") {
    return cells(serving_reply(line), csq);
}

// The neighbours below the heading, and what follows them.
std::string neighbours(const std::string &lines) {
    return cells("\r\n+GTCCINFO:\r\nLTE neighbor cell:\r\n" + lines);
}

std::string with_csq(const std::string &values) {
    return serving("1\r\n", "\r\n+CSQ: " + values + "\r\n\r\nOK\r\n");
}

constexpr const char *LINE = "1,4,222,01,2A1C,2FC001,1350,301,103,100,12,51,61,23";
constexpr const char *NL678E_CELL =
    R"({"IsServiceCell":"1","rat":"4","mcc":"222","mnc":"01","tac":"2A1C","cellid":"2FC001","earfcn":"1350",)"
    R"("physicalcellId":"301","band":"3","bandwidth":"100","rssnr_value":"12","rxlev":"51","rsrp":"61","rsrq":"23")";

// --- Serving cell ---

TEST(FibocomServingCell, nl678e) {
    EXPECT_EQ(serving(LINE), "[" + std::string(NL678E_CELL) + "}]");
    EXPECT_EQ(cells("AT+GTCCINFO?\r" + serving_reply(LINE)), "[" + std::string(NL678E_CELL) + "}]") << "with an echo";
}

TEST(FibocomServingCell, rssi_comes_last_and_from_csq) {
    EXPECT_EQ(serving(LINE, "\r\n+CSQ: 22,99\r\n\r\nOK\r\n"), "[" + std::string(NL678E_CELL) + R"(,"rssi":"-69"}])");
    EXPECT_EQ(serving(LINE, "AT+CSQ?\r\r\n+CSQ: 22,99\r\n\r\nOK\r\n"),
              "[" + std::string(NL678E_CELL) + R"(,"rssi":"-69"}])");
    EXPECT_EQ(with_csq("31,99"), R"([{"IsServiceCell":"1","rssi":"-51"}])");
    EXPECT_EQ(with_csq("0,99"), R"([{"IsServiceCell":"1","rssi":"-113"}])");
    EXPECT_EQ(with_csq("99,99"), R"([{"IsServiceCell":"1","rssi":"85"}])");
    EXPECT_EQ(with_csq("9999999999,99"), R"([{"IsServiceCell":"1","rssi":"4294967181"}])");
}

TEST(FibocomServingCell, without_a_csq_value_there_is_no_rssi) {
    EXPECT_EQ(with_csq(",99"), R"([{"IsServiceCell":"1"}])");
    EXPECT_EQ(with_csq(""), R"([{"IsServiceCell":"1"}])");
    EXPECT_EQ(serving("1\r\n", "\r\nOK\r\n"), R"([{"IsServiceCell":"1"}])");
    EXPECT_EQ(serving("1\r\n", "+CSQ:"), R"([{"IsServiceCell":"1"}])");
}

TEST(FibocomServingCell, a_csq_value_without_a_serving_cell_is_shown_nowhere) {
    EXPECT_EQ(cells("\r\n+GTCCINFO:\r\n\r\nOK\r\n", "\r\n+CSQ: 22,99\r\n\r\nOK\r\n"), "[]");
    EXPECT_EQ(cells("LTE neighbor cell:\r\n2,4\r\nOK\r\n", "\r\n+CSQ: 22,99\r\n\r\nOK\r\n"),
              R"([{"IsServiceCell":"2","rat":"4"}])");
}

TEST(FibocomServingCell, an_empty_value_is_left_out_and_those_behind_it_keep_their_keys) {
    EXPECT_EQ(serving("1,4,222,01,2A1C,2FC001,1350,301,103,100,,51,61,23"),
              R"([{"IsServiceCell":"1","rat":"4","mcc":"222","mnc":"01","tac":"2A1C","cellid":"2FC001",)"
              R"("earfcn":"1350","physicalcellId":"301","band":"3","bandwidth":"100","rxlev":"51","rsrp":"61",)"
              R"("rsrq":"23"}])");
    EXPECT_EQ(serving(",,,,,,,,,,,,,"), "[{}]");
    EXPECT_EQ(serving(",4,,01,,2FC001,,301,,100,,51,,23"),
              R"([{"rat":"4","mnc":"01","cellid":"2FC001","physicalcellId":"301","bandwidth":"100","rxlev":"51",)"
              R"("rsrq":"23"}])");
}

TEST(FibocomServingCell, band_codes_of_ten_bands_become_their_numbers) {
    for (const auto &[code, band] : {std::pair{"101", "1"},
                                     {"103", "3"},
                                     {"105", "5"},
                                     {"107", "7"},
                                     {"108", "8"},
                                     {"120", "20"},
                                     {"128", "28"},
                                     {"132", "32"},
                                     {"140", "40"},
                                     {"141", "41"}}) {
        EXPECT_EQ(serving(",,,,,,,," + std::string(code)), R"([{"band":")" + std::string(band) + R"("}])");
    }
}

TEST(FibocomServingCell, any_other_band_code_is_shown_as_it_is) {
    for (const char *code : {"166", "102", "104", "138", "100", "1", "3", "40", "0103", "103 ", " 103", "1033", "50258",
                             "1025", "x", "123456789012345"}) {
        EXPECT_EQ(serving(",,,,,,,," + std::string(code)), R"([{"band":")" + std::string(code) + R"("}])");
    }
}

TEST(FibocomServingCell, values_are_cut_to_15_characters) {
    EXPECT_EQ(serving("1,1234567890123456789,222"), R"([{"IsServiceCell":"1","rat":"123456789012345","mcc":"222"}])");
    EXPECT_EQ(serving(",,,,,,,,103456789012345678"), R"([{"band":"103456789012345"}])");
    EXPECT_EQ(serving(std::string(5000, '7') + ",4"), R"([{"IsServiceCell":"777777777777777","rat":"4"}])");
}

TEST(FibocomServingCell, a_line_with_too_few_values_goes_on_in_what_follows_it) {
    EXPECT_EQ(serving("1,4,222"), R"([{"IsServiceCell":"1","rat":"4","mcc":"222"}])")
        << "without a comma, nothing does";
    EXPECT_EQ(cells("LTE service cell:\r\n1,4,222\r\n\r\nLTE neighbor cell:\r\n2,5,333,02\r\n\r\nOK\r\n"),
              R"([{"IsServiceCell":"1","rat":"4","mcc":"222","mnc":"5","tac":"333","cellid":"02"},)"
              R"({"IsServiceCell":"2","rat":"5","mcc":"333","mnc":"02"}])");
    EXPECT_EQ(cells("LTE service cell:\r\n\r\nLTE neighbor cell:\r\n2,5,333\r\n\r\nOK\r\n"),
              R"([{"rat":"5","mcc":"333"},{"IsServiceCell":"2","rat":"5","mcc":"333"}])");
}

TEST(FibocomServingCell, a_heading_with_the_end_of_the_reply_below_it) {
    EXPECT_EQ(cells("\r\nLTE service cell:\r\nOK\r\n"), R"([{"IsServiceCell":"OK"}])");
    EXPECT_EQ(cells("\r\nLTE service cell:\r\n\r\nOK\r\n"), "[{}]");
}

TEST(FibocomServingCell, a_reply_that_ends_at_the_heading_has_a_cell_without_members) {
    const std::string reply = "OK\r\nLTE service cell:\r\n";
    for (size_t length = 0; length <= reply.size(); length++) {
        EXPECT_EQ(cells(reply.substr(0, length)), length < 21 ? "[]" : "[{}]") << length;
    }
}

TEST(FibocomServingCell, line_ends_of_a_line_feed_alone_cost_the_first_character) {
    EXPECT_EQ(cells("LTE service cell:\n1,4,222\nOK\n"), R"([{"rat":"4","mcc":"222\nOK\n"}])");
    EXPECT_EQ(cells("LTE service cell:\n1,4,222\n\nLTE neighbor cell:\n2,4,333\nOK\n"),
              R"([{"rat":"4","mcc":"222\n\nLTE neighb","mnc":"4","tac":"333\nOK\n"},{"rat":"4","mcc":"333"}])");
}

TEST(FibocomServingCell, the_first_heading_counts) {
    EXPECT_EQ(cells("LTE service cell:\r\n1,4\r\n\r\nLTE service cell:\r\n9,9,9\r\n\r\nOK\r\n"),
              R"([{"IsServiceCell":"1","rat":"4","mcc":"9","mnc":"9"}])");
}

TEST(FibocomServingCell, other_technologies_have_other_headings_and_are_not_read) {
    for (const char *name :
         {"fibocom-generic/gtccinfo--endc-two-rows-rat-12", "fibocom-generic/gtccinfo--nr-service-and-neighbor",
          "fibocom-generic/gtccinfo--umts-no-blank-line-between-sections", "fibocom-fm350/gtccinfo--empty",
          "fibocom-fm350/gtccinfo-gtcainfo--lte-ca-chained"}) {
        EXPECT_EQ(cells(recorded_reply(name)), "[]") << name;
        EXPECT_EQ(read_fibocom_mode(recorded_reply(name)), nullptr) << name;
    }
}

TEST(FibocomServingCell, recorded_with_a_plain_band) {
    EXPECT_EQ(cells(recorded_reply("fibocom-generic/gtccinfo--lte-tdd-b40-plain-band")),
              R"([{"IsServiceCell":"1","rat":"4","mcc":"460","mnc":"00","tac":"2A7E","cellid":"5A23D8D",)"
              R"("earfcn":"9826","physicalcellId":"43","band":"40","bandwidth":"5","rssnr_value":"28","rxlev":"58",)"
              R"("rsrp":"58","rsrq":"23"}])");
}

TEST(FibocomServingCell, what_leaves_the_program_parses_whatever_the_modem_sent) {
    const Json read(json_object_new_array());
    read_fibocom_cells(
        serving_reply("\xff\xfe,\x01\x1b[0m,\"\\,\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4"), "",
        read.get());
    EXPECT_EQ(plain_json(read.get()),
              "[{\"IsServiceCell\":\"\xEF\xBF\xBD\xEF\xBF\xBD\",\"rat\":\"\\u0001\\u001b[0m\","
              "\"mcc\":\"\\\"\\\\\",\"mnc\":\"\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4\xc3\xa4"
              "\xEF\xBF\xBD\"}]");
}

// --- Neighbour cells ---

TEST(FibocomNeighbourCells, recorded_with_two) {
    EXPECT_EQ(cells(recorded_reply("fibocom-generic/gtccinfo--lte-service-two-neighbors"), "+CSQ: 15,6\r\n"),
              R"([{"IsServiceCell":"1","rat":"4","mcc":"551","mnc":"01","tac":"1","cellid":"2FC001","earfcn":"46410",)"
              R"("physicalcellId":"1","band":"1025","bandwidth":"100","rssnr_value":"109","rxlev":"112",)"
              R"("rsrp":"112","rsrq":"64","rssi":"-83"},)"
              R"({"IsServiceCell":"2","rat":"4","mcc":"551","mnc":"02","tac":"1","cellid":"2FC999","earfcn":"46411",)"
              R"("physicalcellId":"1","bandwidth":"101","rxlev":"110","rsrp":"113","rsrq":"65"},)"
              R"({"IsServiceCell":"2","rat":"4","mcc":"551","mnc":"01","tac":"1","cellid":"2FC555","earfcn":"46410",)"
              R"("physicalcellId":"1","bandwidth":"102","rxlev":"107","rsrp":"111","rsrq":"62"}])");
}

TEST(FibocomNeighbourCells, the_eighth_value_is_the_bandwidth_and_no_band) {
    EXPECT_EQ(neighbours(",,,,,,,,103,44,53,15,99,98\r\n\r\nOK\r\n"),
              R"([{"bandwidth":"103","rxlev":"44","rsrp":"53","rsrq":"15"}])");
}

TEST(FibocomNeighbourCells, a_line_that_begins_with_ok_ends_the_list) {
    EXPECT_EQ(neighbours("2,4\r\n2,5\r\nOK\r\n2,6\r\n"),
              R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":"2","rat":"5"}])");
    EXPECT_EQ(neighbours("2,4\r\nOK,5\r\n2,6\r\n"), R"([{"IsServiceCell":"2","rat":"4"}])");
    EXPECT_EQ(neighbours("OK\r\n2,6\r\n"), "[]");
    EXPECT_EQ(neighbours("2,4\r\n OK\r\n2,OK\r\n"),
              R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":" OK"},{"IsServiceCell":"2","rat":"OK"}])");
}

TEST(FibocomNeighbourCells, without_ok_the_list_ends_with_the_reply) {
    EXPECT_EQ(neighbours("2,4\r\n2,5\r\n"), R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":"2","rat":"5"}])");
    EXPECT_EQ(neighbours("2,4\r\n2,5"), R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":"2","rat":"5"}])");
    EXPECT_EQ(neighbours(""), "[]");
}

TEST(FibocomNeighbourCells, a_line_with_too_few_values_takes_none_from_the_next) {
    EXPECT_EQ(neighbours("2,4\r\n3,5,333,02\r\n\r\nOK\r\n"),
              R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":"3","rat":"5","mcc":"333","mnc":"02"}])");
    EXPECT_EQ(neighbours("2\r\n,\r\n3,\r\n\r\nOK\r\n"), R"([{"IsServiceCell":"2"},{},{"IsServiceCell":"3"}])");
}

TEST(FibocomNeighbourCells, empty_lines_are_passed_over) {
    EXPECT_EQ(neighbours("\r\n\r\n2,4\r\n\r\n\r\n2,5\r\n\n\rOK\r\n"),
              R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":"2","rat":"5"}])");
}

TEST(FibocomNeighbourCells, a_further_heading_is_passed_over) {
    EXPECT_EQ(neighbours("2,4\r\nLTE neighbor cell:\r\n2,5\r\nLTE neighbor cell: 3\r\n2,6\r\nOK\r\n"),
              R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":"2","rat":"5"},{"IsServiceCell":"2","rat":"6"}])");
}

TEST(FibocomNeighbourCells, any_other_line_is_a_cell) {
    EXPECT_EQ(neighbours("2,4\r\n\r\nWCDMA neighbor cell:\r\n2,2,222\r\n\r\nOK\r\n"),
              R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":"WCDMA neighbor "},)"
              R"({"IsServiceCell":"2","rat":"2","mcc":"222"}])");
    EXPECT_EQ(neighbours("2,4\r\n+CREG: 1\r\nOK\r\n"),
              R"([{"IsServiceCell":"2","rat":"4"},{"IsServiceCell":"+CREG: 1"}])");
}

TEST(FibocomNeighbourCells, a_section_that_stands_first_takes_the_serving_cell_for_a_neighbour) {
    EXPECT_EQ(cells("LTE neighbor cell:\r\n2,4\r\nLTE service cell:\r\n1,4\r\n\r\nOK\r\n"),
              R"([{"IsServiceCell":"1","rat":"4"},{"IsServiceCell":"2","rat":"4"},)"
              R"({"IsServiceCell":"LTE service cel"},{"IsServiceCell":"1","rat":"4"}])");
}

TEST(FibocomNeighbourCells, sections_without_a_blank_line_between_them) {
    EXPECT_EQ(cells("LTE service cell:\r\n" + std::string(LINE) + "\r\nLTE neighbor cell:\r\n2,4\r\nOK\r\n"),
              "[" + std::string(NL678E_CELL) + R"(},{"IsServiceCell":"2","rat":"4"}])");
}

TEST(FibocomNeighbourCells, line_ends_of_a_line_feed_alone_cost_the_first_character) {
    EXPECT_EQ(cells("LTE neighbor cell:\n2,4,222\n3,5,333\nOK\n"),
              R"([{"rat":"4","mcc":"222"},{"IsServiceCell":"3","rat":"5","mcc":"333"}])");
}

TEST(FibocomNeighbourCells, a_reply_that_ends_at_the_heading_has_none) {
    const std::string reply = "OK\r\nLTE neighbor cell:\r\n";
    for (size_t length = 0; length <= reply.size(); length++) {
        EXPECT_EQ(cells(reply.substr(0, length)), "[]") << length;
    }
}

TEST(FibocomNeighbourCells, thousands) {
    constexpr size_t COUNT = 20000;
    std::string lines;
    for (size_t i = 0; i < COUNT; i++) {
        lines += "2,4,222,01,2A1C," + std::to_string(i) + "\r\n";
    }
    const Json read(json_object_new_array());
    read_fibocom_cells(serving_reply(LINE) + "LTE neighbor cell:\r\n" + lines + "\r\nOK\r\n", "", read.get());
    ASSERT_EQ(json_object_array_length(read.get()), COUNT + 1);
    for (const size_t i : {size_t{0}, size_t{9999}, COUNT - 1}) {
        EXPECT_EQ(plain_json(json_object_array_get_idx(read.get(), i + 1)),
                  R"({"IsServiceCell":"2","rat":"4","mcc":"222","mnc":"01","tac":"2A1C","cellid":")" +
                      std::to_string(i) + R"("})");
    }
}

TEST(FibocomCellInfo, without_a_modem_there_are_no_cells) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    const Json read(json_object_new_array());
    EXPECT_EQ(fibocom_cell_info(model, read.get()), 0);
    EXPECT_EQ(plain_json(read.get()), "[]");
}

// --- Generation ---

TEST(FibocomMode, by_the_technology_of_the_serving_cell) {
    for (const auto &[technology, mode] : {std::pair{"1", "2G"}, {"2", "3G"}, {"3", "3G"}, {"4", "4G"}}) {
        EXPECT_STREQ(read_fibocom_mode(serving_reply("1," + std::string(technology) + ",222,01")), mode);
        EXPECT_STREQ(read_fibocom_mode(serving_reply("1," + std::string(technology))), mode) << "as the last value";
        EXPECT_STREQ(read_fibocom_mode(serving_reply("," + std::string(technology) + ",")), mode);
    }
    EXPECT_STREQ(read_fibocom_mode(recorded_reply("fibocom-generic/gtccinfo--lte-tdd-b40-plain-band")), "4G");
    EXPECT_STREQ(read_fibocom_mode(recorded_reply("fibocom-generic/gtccinfo--lte-service-two-neighbors")), "4G");
}

TEST(FibocomMode, other_technologies_tell_none) {
    for (const char *technology : {"0", "5", "9", "11", "12", "14", "41", "04", " 4", "4 ", "-4", "x", "", "\"4\""}) {
        EXPECT_EQ(read_fibocom_mode(serving_reply("1," + std::string(technology) + ",222")), nullptr) << technology;
    }
}

TEST(FibocomMode, without_a_serving_cell_there_is_none) {
    for (const char *reply : {"", "\r\nOK\r\n", "\r\n+GTCCINFO:\r\n1,4,222\r\n\r\nOK\r\n", "LTE service cell",
                              "LTE service cell:", "LTE service cell:\r\n", "LTE service cell:\r\n1,",
                              "LTE neighbor cell:\r\n2,4,222\r\n\r\nOK\r\n"}) {
        EXPECT_EQ(read_fibocom_mode(reply), nullptr) << reply;
    }
}

TEST(FibocomMode, a_line_without_a_technology_goes_on_in_what_follows_it) {
    EXPECT_STREQ(read_fibocom_mode("LTE service cell:\r\n\r\nLTE neighbor cell:\r\n2,4,222\r\n\r\nOK\r\n"), "4G");
}

} // namespace
