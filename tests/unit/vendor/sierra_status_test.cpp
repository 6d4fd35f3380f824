// One value of a status block by its label.
#include "vendor/sierra_status.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/replies.h"

namespace {

constexpr int32_t UNTOUCHED = -77;

struct Number {
    int result;
    int32_t value;
    bool operator==(const Number &) const = default;
};

void PrintTo(const Number &number, std::ostream *out) {
    *out << number.result << " " << number.value;
}

Number number(const std::string &text, const char *label) {
    int32_t value = UNTOUCHED;
    const int result = sierra_read_int(text.c_str(), label, &value);
    return {result, value};
}

struct Text {
    int result;
    std::string value;
    bool operator==(const Text &) const = default;
};

void PrintTo(const Text &text, std::ostream *out) {
    *out << text.result << " \"" << text.value << "\"";
}

Text text(const std::string &reply, const char *label, size_t occurrence = 0) {
    char value[SIERRA_LONGEST_VALUE + 1] = "untouched";
    const int result = sierra_read_label(reply.c_str(), label, occurrence, value);
    return {result, value};
}

const Number NO_NUMBER = {-1, UNTOUCHED};
const Text NO_TEXT = {-1, "untouched"};

// --- Numbers ---

TEST(SierraInteger, em7455_measurements) {
    const std::string reply = recorded_reply("sierra-em7455/gstatus--lte-ca-active-tabs");
    EXPECT_EQ(number(reply, "PCC RxM RSSI:  "), (Number{0, -45}));
    EXPECT_EQ(number(reply, "RSRP (dBm):  "), (Number{0, -81})) << "the first of four";
    EXPECT_EQ(number(reply, "RSRQ (dB):     "), (Number{0, -14}));
    EXPECT_EQ(number(reply, "SINR (dB):     "), (Number{0, 23}));
    EXPECT_EQ(number(reply, "Current Time:"), (Number{0, 22016}));
}

TEST(SierraInteger, em7455_a_value_with_one_blank_more) {
    const std::string reply = recorded_reply("sierra-em7455/gstatus--lte-idle-tx-power-dashes-echo");
    EXPECT_EQ(number(reply, "SINR (dB):     "), (Number{0, 1}));
    EXPECT_EQ(number(reply, "Tx Power:"), NO_NUMBER) << "dashes";
}

TEST(SierraInteger, a_number_ends_with_its_last_digit) {
    for (const char *sent : {"-74", "-74.9", "-74dBm", "-74\t\tx", "-74\r\n-3", "-74-3", "-74 1", "-0074"}) {
        EXPECT_EQ(number("RSSI:" + std::string(sent), "RSSI:"), (Number{0, -74})) << sent;
    }
}

TEST(SierraInteger, white_space_of_any_kind_before_it) {
    for (const char *sent : {"7", " 7", "        7", "\t7", "\t\t7", "\r\n7", "\n\n7", "\v\f7", " \t\r\n +7", "+7"}) {
        EXPECT_EQ(number("RSSI:" + std::string(sent), "RSSI:"), (Number{0, 7})) << sent;
    }
}

TEST(SierraInteger, no_number) {
    for (const char *sent : {"", " ", "\t", "\r\n", "---", "-", "+", "- 7", "+-7", "--7", "x7", ".7", "B3",
                             "\xa0"
                             "7",
                             "\xb2"}) {
        EXPECT_EQ(number("RSSI:" + std::string(sent), "RSSI:"), NO_NUMBER) << sent;
    }
}

TEST(SierraInteger, the_next_line_is_read_where_its_own_has_none) {
    EXPECT_EQ(number("RSSI:\r\n-50\r\n", "RSSI:"), (Number{0, -50}));
    EXPECT_EQ(number("RSSI:\r\nRSRP:-50\r\n", "RSSI:"), NO_NUMBER);
}

TEST(SierraInteger, the_label_is_missing_cut_or_written_otherwise) {
    for (const char *reply : {"", "RSSI", "RSS", "rssi:-50", "RSSI :-50", "RSSI -50"}) {
        EXPECT_EQ(number(reply, "RSSI:"), NO_NUMBER) << reply;
    }
    EXPECT_EQ(number("RSRP (dBm): -81", "RSRP (dBm):  "), NO_NUMBER) << "one blank less than the label has";
    EXPECT_EQ(number("RSRP (dBm):\t\t-81", "RSRP (dBm):  "), NO_NUMBER) << "tabs are no blanks";
}

TEST(SierraInteger, only_the_first_label_counts) {
    EXPECT_EQ(number("RSSI:-1\r\nRSSI:-2\r\n", "RSSI:"), (Number{0, -1}));
    EXPECT_EQ(number("RSSI: ---\r\nRSSI:-2\r\n", "RSSI:"), NO_NUMBER);
    EXPECT_EQ(number("xRSSI:-3", "RSSI:"), (Number{0, -3})) << "within a word";
    EXPECT_EQ(number("RSRSSI:-4", "RSSI:"), (Number{0, -4})) << "behind its own beginning";
}

TEST(SierraInteger, numbers_beyond_32_bits) {
    EXPECT_EQ(number("N:2147483647", "N:"), (Number{0, INT32_MAX}));
    EXPECT_EQ(number("N:2147483648", "N:"), (Number{0, INT32_MAX}));
    EXPECT_EQ(number("N:-2147483648", "N:"), (Number{0, INT32_MIN}));
    EXPECT_EQ(number("N:-2147483649", "N:"), (Number{0, INT32_MIN}));
    EXPECT_EQ(number("N:4294967295", "N:"), (Number{0, INT32_MAX}));
    EXPECT_EQ(number("N:9223372036854775808", "N:"), (Number{0, INT32_MAX}));
    EXPECT_EQ(number("N:" + std::string(5000, '9'), "N:"), (Number{0, INT32_MAX}));
    EXPECT_EQ(number("N:-" + std::string(5000, '9'), "N:"), (Number{0, INT32_MIN}));
    EXPECT_EQ(number("N:" + std::string(5000, '0') + "5", "N:"), (Number{0, 5}));
    EXPECT_EQ(number("N:" + std::string(5000, ' ') + "5", "N:"), (Number{0, 5}));
}

// --- Texts ---

TEST(SierraLabel, em7455_values) {
    const std::string reply = recorded_reply("sierra-em7455/gstatus--lte-ca-active-tabs");
    EXPECT_EQ(text(reply, "PS state:"), (Text{0, "Attached"}));
    EXPECT_EQ(text(reply, "LTE Scell band:"), (Text{0, "B12"})) << "no blank behind the colon";
    EXPECT_EQ(text(reply, "TAC:"), (Text{0, "7B21 (31521)"})) << "a blank within";
    EXPECT_EQ(text(reply, "IMS reg state:"), (Text{0, "No Srv"}));
    EXPECT_EQ(text(reply, "!GSTATUS:"), (Text{0, ""})) << "a blank alone";
    EXPECT_EQ(text(reply, "SINR (dB):"), (Text{0, "23.8"}));
}

TEST(SierraLabel, em7455_columns_of_blanks_are_one_value) {
    const std::string reply = recorded_reply("sierra-em7455/gstatus--lte-ca-active-blank-aligned");
    EXPECT_EQ(text(reply, "LTE band:"), (Text{0, "B2           LTE bw:      20 MHz"}));
    EXPECT_EQ(text(reply, "!GSTATUS:"), NO_TEXT) << "the line ends with the colon";
}

TEST(SierraLabel, a_tab_or_a_line_end_ends_a_value) {
    for (const char *end : {"\t", "\r", "\n", "\r\n", "\t\t", "\tother:  value", "\r\nvalue", ""}) {
        EXPECT_EQ(text("K:value" + std::string(end), "K:"), (Text{0, "value"})) << end;
        EXPECT_EQ(text("K:" + std::string(end), "K:"), NO_TEXT) << end;
        EXPECT_EQ(text("K:    " + std::string(end), "K:"), (Text{0, ""})) << end;
    }
}

TEST(SierraLabel, blanks_around_a_value_are_no_part_of_it) {
    EXPECT_EQ(text("K:  a value  \r\n", "K:"), (Text{0, "a value"}));
    EXPECT_EQ(text("K: a", "K:"), (Text{0, "a"}));
    EXPECT_EQ(text("K:a ", "K:"), (Text{0, "a"}));
    EXPECT_EQ(text("K:\va\f", "K:"), (Text{0, "\va\f"})) << "other white space is";
    EXPECT_EQ(text("K:\ta", "K:"), NO_TEXT);
}

TEST(SierraLabel, occurrences_from_left_to_right) {
    const std::string reply = "K:a\tK:b\r\nK: \tK:\tK:c";
    EXPECT_EQ(text(reply, "K:", 0), (Text{0, "a"}));
    EXPECT_EQ(text(reply, "K:", 1), (Text{0, "b"}));
    EXPECT_EQ(text(reply, "K:", 2), (Text{0, ""}));
    EXPECT_EQ(text(reply, "K:", 3), NO_TEXT);
    EXPECT_EQ(text(reply, "K:", 4), (Text{0, "c"})) << "behind one without a value";
    EXPECT_EQ(text(reply, "K:", 5), NO_TEXT);
    EXPECT_EQ(text(reply, "K:", 1000000), NO_TEXT);
}

TEST(SierraLabel, the_next_occurrence_is_sought_behind_the_label) {
    EXPECT_EQ(text("aaaa.", "aa", 0), (Text{0, "aa."}));
    EXPECT_EQ(text("aaaa.", "aa", 1), (Text{0, "."}));
    EXPECT_EQ(text("aaaa.", "aa", 2), NO_TEXT);
    EXPECT_EQ(text("K:K:value", "K:", 0), (Text{0, "K:value"})) << "a label within a value";
    EXPECT_EQ(text("K:K:value", "K:", 1), (Text{0, "value"}));
}

TEST(SierraLabel, the_label_is_missing_or_at_the_very_end) {
    for (const char *reply : {"", "K", "k:value", "K :value", "value"}) {
        EXPECT_EQ(text(reply, "K:"), NO_TEXT) << reply;
    }
    EXPECT_EQ(text("value K:", "K:"), NO_TEXT);
    EXPECT_EQ(text("K:value K:", "K:", 1), NO_TEXT);
    EXPECT_EQ(text("value K: ", "K:"), (Text{0, ""}));
}

TEST(SierraLabel, values_of_up_to_100_characters) {
    for (const size_t length : {99, 100, 101, 102, 300, 100000}) {
        const std::string sent(length, 'v');
        const std::string kept(std::min<size_t>(length, 100), 'v');
        EXPECT_EQ(text("K:" + sent, "K:"), (Text{0, kept})) << length;
        EXPECT_EQ(text("K:" + sent + "\r\n", "K:"), (Text{0, kept})) << length;
    }
}

TEST(SierraLabel, blanks_count_among_the_100_characters) {
    EXPECT_EQ(text("K:" + std::string(50, ' ') + std::string(300, 'v'), "K:"), (Text{0, std::string(50, 'v')}));
    EXPECT_EQ(text("K:" + std::string(99, ' ') + "value", "K:"), (Text{0, "v"}));
    EXPECT_EQ(text("K:" + std::string(100, ' ') + "value", "K:"), (Text{0, ""}));
    EXPECT_EQ(text("K:" + std::string(90, 'v') + std::string(200, ' ') + "w", "K:"), (Text{0, std::string(90, 'v')}));
}

TEST(SierraLabel, any_bytes) {
    EXPECT_EQ(text("K: \xff\xfe\x80 \x01\x7f\r", "K:"), (Text{0, "\xff\xfe\x80 \x01\x7f"}));
    EXPECT_EQ(text("K:\xc3\xa4\t", "K:"), (Text{0, "\xc3\xa4"}));
    EXPECT_EQ(text("K:\xa0\t", "K:"), (Text{0, "\xa0"})) << "no blank";
}

TEST(SierraLabel, as_scanf_reads_them) {
    for (const RecordedReply &recorded : recorded_replies()) {
        for (const char *label : {":", "RSRP (dBm):", "PS state:", "\n", "0"}) {
            size_t found = recorded.wire.find(label);
            for (size_t occurrence = 0; found != std::string::npos; occurrence++) {
                const char *behind = recorded.wire.c_str() + found + strlen(label);
                char sent[101] = {};
                const bool read = sscanf(behind, "%100[^\r\n\t]", sent) == 1;
                std::string value = sent;
                value.erase(value.find_last_not_of(' ') + 1);
                value.erase(0, value.find_first_not_of(' '));
                ASSERT_EQ(text(recorded.wire, label, occurrence), (read ? Text{0, value} : NO_TEXT))
                    << recorded.name << " " << label << " " << occurrence;
                found = recorded.wire.find(label, found + strlen(label));
            }
        }
    }
}

using SierraLabelDeathTest = testing::Test;

TEST(SierraLabelDeathTest, a_buffer_that_is_too_small) {
    char value[5] = {};
    EXPECT_EQ(sierra_read_label("K: four \r\n", "K:", 0, value), 0);
    EXPECT_STREQ(value, "four");
    EXPECT_DEATH(sierra_read_label("K: fives\r\n", "K:", 0, value), "");
}

} // namespace
