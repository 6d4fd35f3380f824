// Every beginning of recorded and composed replies, and every damage to the latter, through every reader of the Fibocom
// dialect: nothing is read beyond the end, and what comes out keeps to the contracts.
#include <algorithm>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "support/json_text.h"
#include "support/replies.h"
#include "vendor/fibocom_cells.h"
#include "vendor/fibocom_registration.h"
#include "vendor/fibocom_signal.h"

namespace {

const std::set<std::string> CELL_KEYS = {
    "IsServiceCell", "rat",       "mcc",         "mnc",   "tac",  "cellid", "earfcn", "physicalcellId",
    "band",          "bandwidth", "rssnr_value", "rxlev", "rsrp", "rsrq",   "rssi"};
const std::set<std::string> SIGNAL_KEYS = {"rxlev", "ber", "rscp", "ecno", "rsrq", "rsrp", "rssi"};

// The longest text: fifteen bytes, each of which may have been replaced by a character of three.
constexpr size_t LONGEST_TEXT = 45;

void expect_texts(json_object *object, const std::set<std::string> &keys) {
    json_object_object_foreach(object, key, value) {
        ASSERT_TRUE(keys.contains(key)) << key;
        ASSERT_EQ(json_object_get_type(value), json_type_string) << key;
        ASSERT_LE(strlen(json_object_get_string(value)), LONGEST_TEXT) << key;
        ASSERT_TRUE(*json_object_get_string(value) != '\0' || std::string_view(key) == "rssi") << key;
    }
}

void expect_sane_cells(std::string_view reply, std::string_view csq) {
    const Json cells(json_object_new_array());
    read_fibocom_cells(reply, csq, cells.get());
    const size_t count = json_object_array_length(cells.get());
    ASSERT_LE(count, 2 + static_cast<size_t>(std::count(reply.begin(), reply.end(), '\n') +
                                             std::count(reply.begin(), reply.end(), '\r')));
    for (size_t i = 0; i < count; i++) {
        expect_texts(json_object_array_get_idx(cells.get(), i), CELL_KEYS);
    }
}

void expect_sane_signal(std::string_view cesq, std::string_view csq) {
    const Json signal(json_object_new_object());
    int32_t level = -77;
    read_fibocom_signal(cesq, csq, signal.get(), &level);
    expect_texts(signal.get(), SIGNAL_KEYS);
    ASSERT_GE(level, 1);
    ASSERT_LE(level, 4);
}

void expect_sane(std::string_view bytes) {
    // Of exactly this size on the heap, so that a read beyond it is seen.
    const auto copy = std::make_unique<char[]>(bytes.size());
    bytes.copy(copy.get(), bytes.size());
    const std::string_view reply(copy.get(), bytes.size());
    expect_sane_cells(reply, reply);
    expect_sane_signal(reply, reply);
    const char *mode = read_fibocom_mode(reply);
    ASSERT_TRUE(mode == nullptr || (strlen(mode) == 2 && mode[0] >= '2' && mode[0] <= '4' && mode[1] == 'G'));
    is_fibocom_registered(reply);
}

const std::string COMPOSED[] = {
    "\r\n+GTCCINFO:\r\nLTE service cell:\r\n1,4,222,01,2A1C,2FC001,1350,301,103,100,12,51,61,23\r\n\r\n"
    "LTE neighbor cell:\r\n2,4,222,01,2A1C,2FC999,1350,101,100,44,53,15\r\n2,4,222,01,2A1C,2FC555,2900,102,100,40,47,"
    "12\r\n\r\nOK\r\n",
    "AT+GTCCINFO?\r\r\nLTE service cell:\r\n1,4,,,,123456789012345678,,,166\r\nLTE neighbor cell:\r\n,,\r\n2\r\n"
    "LTE neighbor cell:\r\n2,4",
    "\n+GTCCINFO:\nLTE service cell:\n1,4,222\nLTE neighbor cell:\n2,4,222\nOK\n",
    "AT+CESQ\r\r\n+CESQ: 99,99,255,255,23,61\r\n\r\nOK\r\n",
    "\r\n+CESQ: ,,,,,-99999999999999999999\r\n+CSQ: 99999999999999999999,99\r\n\r\nOK\r\n",
    "\r\n+CSQ: 22,99\r\n\r\nOK\r\n",
    "\r\n+CREG: 2,1,\"2A1C\",\"2FC001\",7\r\n\r\nOK\r\n",
};

TEST(FibocomReplies, every_beginning_of_every_recorded_reply) {
    for (const RecordedReply &recorded : recorded_replies()) {
        for (size_t length = 0; length <= recorded.wire.size(); length++) {
            SCOPED_TRACE(testing::Message() << recorded.name << " " << length);
            expect_sane(std::string_view(recorded.wire).substr(0, length));
            ASSERT_FALSE(testing::Test::HasFatalFailure());
        }
    }
}

TEST(FibocomReplies, every_beginning_and_every_end_of_composed_replies) {
    for (const std::string &reply : COMPOSED) {
        for (size_t length = 0; length <= reply.size(); length++) {
            SCOPED_TRACE(testing::Message() << reply << length);
            expect_sane(std::string_view(reply).substr(0, length));
            expect_sane(std::string_view(reply).substr(length));
            ASSERT_FALSE(testing::Test::HasFatalFailure());
        }
    }
}

TEST(FibocomReplies, every_byte_of_composed_replies_changed_or_left_out) {
    for (const std::string &reply : COMPOSED) {
        for (size_t at = 0; at < reply.size(); at++) {
            SCOPED_TRACE(testing::Message() << reply << at);
            for (const char byte : {',', '\r', '\n', '\0', '9', '-', '\xff', ' ', '"', 'O'}) {
                std::string changed = reply;
                changed[at] = byte;
                expect_sane(changed.c_str()); // which ends at a NUL, as any reply does
            }
            expect_sane(std::string(reply).erase(at, 1));
            ASSERT_FALSE(testing::Test::HasFatalFailure());
        }
    }
}

} // namespace
