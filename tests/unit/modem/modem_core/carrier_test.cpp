// Carrier, operator and APNs. Tests that need files have a /tmp and a /usr/share of their own.
#include "modem/modem_core/carrier.h"

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "modem/debug.h"
#include "modem/modem_core/identity.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/files.h"
#include "support/json_text.h"
#include "support/replies.h"
#include "vendor/apn_database.h"

namespace {

constexpr const char *BUS = "1-1.2";

struct Name {
    int result;
    std::string text;
    bool operator==(const Name &) const = default;
};
void PrintTo(const Name &name, std::ostream *out) {
    *out << name.result << " \"" << name.text << "\"";
}

Name operator_name(const std::string &reply, size_t size = 64) {
    std::vector<char> buffer(size);
    const int result = parse_operator_name(reply.c_str(), buffer);
    return {result, buffer.data()};
}

std::string cut(std::string text) {
    cut_carrier_name(text.data());
    return text.c_str();
}

ModemModel model_on_bus() {
    ModemModel model = {};
    replace_modem_struct(&model, BUS);
    return model;
}

void with_files(const std::string &imsi, const std::string &operators, const std::function<void()> &body) {
    in_child_with_empty({"/tmp", "/usr/share"}, [&] {
        std::filesystem::create_directory("/tmp/modem.1-1.2");
        write_file("/tmp/modem.1-1.2/cimi", imsi);
        std::filesystem::create_directory("/usr/share/modem");
        write_file("/usr/share/modem/operator.dat", operators);
        body();
    });
}

std::string carrier_report(int expected_result = 0) {
    const Json reply(json_object_new_object());
    EXPECT_EQ(modem_read_carrier(reply.get(), model_on_bus()), expected_result);
    return plain_json(reply.get());
}

TEST(OperatorName, recorded) {
    const std::pair<const char *, const char *> expected[] = {
        {"quectel-eg25/cops--echo-lte", "SGP-M1"},
        {"quectel-ec200u/cops--name-with-blank", "CHINA MOBILE"},
        {"simcom-sim7600/cops--name-act7", "T-Mobile EIOTCLUB"},
        {"simcom-sim7600/cops--numeric-act7", "310260"},
        {"simcom-sim5320/cops--manual-act2", "Telstra Mobile"},
        {"sierra-wp76xx/cops--operator-with-mvno", "3 UK Things Mobile"},
        {"zte-zm9000/cops--two-word-name-act-11", "CHINA MOBILE CMCC"},
    };
    for (const auto &[name, text] : expected) {
        EXPECT_EQ(operator_name(recorded_reply(name)), (Name{0, text})) << name;
    }
}

TEST(OperatorName, a_reply_with_only_the_mode_fails) {
    EXPECT_EQ(operator_name(recorded_reply("quectel-ec21/cops--bare-0")), (Name{-1, ""}));
    EXPECT_EQ(operator_name(recorded_reply("quectel-rg650v/cops--bare-5")), (Name{-1, ""}));
    EXPECT_EQ(operator_name(recorded_reply("quectel-eg25/cops--echo-no-operator-qind-after")), (Name{-1, ""}));
    EXPECT_EQ(operator_name(""), (Name{-1, ""}));
}

TEST(OperatorName, an_empty_name_fails) {
    EXPECT_EQ(operator_name("+COPS: 0,0,\"\",7\r\n\r\nOK\r\n"), (Name{-1, ""}));
    EXPECT_EQ(operator_name("+COPS: 0,0,\""), (Name{-1, ""}));
    EXPECT_EQ(operator_name("+COPS: 0,0,\"\r\nOK\r\n"), (Name{-1, ""}));
}

TEST(OperatorName, an_open_quote_ends_with_the_line) {
    EXPECT_EQ(operator_name("+COPS: 0,0,\"Voda\r\nOK\r\n"), (Name{0, "Voda"}));
    EXPECT_EQ(operator_name("+COPS: 0,0,\"Voda\nOK\r\n"), (Name{0, "Voda"}));
    EXPECT_EQ(operator_name("+COPS: 0,0,\"Voda"), (Name{0, "Voda"}));
}

TEST(OperatorName, a_name_longer_than_the_callers_buffer_is_cut) {
    EXPECT_EQ(operator_name("+COPS: 0,0,\"" + std::string(80, 'o') + "\",7\r\n"), (Name{0, std::string(63, 'o')}));
}

TEST(OperatorName, every_beginning_of_every_recorded_reply) {
    for (const RecordedReply &reply : recorded_replies()) {
        for (size_t length = 0; length <= reply.wire.size(); length++) {
            const Name name = operator_name(std::string(reply.wire, 0, length), 20);
            ASSERT_EQ(name.result, name.text.empty() ? -1 : 0) << reply.name;
        }
    }
}

TEST(CarrierName, one_line_feed_goes) {
    EXPECT_EQ(cut("Telekom.de\n"), "Telekom.de");
    EXPECT_EQ(cut("Telekom.de"), "Telekom.de");
    EXPECT_EQ(cut("Telekom.de\n\n"), "Telekom.de\n");
    EXPECT_EQ(cut("o\n"), "o");
}

TEST(CarrierName, a_line_feed_that_is_all_there_is_stays) {
    EXPECT_EQ(cut("\n"), "\n");
    EXPECT_EQ(cut(""), "");
}

TEST(CarrierName, sixteen_bytes_stay) {
    EXPECT_EQ(cut("Chunghwa Telecom\n"), "Chunghwa Telecom");
    EXPECT_EQ(cut("Chunghwa Telecom LDM\n"), "Chunghwa Telecom");
    EXPECT_EQ(cut("o2 - de\no2 - de Loop\n"), "o2 - de\no2 - de ");
}

TEST(Carrier, a_network_code_of_three_digits) {
    with_files("310260000000017\n", "26202,Vodafone.de\n310260,T-Mobile\n",
               [] { EXPECT_EQ(carrier_report(), R"({"mnc":"260","mcc":"310","carrier":"T-Mobile"})"); });
}

TEST(Carrier, a_network_code_of_two_digits_is_tried_second) {
    with_files("262011000000017\n", "26201,Telekom.de\n",
               [] { EXPECT_EQ(carrier_report(), R"({"mnc":"011","mcc":"262","carrier":"Telekom.de"})"); });
    with_files("262011000000017\n", "26201,Telekom.de\n262011,Other\n",
               [] { EXPECT_EQ(carrier_report(), R"({"mnc":"011","mcc":"262","carrier":"Other"})"); });
}

TEST(Carrier, a_network_that_is_not_listed_is_no_failure) {
    with_files("001010000000017\n", "26201,Telekom.de\n",
               [] { EXPECT_EQ(carrier_report(), R"({"mnc":"010","mcc":"001","carrier":""})"); });
}

TEST(Carrier, the_key_matches_anywhere_in_a_line_and_all_lines_count) {
    with_files("262030000000017\n", "1262030,A\nx,B,262030\n26203,o2 - de\n",
               [] { EXPECT_EQ(carrier_report(), R"({"mnc":"030","mcc":"262","carrier":"A\nB"})"); });
}

TEST(Carrier, odd_lines_of_the_list) {
    with_files("262020000000017\n", "262020,\n",
               [] { EXPECT_EQ(carrier_report(), R"({"mnc":"020","mcc":"262","carrier":"\n"})"); });
    with_files("262020000000017\n", "262020\n",
               [] { EXPECT_EQ(carrier_report(), R"({"mnc":"020","mcc":"262","carrier":"262020"})"); });
    // The 16 bytes end within a character.
    with_files("262020000000017\n", "262020,0123456789abcd\xe4\xb8\xad\n",
               [] { EXPECT_NE(carrier_report().find("abcd\xef\xbf\xbd"), std::string::npos); });
}

TEST(Carrier, without_an_imsi) {
    in_child_with_empty({"/tmp"}, [] { EXPECT_EQ(carrier_report(-1), R"({"carrier":""})"); });
}

TEST(Carrier, a_damaged_imsi_file_cannot_run_commands) {
    for (const char *imsi : {"26201;", "26201\n", "26201&", "26201`", "26201|", "26201'", "26201"}) {
        with_files(imsi, "26201,Telekom.de\n", [] {
            EXPECT_NE(carrier_report().find(R"("mcc":"262","carrier":"Telekom.de")"), std::string::npos);
            EXPECT_EQ(std::distance(std::filesystem::directory_iterator("/tmp"), {}), 1);
        });
    }
}

constexpr const char *DATABASE = R"({"apns":{"apn":[
    {"-mcc":"262","-mnc":"01","-apn":"internet.telekom"},
    {"-mcc":"262","-mnc":"02","-apn":"web.vodafone.de"},
    {"-mcc":"262","-mnc":"02","-apn":"event.vodafone.de"},
    {"-mcc":"310","-mnc":"260","-apn":"fast.t-mobile.com"},
    {"-mcc":"310","-mnc":"26","-apn":"never"}]}})";

