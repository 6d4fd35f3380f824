// What is asked of the modem and what is taken from the state directory. Each test has a /tmp of its own and, where the
// modem is asked, one on a pseudo-terminal.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "modem/modem_core/identity.h"
#include "support/aborts.h"
#include "support/child.h"
#include "support/files.h"
#include "support/modem_peer.h"

namespace {

using namespace std::string_literals;

constexpr const char *BUS = "1-1.2";
constexpr const char *DIRECTORY = "/tmp/modem.1-1.2";
constexpr const char *IMEI_PATH = "/tmp/modem.1-1.2/modem-imei";
constexpr const char *NAME_PATH = "/tmp/modem.1-1.2/modem-name";
constexpr const char *IMSI_PATH = "/tmp/modem.1-1.2/cimi";
constexpr const char *NO_PORT = "/dev/no-such-port";

void with_state_directory(const std::function<void()> &body) {
    in_child_with_empty({"/tmp"}, [&] {
        std::filesystem::create_directory(DIRECTORY);
        body();
    });
}

struct Answer {
    int result;
    std::string text;
    bool operator==(const Answer &) const = default;
};
void PrintTo(const Answer &answer, std::ostream *out) {
    *out << answer.result << " \"" << answer.text << "\"";
}

Answer text_of(int result, const std::vector<char> &buffer) {
    const std::string text(buffer.begin(), buffer.end());
    return {result, text.substr(0, text.find('\0'))};
}

Answer get_imei(const char *port) {
    std::vector<char> buffer(IMEI_BUFFER_SIZE);
    return text_of(modem_get_gsn(port, BUS, buffer), buffer);
}

Answer get_name(const char *port) {
    std::vector<char> buffer(IDENTITY_SIZE);
    return text_of(modem_get_identity(BUS, port, buffer), buffer);
}

// A model on the bus, without anything behind it: what is not in the state directory cannot be had.
ModemModel model_on_bus() {
    ModemModel model = {};
    replace_modem_struct(&model, BUS);
    return model;
}

int imsi_slot_calls = 0;

ModemModel model_with_imsi_slot() {
    ModemModel model = model_on_bus();
    model.ops.get_imsi = [](const ModemModel &, std::span<char> imsi) {
        imsi_slot_calls++;
        std::string_view("310260000000017").copy(imsi.data(), imsi.size());
        return 0;
    };
    return model;
}

Answer get_imsi() {
    std::vector<char> buffer(IMSI_LENGTH);
    return text_of(modem_get_imsi(model_on_bus(), buffer), buffer);
}

struct Network {
    int result;
    std::string mcc, mnc;
    bool operator==(const Network &) const = default;
};
void PrintTo(const Network &network, std::ostream *out) {
    *out << network.result << " \"" << network.mcc << "\" \"" << network.mnc << "\"";
}

Network get_network(const ModemModel &model) {
    std::vector<char> mcc(MCC_SIZE);
    std::vector<char> mnc(MNC_SIZE);
    const int result = modem_get_mcc_mnc(model, mcc, mnc);
    return {result, mcc.data(), mnc.data()};
}

TEST(ImeiCache, a_model_that_has_no_way_to_ask_for_it_has_none) {
    std::vector<char> buffer(IMEI_BUFFER_SIZE);
    EXPECT_EQ(text_of(get_modem_imei(model_on_bus(), buffer), buffer), (Answer{-1, ""}));
}

TEST(ImeiCache, the_modem_is_asked_once_and_exactly_15_bytes_are_kept) {
    in_child_with_empty({"/tmp"}, [] {
        ModemPeer modem(answer("AT+GSN\r\r\n350000000000017\r\n\r\nOK\r\n"));
        EXPECT_EQ(get_imei(modem.path()), (Answer{0, "350000000000017"}));
        EXPECT_EQ(read_file(IMEI_PATH), "350000000000017");
        EXPECT_EQ(get_imei(NO_PORT), (Answer{0, "350000000000017"}));
        modem.stop();
        EXPECT_EQ(modem.received(), "AT+GSN\r\n");
    });
}

TEST(ImeiCache, all_digits_of_a_long_answer_go_to_the_caller_and_15_are_kept) {
    in_child_with_empty({"/tmp"}, [] {
        ModemPeer modem(answer("350000000000017,02\r\nOK\r\n"));
        EXPECT_EQ(get_imei(modem.path()), (Answer{0, "35000000000001702"}));
        EXPECT_EQ(read_file(IMEI_PATH), "350000000000017");
    });
}

TEST(ImeiCache, a_modem_that_does_not_tell_leaves_no_file) {
    for (const char *reply : {"\r\nERROR\r\n", "\r\n35000000000001\r\n\r\nOK\r\n", "\r\n350000000000017\r\n\r\nOK"}) {
        in_child_with_empty({"/tmp"}, [&] {
            ModemPeer modem(answer(reply));
            EXPECT_EQ(get_imei(modem.path()).result, -1) << reply;
            EXPECT_FALSE(std::filesystem::exists(DIRECTORY));
        });
    }
}

TEST(ImeiCache, damaged_files_are_deleted_and_the_next_call_asks) {
    for (const std::string &content : {"350000000000017\n"s, "3500000000000170"s, "35000000000001"s, "35000000000001x"s,
                                       ""s, "\xff\xfe"s, std::string(100, '1'), "350000\0\0000000017"s}) {
        with_state_directory([&] {
            write_file(IMEI_PATH, content);
            EXPECT_EQ(get_imei(NO_PORT).result, -1) << content;
            EXPECT_FALSE(std::filesystem::exists(IMEI_PATH)) << content;
            ModemPeer modem(answer("\r\n350000000000017\r\n\r\nOK\r\n"));
            EXPECT_EQ(get_imei(modem.path()), (Answer{0, "350000000000017"}));
        });
    }
}

TEST(ImeiCache, a_directory_in_place_of_the_file) {
    with_state_directory([] {
        std::filesystem::create_directory(IMEI_PATH);
        EXPECT_EQ(get_imei(NO_PORT).result, -1);
        EXPECT_FALSE(std::filesystem::exists(IMEI_PATH));
    });
}

TEST(ImeiCache, a_bus_that_does_not_fit_aborts) {
    std::vector<char> buffer(IMEI_BUFFER_SIZE);
    EXPECT_ABORT(modem_get_gsn(NO_PORT, "1-1.2.3.4.5.6.7.8.9", buffer));
}

TEST(NameCache, the_text_and_its_nul_are_kept_as_the_modem_sent_them) {
    in_child_with_empty({"/tmp"}, [] {
        ModemPeer modem(answer("ATI\r\r\nQuectel\r\nEC25\r\nRevision: EC25EFAR06A03M4G\r\n\r\nOK\r\n"));
        EXPECT_EQ(get_name(modem.path()), (Answer{0, " EC25EFAR06A03M4G\r"}));
        EXPECT_EQ(read_file(NAME_PATH), " EC25EFAR06A03M4G\r\0"s);
        EXPECT_EQ(get_name(NO_PORT), (Answer{0, " EC25EFAR06A03M4G\r"}));
    });
}

TEST(NameCache, a_file_is_taken_whatever_it_holds) {
    with_state_directory([] {
        write_file(NAME_PATH, "");
        EXPECT_EQ(get_name(NO_PORT), (Answer{0, ""}));
        write_file(NAME_PATH, "\xff\n\x01");
        EXPECT_EQ(get_name(NO_PORT), (Answer{0, "\xff\n\x01"}));
        write_file(NAME_PATH, std::string(1000, 'n'));
        EXPECT_EQ(get_name(NO_PORT), (Answer{0, std::string(199, 'n')}));
    });
}

TEST(NameCache, a_file_that_cannot_be_opened_fails) {
    with_state_directory([] {
        std::filesystem::create_symlink(NAME_PATH, NAME_PATH);
        EXPECT_EQ(get_name(NO_PORT), (Answer{-1, ""}));
    });
}

TEST(NameCache, no_modem_and_no_file) {
    in_child_with_empty({"/tmp"}, [] {
        EXPECT_EQ(get_name(NO_PORT), (Answer{-1, ""}));
        EXPECT_FALSE(std::filesystem::exists(DIRECTORY));
    });
}

TEST(ImsiCache, six_bytes_are_enough) {
    with_state_directory([] {
        write_file(IMSI_PATH, "262020000000017\n");
        EXPECT_EQ(get_imsi(), (Answer{0, "262020000000017"}));
        write_file(IMSI_PATH, "26202\n");
        EXPECT_EQ(get_imsi(), (Answer{0, "26202\n"}));
    });
}

TEST(ImsiCache, a_short_file_stays_and_the_modem_is_asked) {
    with_state_directory([] {
        write_file(IMSI_PATH, "26202");
        EXPECT_EQ(get_imsi().result, -1); // there is no modem on that bus
        EXPECT_EQ(read_file(IMSI_PATH), "26202");
    });
}

TEST(ImsiCache, a_file_that_cannot_be_opened_fails_at_once) {
    with_state_directory([] {
        std::filesystem::create_symlink(IMSI_PATH, IMSI_PATH);
        EXPECT_EQ(get_imsi().result, -1);
    });
}

TEST(ImsiCache, a_buffer_without_room_aborts) {
    std::vector<char> buffer(IMSI_LENGTH - 1);
    EXPECT_ABORT(modem_get_imsi(model_on_bus(), buffer));
}

TEST(MccMnc, an_imsi_beginning_310260) {
    with_state_directory([] {
        write_file(IMSI_PATH, "310260000000017\n");
        EXPECT_EQ(get_network(model_on_bus()), (Network{0, "310", "260"}));
    });
}

TEST(MccMnc, a_missing_file_is_written_by_the_slot_of_the_model) {
    in_child_with_empty({"/tmp"}, [] {
        EXPECT_EQ(get_network(model_with_imsi_slot()), (Network{0, "310", "260"}));
        EXPECT_EQ(read_file(IMSI_PATH), "310260000000017\n");
        EXPECT_EQ(get_network(model_with_imsi_slot()), (Network{0, "310", "260"}));
        EXPECT_EQ(imsi_slot_calls, 1);
    });
}

TEST(MccMnc, a_slot_that_fails_or_is_not_there) {
    in_child_with_empty({"/tmp"}, [] {
        EXPECT_EQ(get_network(model_on_bus()), (Network{-1, "", ""}));
        ModemModel model = model_on_bus();
        model.ops.get_imsi = [](const ModemModel &, std::span<char>) { return -1; };
        EXPECT_EQ(get_network(model), (Network{-1, "", ""}));
        EXPECT_FALSE(std::filesystem::exists(DIRECTORY));
    });
}

TEST(MccMnc, an_imsi_of_other_than_digits_never_reaches_the_shell) {
    in_child_with_empty({"/tmp"}, [] {
        ModemModel model = model_on_bus();
        model.ops.get_imsi = [](const ModemModel &, std::span<char> imsi) {
            std::string_view("26202$(>/tmp/x)").copy(imsi.data(), imsi.size());
            return 0;
        };
        EXPECT_EQ(get_network(model), (Network{-1, "", ""}));
        EXPECT_TRUE(std::filesystem::is_empty("/tmp"));
    });
}

TEST(MccMnc, damaged_files_are_deleted) {
    for (const std::string &content : {""s, "2620"s, "2620\n"s, "2620x0000000017"s, "\xff\xff\xff\xff\xff\xff"s}) {
        with_state_directory([&] {
            write_file(IMSI_PATH, content);
            EXPECT_EQ(get_network(model_with_imsi_slot()), (Network{-1, "", ""})) << content;
            EXPECT_FALSE(std::filesystem::exists(IMSI_PATH)) << content;
            EXPECT_EQ(get_network(model_with_imsi_slot()), (Network{0, "310", "260"}));
        });
    }
}

TEST(MccMnc, the_network_code_is_whatever_stands_in_its_three_places) {
    with_state_directory([] {
        write_file(IMSI_PATH, "26201");
        EXPECT_EQ(get_network(model_on_bus()), (Network{0, "262", "01"}));
        write_file(IMSI_PATH, "26201;");
        EXPECT_EQ(get_network(model_on_bus()), (Network{0, "262", "01;"}));
    });
}

} // namespace
