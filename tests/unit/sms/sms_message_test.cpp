// Message files of the spool: those recorded from the daemon, and those that are cut, odd or hostile.
#include "sms/sms_message.h"

#include <cstring>
#include <iconv.h>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/json.h"
#include "platform/owners.h"
#include "support/json_text.h"
#include "support/replies.h"

namespace {

constexpr size_t LONGEST_BODY = 2048;

Json read(const std::string &text) {
    Json message(json_object_new_object());
    std::string copy = text;
    const File file(fmemopen(copy.data(), copy.size(), "r"));
    EXPECT_NE(file, nullptr);
    if (file != nullptr) {
        read_sms_message(file.get(), message.get());
    }
    return message;
}

std::string read_as_json(const std::string &text) {
    return plain_json(read(text).get());
}

std::string body_of(const std::string &text) {
    const Json message = read(text);
    const char *body = vjson_get_string(message.get(), "body");
    return body != nullptr ? body : "(none)";
}

// In the byte order that the C library means by "UCS2".
std::string ucs2(std::string text) {
    iconv_t converter = iconv_open("UCS2", "UTF-8");
    EXPECT_NE(converter, reinterpret_cast<iconv_t>(-1));
    std::string out(text.size() * 4, '\0');
    char *in_at = text.data();
    char *out_at = out.data();
    size_t in_left = text.size();
    size_t out_left = out.size();
    EXPECT_EQ(iconv(converter, &in_at, &in_left, &out_at, &out_left), 0u);
    iconv_close(converter);
    out.resize(out.size() - out_left);
    return out;
}

std::string ucs2_message(const std::string &length, const std::string &body) {
    return "Alphabet: UCS2\nLength: " + length + "\n\n" + body;
}

std::string repeated(std::string_view text, size_t times) {
    std::string all;
    for (size_t count = 0; count < times; count++) {
        all += text;
    }
    return all;
}

std::string from_hex(std::string_view digits) {
    std::string bytes;
    for (size_t at = 0; at + 1 < digits.size(); at += 2) {
        bytes += static_cast<char>(std::stoi(std::string(digits.substr(at, 2)), nullptr, 16));
    }
    return bytes;
}

// Recorded files

TEST(SmsMessage, smsd_iso_from_an_international_number) {
    EXPECT_EQ(read_as_json(recorded_reply("smstools3-spool/incoming--iso-international-length50")),
              R"({"from":"90000000017\n","type":"international","time":"26-10-01 12:34:56\n",)"
              R"("body":"This body is made up and has exactly fifty letters\n"})");
}

TEST(SmsMessage, smsd_with_imei_line_and_a_length_beyond_the_text) {
    EXPECT_EQ(read_as_json(recorded_reply("smstools3-spool/incoming--imei-header-report-yes")),
              R"({"from":"900000000017\n","type":"international","time":"18-04-12 10:37:27\n","body":"Test 2\n"})");
}

TEST(SmsMessage, smsd_incomplete_multipart) {
    EXPECT_EQ(body_of(recorded_reply("smstools3-spool/incoming--iso-multipart-incomplete")), "first part only, \n");
}

TEST(SmsMessage, older_smsd_without_type_of_address_and_length) {
    EXPECT_EQ(read_as_json(recorded_reply("smstools3-spool/incoming--minimal-headers-no-toa-no-length")),
              R"({"from":"900000000017\n","time":"25-12-12 12:00:00\n","body":"Hello World!\n"})");
}

TEST(SmsMessage, smsd_utf8_with_a_length_below_the_text) {
    EXPECT_EQ(body_of(recorded_reply("smstools3-spool/incoming--utf8-international-length-mismatch")),
              "Wiadomosc dla Morfitronik\n");
}

TEST(SmsMessage, smsd_ucs2_from_a_name) {
    std::string text = recorded_reply("smstools3-spool/incoming--ucs2-alphanumeric-body-as-hex");
    const size_t body = text.find("\n\n") + 2;
    const std::string big_endian = from_hex(std::string_view(text).substr(body));
    // Recorded in network order; the C library of this host may mean the other one.
    std::string utf8;
    for (size_t at = 1; at < big_endian.size(); at += 2) {
        utf8 += big_endian[at];
    }
    EXPECT_EQ(read_as_json(text.substr(0, body) + ucs2(utf8)),
              R"({"from":"From Three\n","type":"unknown","time":"16-07-17 17:13:31\n",)"
              R"("body":"Not having signal indoors sucks."})");
}

TEST(SmsMessage, smsd_status_report_whose_body_looks_like_a_header) {
    EXPECT_EQ(read_as_json(recorded_reply("smstools3-spool/report--status-report-message")),
              R"({"from":"900000000017\n","time":"02-01-21 22:26:23\n","body":"SMS STATUS REPORT\nMessage_id: 117\n)"
              R"(Discharge_timestamp: 02-01-21 22:27:02\nStatus: 0,Ok,short message received by the SME\n"})");
}

