// Every beginning of recorded and composed replies, replies with changed bytes, and enormous ones, through every reader
// of the Sierra Wireless dialect: nothing is read beyond their end, and what comes out keeps to the contracts.
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "modem/modem_core/registration.h"
#include "support/json_text.h"
#include "support/replies.h"
#include "support/sierra_blocks.h"
#include "vendor/sierra_cells.h"
#include "vendor/sierra_registration.h"
#include "vendor/sierra_signal.h"

namespace {

using namespace sierra_blocks;

constexpr int32_t UNTOUCHED = -77;

void expect_sane_signal(const char *reply) {
    int32_t level = UNTOUCHED;
    const int generation = read_sierra_signal(reply, &level);
    if (generation == -1) {
        ASSERT_EQ(level, UNTOUCHED);
        return;
    }
    ASSERT_EQ(generation, strstr(reply, "LTE") != nullptr ? 4 : 3);
    ASSERT_GE(level, 1);
    ASSERT_LE(level, 4);
}

void expect_sane_cells(const char *reply) {
    const Json cells(json_object_new_array());
    ASSERT_EQ(read_sierra_cells(reply, cells.get()), 0);
    size_t index = 0;
    for (const auto &[type, word] : {std::pair{"PSS", "LTE"}, {"SSS", "SCC"}, {"servingcell", "WCDMA"}}) {
        if (strstr(reply, word) == nullptr) {
            continue;
        }
        json_object *cell = json_object_array_get_idx(cells.get(), index++);
        ASSERT_NE(cell, nullptr) << type;
        std::string first, last;
        json_object_object_foreach(cell, key, value) {
            ASSERT_EQ(json_object_get_type(value), json_type_string) << key;
            ASSERT_LE(json_object_get_string_len(value), 300) << "100 bytes, three for each that is no UTF-8";
            first = first.empty() ? key : first;
            last = key;
        }
        ASSERT_EQ(first, "type");
        ASSERT_EQ(last, "rat");
        ASSERT_STREQ(json_object_get_string(json_object_object_get(cell, "type")), type);
    }
    ASSERT_EQ(json_object_array_length(cells.get()), index);
    ASSERT_NE(parse_json(plain_json(cells.get())), nullptr);
}

// The first `length` bytes, on the heap and of exactly this size, so that a read beyond them is seen.
void expect_sane(const std::string &wire, size_t length) {
    const auto reply = std::make_unique<char[]>(length + 1);
    wire.copy(reply.get(), length);
    expect_sane_signal(reply.get());
    expect_sane_cells(reply.get());
    is_registered(reply.get());
    is_sierra_aggregated(reply.get());
    const int sim = read_sierra_sim_state(reply.get());
    ASSERT_TRUE(sim == 0 || sim == -1 || sim == -2);
}

std::string all_technologies() {
    return block(AGGREGATED_LINES + std::string("\n") + WCDMA_LINES);
}

TEST(SierraReplies, every_beginning_of_every_recorded_reply) {
    for (const RecordedReply &recorded : recorded_replies()) {
        for (size_t length = 0; length <= recorded.wire.size(); length++) {
            SCOPED_TRACE(testing::Message() << recorded.name << " " << length);
            expect_sane(recorded.wire, length);
            ASSERT_FALSE(testing::Test::HasFatalFailure());
        }
    }
}

TEST(SierraReplies, every_beginning_of_the_composed_ones) {
    for (const std::string &wire : {block(AGGREGATED_LINES), block(WCDMA_LINES), all_technologies(),
                                    block(lte_lines("-60", "-80", "-8", "20"))}) {
        for (size_t length = 0; length <= wire.size(); length++) {
            SCOPED_TRACE(length);
            expect_sane(wire, length);
            ASSERT_FALSE(testing::Test::HasFatalFailure());
        }
    }
}

// The signal is there only once all of its last number is: at each earlier end of the block it is missing.
TEST(SierraReplies, a_cut_block_has_a_signal_from_its_last_measurement_on) {
    const std::string wire = block(lte_lines("-60", "-80", "-8", "20"));
    const size_t last = wire.find("SINR (dB):     ") + strlen("SINR (dB):     ");
    for (size_t length = 0; length <= wire.size(); length++) {
        int32_t level = UNTOUCHED;
        const int generation = read_sierra_signal(wire.substr(0, length).c_str(), &level);
        ASSERT_EQ(generation, length > last ? 4 : -1) << length;
        ASSERT_EQ(level, length > last + 1 ? 4 : length > last ? 3 : UNTOUCHED) << length; // "2" is no "20"
    }
}

TEST(SierraReplies, every_byte_changed_to_each_of_these) {
    const std::string wire = all_technologies();
    for (size_t at = 0; at < wire.size(); at++) {
        for (const char byte : {'\0', '\t', '\r', '9', '\xff'}) {
            std::string changed = wire;
            changed[at] = byte;
            SCOPED_TRACE(testing::Message() << at << " " << static_cast<int>(byte));
            expect_sane(changed, changed.size());
            ASSERT_FALSE(testing::Test::HasFatalFailure());
        }
    }
}

TEST(SierraReplies, every_byte_left_out_or_doubled) {
    const std::string wire = all_technologies();
    for (size_t at = 0; at < wire.size(); at++) {
        SCOPED_TRACE(at);
        std::string changed = wire;
        changed.erase(at, 1);
        expect_sane(changed, changed.size());
        changed = wire;
        changed.insert(at, 1, wire[at]);
        expect_sane(changed, changed.size());
        ASSERT_FALSE(testing::Test::HasFatalFailure());
    }
}

TEST(SierraReplies, thousands_of_lines) {
    std::string lines;
    for (int i = 0; i < 5000; i++) {
        lines += "LTE band:      B2     \t\tLTE bw:      20 MHz  \nRSRP (dBm):  -81\n";
    }
    const std::string wire = block(lines + AGGREGATED_LINES + "\n" + WCDMA_LINES);
    expect_sane(wire, wire.size());
    int32_t level = UNTOUCHED;
    EXPECT_EQ(read_sierra_signal(wire.c_str(), &level), 4);
    EXPECT_EQ(level, 3) << "4, 4, 1, 4";
    EXPECT_TRUE(is_sierra_aggregated(wire.c_str()));
}

TEST(SierraReplies, an_enormous_line) {
    const std::string wire =
        "LTE SCC WCDMA PS state:" + std::string(1000000, ' ') + "\tLAC:" + std::string(1000000, 'x');
    expect_sane(wire, wire.size());
}

} // namespace