struct Isp {
    int result;
    std::string apns;  // of the entries, each with a blank behind it
    std::string debug; // what the person at the command line sees
};

// Looks up what fits a SIM, whose IMSI stands in "cimi", in a database of this text. Runs in a child's /tmp.
Isp look_up(const std::string &imsi, const char *database) {
    std::filesystem::create_directory("/tmp/modem.1-1.2");
    write_file("/tmp/modem.1-1.2/cimi", imsi);
    json_object_put(isp_object);
    isp_object = json_tokener_parse(database);
    DEBUG = 1;
    const Json entries(json_object_new_array());
    Capture output(1);
    Isp isp = {modem_get_isp(model_on_bus(), entries.get()), "", output.text()};
    json_object_put(isp_object);
    isp_object = nullptr;
    for (size_t index = 0; index < json_object_array_length(entries.get()); index++) {
        json_object *apn = nullptr;
        json_object_object_get_ex(json_object_array_get_idx(entries.get(), index), "-apn", &apn);
        isp.apns += json_object_get_string(apn);
        isp.apns += " ";
    }
    return isp;
}

TEST(Isp, a_network_code_of_two_digits_is_tried_second) {
    in_child_with_empty({"/tmp"}, [] {
        const Isp isp = look_up("262011000000017", DATABASE);
        EXPECT_EQ(isp.result, 0);
        EXPECT_EQ(isp.apns, "internet.telekom ");
        EXPECT_EQ(isp.debug, "[ { \"-mcc\": \"262\", \"-mnc\": \"01\", \"-apn\": \"internet.telekom\" } ]\n");
    });
}