TEST(SmsMessage, every_prefix_of_every_recorded_file_gives_a_message) {
    for (const RecordedReply &reply : recorded_replies()) {
        if (!reply.name.starts_with("smstools3-spool/")) {
            continue;
        }
        for (size_t length = 0; length <= reply.wire.size(); length++) {
            const Json message = read(reply.wire.substr(0, length));
            ASSERT_NE(vjson_get_string(message.get(), "body"), nullptr) << reply.name << " " << length;
        }
    }
}

TEST(SmsMessage, every_recorded_reply_of_a_modem_gives_a_message) {
    for (const RecordedReply &reply : recorded_replies()) {
        const Json message = read(reply.wire);
        ASSERT_NE(vjson_get_string(message.get(), "body"), nullptr) << reply.name;
    }
}

// The header

TEST(SmsMessage, a_from_line_holding_a_number_gives_the_number_and_the_line_feed) {
    EXPECT_EQ(read_as_json("From: 4917000000\n\n"), R"({"from":"4917000000\n","body":""})");
}

TEST(SmsMessage, a_file_without_an_empty_line_has_an_empty_body) {
    EXPECT_EQ(read_as_json("From: 1\nthis is no body\n"), R"({"from":"1\n","body":""})");
}

TEST(SmsMessage, a_file_without_a_header_has_only_a_body) {
    EXPECT_EQ(read_as_json("\nonly a body"), R"({"body":"only a body"})");
    EXPECT_EQ(read_as_json(""), R"({"body":""})");
    EXPECT_EQ(read_as_json("\n"), R"({"body":""})");
}

TEST(SmsMessage, a_file_without_line_ends_is_one_header_line) {
    EXPECT_EQ(read_as_json("From: 1"), R"({"from":"1","body":""})");
    EXPECT_EQ(read_as_json("no header, no line end"), R"({"body":""})");
}

TEST(SmsMessage, an_empty_line_that_ends_in_cr_lf_does_not_end_the_header) {
    EXPECT_EQ(read_as_json("From: 1\r\n\r\nSent: 2\r\n\nbody"), R"({"from":"1\r\n","time":"2\r\n","body":"body"})");
}

TEST(SmsMessage, keys_come_in_the_order_of_their_lines) {
    EXPECT_EQ(read_as_json("Sent: s\nFrom_TOA: 91 international\nFrom: f\n\n"),
              R"({"time":"s\n","type":"international","from":"f\n","body":""})");
}

TEST(SmsMessage, the_last_of_two_equal_lines_counts) {
    EXPECT_EQ(read_as_json("From: a\nSent: s\nFrom: b\n\n"), R"({"from":"b\n","time":"s\n","body":""})");
}

TEST(SmsMessage, types_of_address) {
    EXPECT_EQ(read_as_json("From_TOA: A1 national, ISDN/telephone\n\n"), R"({"type":"national","body":""})");
    EXPECT_EQ(read_as_json("From_TOA: 91 international, ISDN\n\n"), R"({"type":"international","body":""})");
    EXPECT_EQ(read_as_json("From_TOA: national, then international\n\n"), R"({"type":"international","body":""})");
    EXPECT_EQ(read_as_json("From_TOA: D0 alphanumeric, unknown\n\n"), R"({"type":"unknown","body":""})");
    EXPECT_EQ(read_as_json("From_TOA: \n\n"), R"({"type":"unknown","body":""})");
}

