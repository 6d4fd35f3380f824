// Registration, SIM and carrier aggregation of Sierra Wireless modems from their replies.
#include "modem/modem_core/registration.h"
#include "vendor/sierra_registration.h"

#include <string>

#include <gtest/gtest.h>

#include "support/replies.h"
#include "support/sierra_blocks.h"

namespace {

using namespace sierra_blocks;

// --- Registration ---

bool registered(const std::string &line) {
    return is_registered(("AT+CREG?\r\r\n" + line + "\r\n\r\nOK\r\n").c_str());
}

TEST(SierraRegistered, at_home_or_roaming) {
    EXPECT_TRUE(registered("+CREG: 0,1"));
    EXPECT_TRUE(registered("+CREG: 0,5"));
    EXPECT_TRUE(registered("+CREG: 2,1"));
    EXPECT_TRUE(is_registered(recorded_reply("quectel-eg25/creg--echo-0-1-split-read").c_str()));
}

TEST(SierraRegistered, other_states) {
    for (const char *line :
         {"+CREG: 0,0", "+CREG: 0,2", "+CREG: 0,3", "+CREG: 0,4", "+CREG: 0,6", "+CREG: 0,11", "+CREG: 0,15",
          "+CREG: 0,51", "+CREG: 0,5 ", "+CREG: 1", "+CREG: 5", "+CREG: 0, 1", "+CREG: 0,1 ", ""}) {
        EXPECT_FALSE(registered(line)) << line;
    }
    EXPECT_FALSE(is_registered(""));
}

TEST(SierraRegistered, the_carriage_return_is_needed) {
    EXPECT_FALSE(is_registered("\n+CREG: 0,1\n\nOK\n"));
    EXPECT_FALSE(is_registered("\r\n+CREG: 0,1"));
    EXPECT_TRUE(is_registered("\r\n+CREG: 0,1\r"));
}

TEST(SierraRegistered, what_counts_is_the_last_field_of_a_line) {
    EXPECT_FALSE(registered(R"(+CREG: 2,1,"7B21","0A1B2C3D",7)"));
    EXPECT_TRUE(registered(R"(+CREG: 2,2,"7B21","0A1B2C3D",5)"));
    EXPECT_FALSE(is_registered(recorded_reply("quectel-ep06/cgreg--2-1-quoted-hex").c_str()));
}

// --- SIM ---

int sim(const std::string &line) {
    return read_sierra_sim_state(("AT+CPIN?\r\r\n" + line + "\r\n\r\nOK\r\n").c_str());
}

TEST(SierraSim, ready) {
    EXPECT_EQ(read_sierra_sim_state(recorded_reply("sierra-em7455/cpin--ready").c_str()), 0);
    EXPECT_EQ(sim("+CPIN: READY"), 0);
}

TEST(SierraSim, no_sim_is_an_error_of_any_form) {
    EXPECT_EQ(read_sierra_sim_state("AT+CPIN?\r\r\nERROR\r\n"), -1);
    EXPECT_EQ(read_sierra_sim_state("\r\n+CME ERROR: 10\r\n"), -1);
    EXPECT_EQ(read_sierra_sim_state("\r\n+CME ERROR: SIM not inserted\r\n"), -1);
    EXPECT_EQ(read_sierra_sim_state("ERROR"), -1);
    EXPECT_EQ(read_sierra_sim_state(recorded_reply("quectel-ec21/cpin--cme-error-10").c_str()), -1);
    EXPECT_EQ(read_sierra_sim_state(recorded_reply("quectel-ec200u/cpin--cme-text-not-inserted").c_str()), -1);
}

TEST(SierraSim, an_error_comes_before_a_request_for_the_pin) {
    EXPECT_EQ(read_sierra_sim_state("\r\n+CPIN: SIM PIN\r\n\r\n+CME ERROR: SIM PIN\r\n"), -1);
    EXPECT_EQ(sim("+CPIN: SIM PIN\r\nERROR"), -1);
}

TEST(SierraSim, requests_for_the_pin) {
    EXPECT_EQ(sim("+CPIN: SIM PIN"), -2);
    EXPECT_EQ(sim("+CPIN: PH-SIM PIN"), -2);
    EXPECT_EQ(sim("PIN"), -2);
    EXPECT_EQ(read_sierra_sim_state("\r\n+CPIN: SIM PIN\r"), -2) << "an OK is not asked for";
}

TEST(SierraSim, other_requests_do_not_count) {
    for (const char *line : {"+CPIN: SIM PUK", "+CPIN: SIM PIN2", "+CPIN: SIM PUK2", "+CPIN: NOT READY",
                             "+CPIN: sim pin", "+CPIN: SIM PIN ", "+CPIN: ", ""}) {
        EXPECT_EQ(sim(line), 0) << line;
    }
    EXPECT_EQ(read_sierra_sim_state("\n+CPIN: SIM PIN\n\nOK\n"), 0) << "without a carriage return";
    EXPECT_EQ(read_sierra_sim_state("\r\n+CPIN: SIM PIN"), 0) << "cut before it";
    EXPECT_EQ(read_sierra_sim_state("AT+CPIN?\r\r\nOK\r\n"), 0) << "the echo is none";
    EXPECT_EQ(read_sierra_sim_state(""), 0);
}

// --- Carrier aggregation ---

bool aggregated(const std::string &rest_of_line) {
    return is_sierra_aggregated(block("System mode:   LTE\nLTE CA state:" + rest_of_line + "\nSINR (dB):  5").c_str());
}

TEST(SierraAggregated, em7455) {
    for (const auto &[name, active] : {std::pair{"gstatus--lte-ca-active-tabs", true},
                                       {"gstatus--lte-ca-active-blank-aligned", true},
                                       {"gstatus--lte-idle-tx-power-dashes-echo", false},
                                       {"gstatus--dw5811e-negative-sinr-echo", false},
                                       {"gstatus--lte-b25-ends-after-rssi", false},
                                       {"gstatus--wcdma-deep-sleep-no-service", false}}) {
        EXPECT_EQ(is_sierra_aggregated(recorded_reply("sierra-em7455/" + std::string(name)).c_str()), active) << name;
    }
}

TEST(SierraAggregated, modems_without_the_line) {
    for (const char *name :
         {"sierra-em7565/gstatus--b66-idle-lowercase-hex", "sierra-mc7455/gstatus--low-power-mode-short",
          "sierra-em9191/gstatus--endc-lte-scc-inactive-cut"}) {
        EXPECT_FALSE(is_sierra_aggregated(recorded_reply(name).c_str())) << name;
    }
    EXPECT_FALSE(is_sierra_aggregated(""));
}

TEST(SierraAggregated, not_assigned_is_the_one_word_for_no) {
    for (const char *value : {"NOT ASSIGNED", "  NOT ASSIGNED", "  NOT ASSIGNED  \t\tLTE Scell band:B12",
                              "  NOT ASSIGNED    LTE Scell band:B12", "xNOT ASSIGNEDx"}) {
        EXPECT_FALSE(aggregated(value)) << value;
    }
    EXPECT_TRUE(is_sierra_aggregated(recorded_reply("sierra-wp76xx/gstatus--mitigate-levels-ims-first").c_str()))
        << "INACTIVE";
    for (const char *value : {"  ACTIVE", "  INACTIVE", "ACTIVE\tNOT ASSIGNED", "  not assigned", "  NOT  ASSIGNED",
                              "  ASSIGNED", "  NOT", "0"}) {
        EXPECT_TRUE(aggregated(value)) << value;
    }
}

TEST(SierraAggregated, an_empty_state) {
    EXPECT_FALSE(aggregated("")) << "nothing was read";
    EXPECT_FALSE(aggregated("\tACTIVE"));
    EXPECT_TRUE(aggregated("   ")) << "blanks are a state, and another one than NOT ASSIGNED";
    EXPECT_FALSE(is_sierra_aggregated("LTE CA state:"));
    EXPECT_TRUE(is_sierra_aggregated("LTE CA state: "));
}

TEST(SierraAggregated, the_state_is_cut_at_100_characters) {
    EXPECT_FALSE(aggregated(std::string(88, ' ') + "NOT ASSIGNED"));
    EXPECT_TRUE(aggregated(std::string(89, ' ') + "NOT ASSIGNED"));
}

// --- Asking ---

TEST(SierraChecks, without_a_modem_it_is_usable_and_not_aggregated) {
    ModemModel model = {};
    replace_modem_struct(&model, "9-9.9");
    char text[16] = "untouched";
    EXPECT_EQ(sierra_check_register(model), 0);
    EXPECT_EQ(sierra_check_simcard(model, text), 0);
    EXPECT_STREQ(text, "untouched");
    EXPECT_EQ(sierra_check_cat6(model), 0);
}

} // namespace