TEST(Isp, the_three_digits_stand_where_they_match) {
    in_child_with_empty({"/tmp"}, [] {
        const Isp isp = look_up("310260000000017", DATABASE);
        EXPECT_EQ(isp.result, 0);
        EXPECT_EQ(isp.apns, "fast.t-mobile.com ");
    });
}

TEST(Isp, all_entries_of_the_network_in_order) {
    in_child_with_empty(
        {"/tmp"}, [] { EXPECT_EQ(look_up("262020000000017", DATABASE).apns, "web.vodafone.de event.vodafone.de "); });
}

TEST(Isp, a_sim_that_needs_its_apn_does_not_look_into_the_database) {
    in_child_with_empty({"/tmp"}, [] {
        const Isp isp = look_up("311480000000017", R"({"apns":{"apn":[{"-mcc":"311","-mnc":"480","-apn":"other"}]}})");
        EXPECT_EQ(isp.result, 0);
        EXPECT_EQ(isp.apns, "vzwinternet ");
        EXPECT_EQ(isp.debug, "");
    });
}

TEST(Isp, no_entry_for_the_network) {
    in_child_with_empty({"/tmp"}, [] {
        const Isp isp = look_up("001010000000017", DATABASE);
        EXPECT_EQ(isp.result, -1);
        EXPECT_EQ(isp.apns, "");
        EXPECT_EQ(isp.debug, "get isp failed\n");
    });
}

TEST(Isp, no_imsi) {
    in_child_with_empty({"/tmp"}, [] {
        const Isp isp = look_up("", DATABASE);
        EXPECT_EQ(isp.result, -1);
        EXPECT_EQ(isp.debug, "get isp failed\n");
    });
}

TEST(Isp, no_database_or_another_than_expected_fails_silently) {
    for (const char *database : {"", "[]", "{}", R"({"apns":{}})", R"({"apns":[]})", R"({"apns":{"apn":{}}})", "7"}) {
        in_child_with_empty({"/tmp"}, [&] {
            const Isp isp = look_up("262020000000017", database);
            EXPECT_EQ(isp.result, -1) << database;
            EXPECT_EQ(isp.debug, "") << database;
        });
    }
}

} // namespace