TEST(SmsMessage, a_label_is_found_anywhere_and_the_value_is_taken_from_the_seventh_character) {
    EXPECT_EQ(read_as_json("Reply-From: x\n\n"), R"({"from":"From: x\n","body":""})");
    EXPECT_EQ(read_as_json("From: \n\n"), R"({"from":"\n","body":""})");
    EXPECT_EQ(read_as_json("From: "), R"({"from":"","body":""})");
}

TEST(SmsMessage, the_first_label_of_the_table_decides) {
    EXPECT_EQ(read_as_json("Sent: From: \n\n"), R"({"from":"From: \n","body":""})");
    EXPECT_EQ(read_as_json("From_TOA: Sent: international\n\n"), R"({"time":"OA: Sent: international\n","body":""})");
}

TEST(SmsMessage, a_label_needs_its_blank) {
    EXPECT_EQ(read_as_json("From:1\nSent:2\nFrom_TOA:national\n\nb"), R"({"body":"b"})");
}

TEST(SmsMessage, a_nul_ends_the_text_of_its_line_only) {
    using namespace std::string_literals;
    EXPECT_EQ(read_as_json("From: 12\0Sent: 34\nSent: 5\n\0\n\nbody\0more"s),
              R"({"from":"12","time":"5\n","body":"body"})");
}

TEST(SmsMessage, a_header_line_of_megabytes) {
    const std::string line(10'000'000, 'x');
    EXPECT_EQ(read_as_json("From: 1\n" + line + "\nSent: 2\n\nb"), R"({"from":"1\n","time":"2\n","body":"b"})");
    EXPECT_EQ(read_as_json(line), R"({"body":""})");
}

TEST(SmsMessage, bytes_that_are_no_utf8_come_as_replacement_characters) {
    EXPECT_EQ(read_as_json("From: \xFF\n\nGr\xFC\xDF"
                           "e"),
              "{\"from\":\"\uFFFD\\n\",\"body\":\"Gr\uFFFD\uFFFDe\"}");
}

// The body

TEST(SmsMessage, a_body_is_cut_after_2048_bytes) {
    const std::string header = "Length: 3000\n\n";
    EXPECT_EQ(body_of(header + std::string(LONGEST_BODY, 'a')), std::string(LONGEST_BODY, 'a'));
    EXPECT_EQ(body_of(header + std::string(LONGEST_BODY + 1, 'a')), std::string(LONGEST_BODY, 'a'));
    EXPECT_EQ(body_of(header + std::string(10'000'000, 'a')), std::string(LONGEST_BODY, 'a'));
}

TEST(SmsMessage, the_length_does_not_cut_a_body_that_is_not_ucs2) {
    EXPECT_EQ(body_of("Length: 2\n\nabcdef"), "abcdef");
    EXPECT_EQ(body_of("Alphabet: ISO\nLength: 0\n\nabcdef"), "abcdef");
}

TEST(SmsMessage, ucs2_of_one_two_and_three_bytes) {
    EXPECT_EQ(body_of(ucs2_message("4", ucs2("aß€你"))), "aß€你");
}

TEST(SmsMessage, a_ucs2_message_whose_length_line_is_missing_shows_an_empty_body) {
    EXPECT_EQ(read_as_json("Alphabet: UCS2\n\n" + ucs2("abc")), R"({"body":""})");
}

TEST(SmsMessage, ucs2_anywhere_in_the_alphabet_line_and_once_is_enough) {
    EXPECT_EQ(body_of("Alphabet: xUCS2x\nLength: 1\n\n" + ucs2("a")), "a");
    EXPECT_EQ(body_of("Alphabet: UCS2\nAlphabet: ISO\nLength: 1\n\n" + ucs2("a")), "a");
    EXPECT_EQ(body_of("Alphabet: UCS-2\nLength: 1\n\nab"), "ab");
}

