// Which source a modem's signal comes from: its model's slots, or the signal file as the connection scripts leave it.
// Tests with files have a /tmp of their own.
#include "modem/modem_core/signal.h"

#include <climits>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "support/child.h"
#include "support/files.h"
#include "support/json_text.h"

namespace {

constexpr int32_t UNTOUCHED = -77;
constexpr const char *BUS = "1-1.2";

// The signal file.

void with_signal_file(const std::string &content, const std::function<void()> &body) {
    in_child_with_empty({"/tmp"}, [&] {
        std::filesystem::create_directory("/tmp/modem.1-1.2");
        write_file("/tmp/modem.1-1.2/signal", content);
        body();
    });
}

TEST(SignalFile, its_level_and_generation) {
    with_signal_file(R"({"type":"wcdma","rssi":-85,"ecio":-12})", [] {
        int32_t level = UNTOUCHED;
        EXPECT_EQ(get_qmi_signal(BUS, &level), 3);
        EXPECT_EQ(level, 2);
        level = UNTOUCHED;
        EXPECT_EQ(get_qmi_signal("1-1.3", &level), -1) << "another modem's";
        EXPECT_EQ(level, UNTOUCHED);
    });
}

TEST(SignalFile, the_measurements_are_appended) {
    with_signal_file("{\n\t\"type\": \"gsm\",\n\t\"signal\": -75\n}\n", [] {
        const Json signals = parse_json("[1]");
        int32_t level = UNTOUCHED;
        EXPECT_EQ(conver_signal_file(BUS, signals.get(), &level), 2);
        EXPECT_EQ(level, 3);
        EXPECT_EQ(plain_json(signals.get()), R"([1,{"type":"GSM","rssi":"-75"}])");
    });
}

void expect_an_empty_object() {
    const Json signals(json_object_new_array());
    int32_t level = UNTOUCHED;
    EXPECT_EQ(conver_signal_file(BUS, signals.get(), &level), -1);
    EXPECT_EQ(get_qmi_signal(BUS, &level), -1);
    EXPECT_EQ(level, UNTOUCHED);
    EXPECT_EQ(plain_json(signals.get()), "[{}]");
}

TEST(SignalFile, a_missing_one_leaves_an_empty_object) {
    in_child_with_empty({"/tmp"}, expect_an_empty_object);
}

TEST(SignalFile, a_directory_in_its_place_leaves_an_empty_object) {
    in_child_with_empty({"/tmp"}, [] {
        std::filesystem::create_directories("/tmp/modem.1-1.2/signal");
        expect_an_empty_object();
    });
}

TEST(SignalFile, one_that_cannot_be_used_leaves_an_empty_object_and_is_not_deleted) {
    const std::string contents[] = {"",
                                    "\n",
                                    "{",
                                    R"({"type":"lte")",
                                    "lte",
                                    "[]",
                                    "null",
                                    R"({"rssi":-60})",
                                    R"({"type":"nr5g"})",
                                    std::string(4, '\0'),
                                    "\xff",
                                    "\"lte\"",
                                    std::string(100000, '[')};
    for (const std::string &content : contents) {
        with_signal_file(content, [&] {
            expect_an_empty_object();
            EXPECT_EQ(read_file("/tmp/modem.1-1.2/signal"), content);
        });
    }
}

TEST(SignalFile, cut_after_every_byte) {
    const std::string whole = R"({"type":"lte","rsrp":-95,"rsrq":-11,"snr":130,"rssi":-70})";
    in_child_with_empty({"/tmp"}, [&] {
        std::filesystem::create_directory("/tmp/modem.1-1.2");
        for (size_t length = 0; length < whole.size(); length++) {
            write_file("/tmp/modem.1-1.2/signal", whole.substr(0, length));
            expect_an_empty_object();
        }
    });
}

// What get_modem_signal gives, with slots of the test's own and no signal file but the one that a test writes.

struct Signal {
    int result;
    std::string mode;
    int32_t level;
    std::string reply;
    bool operator==(const Signal &) const = default;
};
void PrintTo(const Signal &signal, std::ostream *out) {
    *out << signal.result << " \"" << signal.mode << "\" level " << signal.level << " " << signal.reply;
}

ModemModel bare_model() {
    ModemModel model = *modem_list_find_id(modem_head, 3);
    model.ops = {};
    replace_modem_struct(&model, BUS);
    return model;
}

Signal signal_of(const ModemModel &model) {
    const Json reply(json_object_new_object());
    char mode[8] = {};
    Signal signal = {0, "", UNTOUCHED, ""};
    signal.result = get_modem_signal(model, mode, &signal.level, reply.get());
    signal.mode = std::string(mode, strnlen(mode, sizeof mode));
    signal.reply = plain_json(reply.get());
    return signal;
}

// What the slots return; they are plain functions.
int slot_generation;
int32_t slot_level;
int slot_aggregated;

int own_signal_info(const ModemModel &model, json_object *signals, int32_t *level) {
    EXPECT_STREQ(model.bus, BUS);
    json_object_array_add(signals, json_object_new_object());
    *level = slot_level;
    return slot_generation;
}
int own_rssi(const ModemModel &model, int32_t *level) {
    EXPECT_STREQ(model.bus, BUS);
    *level = slot_level;
    return slot_generation;
}
int own_mode(const ModemModel &, std::span<char> mode) {
    EXPECT_GE(mode.size(), 4u);
    text_copy(mode, "LTE");
    return -1; // which must not matter
}
int own_check_cat6(const ModemModel &) {
    return slot_aggregated;
}

// `expected` has no "signal_info"; it is there in any case.
void expect_from_signal_info(int generation, int32_t level, const ModemModel &model, Signal expected) {
    slot_generation = generation;
    slot_level = level;
    expected.reply = R"({"signal_info":[{}]})";
    EXPECT_EQ(signal_of(model), expected) << generation;
}

TEST(ModemSignal, the_generations_of_the_signal_information) {
    ModemModel model = bare_model();
    model.ops.signal_info = own_signal_info;
    model.ops.get_mode = own_mode;
    expect_from_signal_info(2, 1, model, {0, "2G", 1, ""});
    expect_from_signal_info(3, 2, model, {0, "3G", 2, ""});
    expect_from_signal_info(4, 3, model, {0, "4G", 3, ""});
}

TEST(ModemSignal, a_generation_counts_whatever_the_level) {
    ModemModel model = bare_model();
    model.ops.signal_info = own_signal_info;
    expect_from_signal_info(4, 0, model, {0, "4G", 0, ""});
    expect_from_signal_info(2, -5, model, {0, "2G", -5, ""});
}

TEST(ModemSignal, an_aggregated_carrier_is_4g_plus) {
    ModemModel model = bare_model();
    model.ops.signal_info = own_signal_info;
    model.ops.check_cat6 = own_check_cat6;
    slot_aggregated = 1;
    expect_from_signal_info(4, 3, model, {0, "4G+", 3, ""});
    expect_from_signal_info(3, 3, model, {0, "3G", 3, ""});
    expect_from_signal_info(2, 3, model, {0, "2G", 3, ""});
    for (int other : {0, -1, 2}) {
        slot_aggregated = other;
        expect_from_signal_info(4, 3, model, {0, "4G", 3, ""});
    }
}

TEST(ModemSignal, an_unknown_generation_asks_the_mode_operation_and_ignores_its_result) {
    ModemModel model = bare_model();
    model.ops.signal_info = own_signal_info;
    model.ops.get_mode = own_mode;
    for (int generation : {1, 0, -1, -128}) {
        expect_from_signal_info(generation, 4, model, {0, "LTE", 4, ""});
    }
    model.ops.get_mode = nullptr;
    expect_from_signal_info(1, 4, model, {0, "", 4, ""});
}

TEST(ModemSignal, an_unknown_generation_without_a_level_fails) {
    ModemModel model = bare_model();
    model.ops.signal_info = own_signal_info;
    model.ops.get_mode = own_mode;
    for (int32_t level : {0, -1, INT_MIN}) {
        expect_from_signal_info(1, level, model, {-1, "", level, ""});
    }
}

TEST(ModemSignal, a_generation_beyond_4_fails) {
    ModemModel model = bare_model();
    model.ops.signal_info = own_signal_info;
    model.ops.get_mode = own_mode;
    for (int generation : {5, 6, 127}) {
        expect_from_signal_info(generation, 4, model, {-1, "", 4, ""});
    }
}

TEST(ModemSignal, a_generation_has_8_bits_with_a_sign) {
    ModemModel model = bare_model();
    model.ops.signal_info = own_signal_info;
    model.ops.get_mode = own_mode;
    expect_from_signal_info(256 + 3, 4, model, {0, "3G", 4, ""});
    expect_from_signal_info(128, 4, model, {0, "LTE", 4, ""});
    expect_from_signal_info(255, 4, model, {0, "LTE", 4, ""});
    expect_from_signal_info(256, 4, model, {0, "LTE", 4, ""});
    expect_from_signal_info(256 + 5, 4, model, {-1, "", 4, ""});
}

TEST(ModemSignal, the_signal_information_goes_before_the_signal_file) {
    with_signal_file(R"({"type":"gsm","signal":-75})", [] {
        ModemModel model = bare_model();
        model.ops.signal_info = own_signal_info;
        model.ops.get_rssi = own_rssi;
        expect_from_signal_info(4, 1, model, {0, "4G", 1, ""});
    });
}

TEST(ModemSignal, the_signal_file_goes_before_the_signal_slot) {
    with_signal_file(R"({"type":"gsm","signal":-75})", [] {
        slot_generation = 1;
        slot_level = 4;
        ModemModel model = bare_model();
        model.ops.get_rssi = own_rssi;
        EXPECT_EQ(signal_of(model), (Signal{0, "2G", 3, "{}"}));
    });
}

TEST(ModemSignal, a_signal_file_on_an_aggregated_carrier_is_4g_plus_too) {
    with_signal_file(R"({"type":"lte"})", [] {
        ModemModel model = bare_model();
        model.ops.check_cat6 = own_check_cat6;
        slot_aggregated = 1;
        EXPECT_EQ(signal_of(model), (Signal{0, "4G+", 3, "{}"}));
    });
}

TEST(ModemSignal, a_signal_file_that_cannot_be_used_keeps_the_signal_slot_from_being_asked) {
    with_signal_file("{", [] {
        slot_generation = 1;
        slot_level = 4;
        ModemModel model = bare_model();
        model.ops.get_rssi = own_rssi;
        model.ops.get_mode = own_mode;
        EXPECT_EQ(signal_of(model), (Signal{-1, "", UNTOUCHED, "{}"}));
    });
}

TEST(ModemSignal, without_a_signal_file_the_signal_slot_is_asked) {
    in_child_with_empty({"/tmp"}, [] {
        slot_generation = 1;
        slot_level = 4;
        ModemModel model = bare_model();
        model.ops.get_rssi = own_rssi;
        model.ops.get_mode = own_mode;
        EXPECT_EQ(signal_of(model), (Signal{0, "LTE", 4, "{}"}));
        slot_level = 0; // such as CSQ 99
        EXPECT_EQ(signal_of(model), (Signal{-1, "", 0, "{}"}));
        slot_generation = 3;
        EXPECT_EQ(signal_of(model), (Signal{0, "3G", 0, "{}"}));
    });
}

TEST(ModemSignal, a_model_without_any_source_fails) {
    in_child_with_empty({"/tmp"}, [] {
        ModemModel model = bare_model();
        EXPECT_EQ(signal_of(model), (Signal{-1, "", UNTOUCHED, "{}"}));
        model.ops.get_mode = own_mode;
        EXPECT_EQ(signal_of(model), (Signal{-1, "", UNTOUCHED, "{}"}));
    });
}

} // namespace
