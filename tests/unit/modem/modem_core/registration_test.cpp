// SIM and registration: what replies say, and what keeps a modem from being used.
#include "modem/modem_core/registration.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "support/child.h"
#include "support/replies.h"

namespace {

// A result and the text that a zero-filled buffer then holds.
struct Said {
    int result;
    std::string text;
    bool operator==(const Said &) const = default;
};
void PrintTo(const Said &said, std::ostream *out) {
    *out << said.result << " \"" << said.text << "\"";
}

constexpr size_t SIM_TEXT_SIZE = 9;   // what read_sim_state asks for at least
constexpr size_t FAULT_TEXT_SIZE = 8; // and fault_analysis

// On the heap and of just that size, so that a write beyond it is seen.
Said sim_state(const std::string &reply) {
    std::vector<char> text(SIM_TEXT_SIZE);
    const int result = read_sim_state(reply.c_str(), text);
    EXPECT_EQ(text.back(), '\0');
    return {result, text.data()};
}

int registered(const std::string &reply) {
    return read_register_status(reply.c_str());
}

// Registration.

TEST(RegisterStatus, the_digit_after_the_first_comma) {
    EXPECT_EQ(registered("\r\n+CREG: 0,1\r\n\r\nOK\r\n"), 1);
    EXPECT_EQ(registered("\r\n+CREG: 2,5,\"1A2B\",\"1A2B3C4\",7\r\n\r\nOK\r\n"), 5);
}

TEST(RegisterStatus, every_digit) {
    for (int status = 0; status <= 9; status++) {
        EXPECT_EQ(registered("\r\n+CREG: 0," + std::to_string(status) + "\r\n\r\nOK\r\n"), status);
    }
}

TEST(RegisterStatus, of_a_longer_number_only_the_first_digit) {
    EXPECT_EQ(registered("\r\n+CREG: 0,10\r\n"), 1);
    EXPECT_EQ(registered("\r\n+CREG: 0," + std::string(100000, '9')), 9);
}

TEST(RegisterStatus, with_the_echo_of_the_command) {
    EXPECT_EQ(registered("AT+CREG?\r\r\n+CREG: 0,1\r\n\r\nOK\r\n"), 1);
    EXPECT_EQ(registered("AT,7\r\n+CREG: 0,1\r\n"), 1) << "what is before the first line break does not count";
}

TEST(RegisterStatus, a_comma_before_no_digit_is_passed_over) {
    EXPECT_EQ(registered("\r\n+CREG: 2,\"1A2B\",3\r\n"), 3);
    EXPECT_EQ(registered("\r\n+CREG: 2,,,4\r\n"), 4);
    EXPECT_EQ(registered("\r\n+CREG: 2, 1,5\r\n"), 5);
    EXPECT_EQ(registered("\r\n+CREG: 2,-1\r\n"), -1);
}

TEST(RegisterStatus, a_line_break_ends_the_search) {
    EXPECT_EQ(registered("\r\n+CREG: 0\r\n+CREG: 0,1\r\n"), -1);
    EXPECT_EQ(registered("\r\n+CREG: 0\n\n,1"), -1);
    EXPECT_EQ(registered("\r\n\r\n+CREG: 0,1\r\n"), -1) << "the first line is empty";
    EXPECT_EQ(registered("\r\n+CREG: 0,\r\n1"), -1);
}

TEST(RegisterStatus, a_carriage_return_or_a_line_feed_alone_is_no_line_break) {
    EXPECT_EQ(registered("\r\n+CREG: 0\r,1"), 1);
    EXPECT_EQ(registered("\r\n+CREG: 0\n,1"), 1);
    EXPECT_EQ(registered("\r+CREG: 0,1\r"), -1);
    EXPECT_EQ(registered("\n+CREG: 0,1\n"), -1);
}

TEST(RegisterStatus, nothing_to_find) {
    for (const char *reply : {"", "\r\n", "\r\n\r\nOK\r\n", "\r\nERROR\r\n", "+CREG: 0,1", "\r\n+CREG: 0", "\r\n,"}) {
        EXPECT_EQ(registered(reply), -1) << reply;
    }
}

TEST(RegisterStatus, the_recorded_ones) {
    const std::pair<const char *, int> expected[] = {
        {"quectel-eg25/creg--echo-0-1-split-read", 1},
        {"quectel-ep06/creg--2-3-denied-while-lte-registered", 3},
        {"simcom-sim7600/creg--0-3-denied-while-eps-roams", 3},
        {"fibocom-fm150/creg--three-digit-lac-act-13", 1},
        {"fibocom-l850/creg--2-6-sms-only", 6},
        {"generic-gammu/creg--unquoted-decimal-with-blanks", 1},
    };
    for (const auto &[name, status] : expected) {
        EXPECT_EQ(registered(recorded_reply(name)), status) << name;
    }
}

TEST(RegisterStatus, cut_after_every_byte) {
    const std::string whole = "\r\n+CREG: 2,5,\"1A2B\",\"1A2B3C4\",7\r\n\r\nOK\r\n";
    const size_t digit = whole.find(",5") + 1;
    for (size_t length = 0; length <= whole.size(); length++) {
        EXPECT_EQ(registered(whole.substr(0, length)), length > digit ? 5 : -1) << length;
    }
}

// The SIM.

TEST(SimState, ready) {
    EXPECT_EQ(sim_state("\r\n+CPIN: READY\r\n\r\nOK\r\n"), (Said{0, "READY"}));
    EXPECT_EQ(sim_state("AT+CPIN?\r\r\n+CPIN: READY\r\n\r\nOK\r\n"), (Said{0, "READY"}));
}

TEST(SimState, an_error_of_any_kind) {
    EXPECT_EQ(sim_state("\r\nERROR\r\n"), (Said{-1, "ERROR"}));
    EXPECT_EQ(sim_state("\r\n+CME ERROR: 10\r\n"), (Said{-1, "ERROR"}));
    EXPECT_EQ(sim_state("\r\n+CME ERROR: SIM busy\r\n"), (Said{-1, "ERROR"}));
}

TEST(SimState, it_wants_its_pin) {
    EXPECT_EQ(sim_state("\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n"), (Said{-2, "NEED PIN"}));
}

TEST(SimState, the_pin_of_the_phone_or_of_the_network_is_a_pin_as_well) {
    EXPECT_EQ(sim_state("\r\n+CPIN: PH-SIM PIN\r\n\r\nOK\r\n"), (Said{-2, "NEED PIN"}));
    EXPECT_EQ(sim_state("\r\n+CPIN: PH-NET PIN\r\n\r\nOK\r\n"), (Said{-2, "NEED PIN"}));
}

TEST(SimState, it_wants_its_puk) {
    EXPECT_EQ(sim_state("\r\n+CPIN: SIM PUK\r\n\r\nOK\r\n"), (Said{-4, "NEED PUK"}));
    EXPECT_EQ(sim_state("\r\n+CPIN: PH-NET PUK\r\n\r\nOK\r\n"), (Said{-4, "NEED PUK"}));
}

TEST(SimState, error_goes_before_pin_pin_before_puk_and_puk_before_ready) {
    EXPECT_EQ(sim_state("READY PUK\r PIN\r ERROR"), (Said{-1, "ERROR"}));
    EXPECT_EQ(sim_state("READY PUK\r PIN\r"), (Said{-2, "NEED PIN"}));
    EXPECT_EQ(sim_state("READY PUK\r"), (Said{-4, "NEED PUK"}));
}

TEST(SimState, pin_and_puk_end_their_line) {
    for (const char *reply : {"+CPIN: SIM PIN2\r\n", "+CPIN: SIM PUK2\r\n", "+CPIN: SIM PIN", "+CPIN: SIM PIN\n",
                              "+CPIN: SIM PUK\n", "AT+CPIN?\r"}) {
        EXPECT_EQ(sim_state(reply), (Said{0, ""})) << reply;
    }
}

TEST(SimState, none_of_the_words) {
    for (const char *reply : {"", "\r\nOK\r\n", "+CPIN: ready\r\n", "error", "+CPIN: NOT INSERTED\r\n"}) {
        EXPECT_EQ(sim_state(reply), (Said{0, ""})) << reply;
    }
}

TEST(SimState, the_recorded_ones) {
    const std::pair<const char *, Said> expected[] = {
        {"quectel-ec21/cpin--cme-error-10", {-1, "ERROR"}},
        {"quectel-ec200u/cpin--cme-text-not-inserted", {-1, "ERROR"}},
        {"simcom-sim7600/cpin--cme-sim-busy", {-1, "ERROR"}},
        {"simcom-sim7600/cpin--ready", {0, "READY"}},
        {"sierra-em7455/cpin--ready", {0, "READY"}},
        {"simcom-sim7600/boot-urc--rdy-cpin-smsdone", {0, "READY"}},
    };
    for (const auto &[name, said] : expected) {
        EXPECT_EQ(sim_state(recorded_reply(name)), said) << name;
    }
}

TEST(SimState, cut_after_every_byte) {
    const std::string whole = "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n";
    for (size_t length = 0; length <= whole.size(); length++) {
        const bool complete = length > whole.find("PIN\r") + 3;
        EXPECT_EQ(sim_state(whole.substr(0, length)), complete ? (Said{-2, "NEED PIN"}) : (Said{0, ""})) << length;
    }
}

TEST(Registration, every_beginning_of_every_recorded_reply) {
    for (const RecordedReply &recorded : recorded_replies()) {
        for (size_t length = 0; length <= recorded.wire.size(); length++) {
            // Of exactly this size on the heap, so that a read beyond it is seen.
            const auto reply = std::make_unique<char[]>(length + 1);
            recorded.wire.copy(reply.get(), length);
            const int status = read_register_status(reply.get());
            ASSERT_TRUE(status >= -1 && status <= 9) << recorded.name << " " << length;
            std::vector<char> text(SIM_TEXT_SIZE);
            const Said said = {read_sim_state(reply.get(), text), text.data()};
            const Said possible[] = {{0, ""}, {0, "READY"}, {-1, "ERROR"}, {-2, "NEED PIN"}, {-4, "NEED PUK"}};
            ASSERT_NE(std::find(std::begin(possible), std::end(possible), said), std::end(possible)) << recorded.name;
        }
    }
}

// What keeps a modem from being used, with slots of the test's own.

// What the slots return; they are plain functions.
int sim_result;
int registration_result;
int registration_calls;

int own_check_simcard(const ModemModel &model, std::span<char> text) {
    EXPECT_STREQ(model.bus, "1-1.2");
    EXPECT_GE(text.size(), SIM_TEXT_SIZE);
    text_copy(text, "NEED PUK"); // the slot's own word must not come through
    return sim_result;
}
int own_check_register(const ModemModel &model) {
    EXPECT_STREQ(model.bus, "1-1.2");
    registration_calls++;
    return registration_result;
}

ModemModel bare_model() {
    ModemModel model = *modem_list_find_id(modem_head, 3);
    model.ops = {};
    replace_modem_struct(&model, "1-1.2");
    return model;
}

ModemModel model_with_slots(int sim, int registration) {
    sim_result = sim;
    registration_result = registration;
    registration_calls = 0;
    ModemModel model = bare_model();
    model.ops.check_simcard = own_check_simcard;
    model.ops.check_register = own_check_register;
    return model;
}

Said fault(const ModemModel &model) {
    std::vector<char> text(FAULT_TEXT_SIZE);
    const int result = fault_analysis(model, text);
    EXPECT_EQ(text.back(), '\0');
    return {result, text.data()};
}

TEST(Fault, none_where_the_sim_is_ready_and_the_modem_registered) {
    EXPECT_EQ(fault(model_with_slots(0, 0)), (Said{0, ""}));
    EXPECT_EQ(registration_calls, 1);
}

TEST(Fault, of_the_sim_is_told_without_asking_for_the_registration) {
    EXPECT_EQ(fault(model_with_slots(-1, -1)), (Said{-1, "NO_SIM"}));
    EXPECT_EQ(fault(model_with_slots(-2, -1)), (Said{-2, "PIN_SIM"}));
    EXPECT_EQ(fault(model_with_slots(-4, -1)), (Said{-4, "PUK_SIM"}));
    EXPECT_EQ(registration_calls, 0);
}

TEST(Fault, a_ready_sim_without_registration_is_no_reg) {
    EXPECT_EQ(fault(model_with_slots(0, -1)), (Said{-3, "NO_REG"}));
}

TEST(Fault, any_other_result_of_the_sim_check_goes_on_to_the_registration) {
    for (int sim : {1, -3, -5, 2, INT_MAX, INT_MIN}) {
        EXPECT_EQ(fault(model_with_slots(sim, 0)), (Said{0, ""})) << sim;
        EXPECT_EQ(fault(model_with_slots(sim, -1)), (Said{-3, "NO_REG"})) << sim;
    }
}

TEST(Fault, any_negative_registration_is_no_reg_and_any_other_is_none) {
    for (int registration : {-1, -2, -100, INT_MIN}) {
        EXPECT_EQ(fault(model_with_slots(0, registration)), (Said{-3, "NO_REG"})) << registration;
    }
    for (int registration : {0, 1, 5, INT_MAX}) {
        EXPECT_EQ(fault(model_with_slots(0, registration)), (Said{0, ""})) << registration;
    }
}

TEST(Fault, without_a_sim_check_only_the_registration_counts) {
    ModemModel model = model_with_slots(-1, -1);
    model.ops.check_simcard = nullptr;
    EXPECT_EQ(fault(model), (Said{-3, "NO_REG"}));
}

TEST(Fault, without_a_registration_check_only_the_sim_counts) {
    ModemModel model = model_with_slots(0, -1);
    model.ops.check_register = nullptr;
    EXPECT_EQ(fault(model), (Said{0, ""}));
    sim_result = -2;
    EXPECT_EQ(fault(model), (Said{-2, "PIN_SIM"}));
}

TEST(Fault, without_both_there_is_none) {
    EXPECT_EQ(fault(bare_model()), (Said{0, ""}));
}

// A modem that is not there.

TEST(ModemThatIsNotThere, counts_as_ready_and_registered) {
    in_child_with_empty({"/sys", "/dev"}, [] {
        const ModemModel model = bare_model();
        std::vector<char> text(SIM_TEXT_SIZE);
        EXPECT_EQ(modem_check_simcard(model, text), 0);
        EXPECT_STREQ(text.data(), "");
        EXPECT_EQ(modem_check_register(model), 0);
        EXPECT_EQ(modem_get_register_status(2), -1);
        EXPECT_EQ(modem_get_register_status(-1), -1);
    });
}

} // namespace