TEST(SmsMessage, three_bytes_of_ucs2_and_of_utf8_for_each_of_its_length) {
    // 3 bytes in: one character and half of the next.
    EXPECT_EQ(body_of(ucs2_message("1", ucs2("abc"))), "a");
    // 6 bytes in: three characters of one byte each.
    EXPECT_EQ(body_of(ucs2_message("2", ucs2("abcdef"))), "abc");
    // 6 bytes out: two characters of three bytes each.
    EXPECT_EQ(body_of(ucs2_message("2", ucs2("你你你"))), "你你");
}

TEST(SmsMessage, odd_lengths_of_ucs2) {
    const std::string body = ucs2("abc");
    EXPECT_EQ(body_of(ucs2_message("0", body)), "");
    EXPECT_EQ(body_of(ucs2_message("-1", body)), "");
    EXPECT_EQ(body_of(ucs2_message("-99999999999999999999", body)), "");
    EXPECT_EQ(body_of(ucs2_message("", body)), "");
    EXPECT_EQ(body_of(ucs2_message("three", body)), "");
    EXPECT_EQ(body_of(ucs2_message("  +3 and more", body)), "abc");
    EXPECT_EQ(body_of(ucs2_message("3x", body)), "abc");
    EXPECT_EQ(body_of(ucs2_message("2147483647", body)), "abc");
    EXPECT_EQ(body_of(ucs2_message("99999999999999999999999999", body)), "abc");
}

TEST(SmsMessage, the_number_is_read_only_behind_a_label_at_the_start_of_the_line) {
    const std::string body = ucs2("abc");
    EXPECT_EQ(body_of("Alphabet: UCS2\nMessage-Length: 3\n\n" + body), "");
    EXPECT_EQ(body_of("Alphabet: UCS2\nLength:3 Length: \n\n" + body), "abc");
    EXPECT_EQ(body_of("Alphabet: UCS2\nLength:3\n\n" + body), "");
}

TEST(SmsMessage, a_number_stays_when_a_later_length_line_has_none) {
    EXPECT_EQ(body_of("Alphabet: UCS2\nLength: 3\nLength: ?\n\n" + ucs2("abc")), "abc");
}

TEST(SmsMessage, of_a_ucs2_body_at_most_2048_bytes_are_read) {
    const std::string text = repeated("abcdefgh", 1000);
    EXPECT_EQ(body_of(ucs2_message("8000", ucs2(text))), text.substr(0, 1024));
}

TEST(SmsMessage, a_ucs2_body_that_keeps_its_size_in_utf8_is_whole) {
    EXPECT_EQ(body_of(ucs2_message("1024", ucs2(repeated("ж", 1024)))), repeated("ж", 1024));
}

TEST(SmsMessage, a_ucs2_body_that_grows_in_utf8_is_cut_between_characters) {
    EXPECT_EQ(body_of(ucs2_message("1024", ucs2(repeated("你", 1024)))), repeated("你", LONGEST_BODY / 3));
}

TEST(SmsMessage, what_came_before_an_invalid_sequence_of_ucs2_stays) {
    std::string body = ucs2("ab");
    const char16_t lone_surrogate = 0xD800;
    body.append(reinterpret_cast<const char *>(&lone_surrogate), sizeof(lone_surrogate));
    EXPECT_EQ(body_of(ucs2_message("4", body + ucs2("c"))), "ab");
}

TEST(SmsMessage, a_ucs2_flag_on_a_text_of_single_bytes_gives_valid_utf8) {
    const std::string text = recorded_reply("smstools3-spool/incoming--alphanumeric-sender-ucs2-as-8bit-text");
    const std::string body = body_of(text);
    EXPECT_FALSE(body.empty());
    EXPECT_THAT(body, testing::Not(testing::HasSubstr("\uFFFD")));
}

} // namespace
