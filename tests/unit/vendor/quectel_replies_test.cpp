// Every beginning of every recorded reply through every reader of the Quectel dialect: nothing is read beyond its end,
// and what comes out keeps to the contracts.
#include <cstring>
#include <memory>
#include <string_view>

#include <gtest/gtest.h>

#include "modem/modem_core/registration.h"
#include "support/json_text.h"
#include "support/replies.h"
#include "vendor/quectel_cells.h"
#include "vendor/quectel_default_band.h"
#include "vendor/quectel_registration.h"
#include "vendor/quectel_signal.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

void expect_typed_texts(json_object *array) {
    for (size_t i = 0; i < json_object_array_length(array); i++) {
        json_object *one = json_object_array_get_idx(array, i);
        bool first = true;
        json_object_object_foreach(one, key, value) {
            if (first) {
                ASSERT_STREQ(key, "type");
            }
            first = false;
            ASSERT_EQ(json_object_get_type(value), json_type_string) << key;
            ASSERT_LE(strlen(json_object_get_string(value)), 99u) << key;
        }
        ASSERT_FALSE(first);
    }
}

void expect_sane_signals(int (*read)(const char *, json_object *, int32_t *), const char *reply) {
    const Json signals(json_object_new_array());
    int32_t level = UNTOUCHED;
    const int rank = read(reply, signals.get(), &level);
    expect_typed_texts(signals.get());
    if (rank == -1) {
        ASSERT_EQ(level, UNTOUCHED);
    } else {
        ASSERT_GE(rank, 2);
        ASSERT_LE(rank, 4);
        ASSERT_GE(level, 0);
        ASSERT_LE(level, 4);
        ASSERT_GE(json_object_array_length(signals.get()), 1u);
    }
}

void expect_sane_cells(void (*read)(const char *, json_object *), const char *reply) {
    const Json cells(json_object_new_array());
    read(reply, cells.get());
    expect_typed_texts(cells.get());
}

TEST(QuectelReplies, every_beginning_of_every_recorded_reply) {
    for (const RecordedReply &recorded : recorded_replies()) {
        for (size_t length = 0; length <= recorded.wire.size(); length++) {
            SCOPED_TRACE(testing::Message() << recorded.name << " " << length);
            // Of exactly this size on the heap, so that a read beyond it is seen.
            const auto reply = std::make_unique<char[]>(length + 1);
            recorded.wire.copy(reply.get(), length);
            expect_sane_signals(read_quectel_signals, reply.get());
            expect_sane_signals(read_ep06_signals, reply.get());
            expect_sane_cells(read_quectel_carriers, reply.get());
            expect_sane_cells(read_quectel_serving_cells, reply.get());
            expect_sane_cells(read_quectel_neighbour_cells, reply.get());
            read_quectel_lte_band(reply.get());
            is_quectel_aggregated(reply.get());
            is_registered(reply.get());
            const char *band_command = read_default_band_command(reply.get());
            ASSERT_TRUE(band_command == nullptr || std::string_view(band_command).starts_with("AT+QCFG=\"band\",0,"));
            ASSERT_FALSE(testing::Test::HasFatalFailure());
        }
    }
}

} // namespace
