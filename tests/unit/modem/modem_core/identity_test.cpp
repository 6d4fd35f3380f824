// What replies say of modem and SIM, without a modem.
#include "modem/modem_core/identity.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/replies.h"

namespace {

// A result and the text that a zero-filled buffer of `size` bytes then holds.
struct Parsed {
    int result;
    std::string text;
    bool operator==(const Parsed &) const = default;
};
void PrintTo(const Parsed &parsed, std::ostream *out) {
    *out << parsed.result << " \"" << parsed.text << "\"";
}

using Parser = int (*)(const char *reply, std::span<char> out);

Parsed parsed(Parser parser, const std::string &reply, size_t size) {
    std::vector<char> buffer(size);
    const int result = parser(reply.c_str(), buffer);
    const std::string text(buffer.begin(), buffer.end());
    return {result, text.substr(0, text.find('\0'))};
}

Parsed imei(const std::string &reply) {
    return parsed(parse_imei, reply, IMEI_BUFFER_SIZE);
}
Parsed identity(const std::string &reply) {
    return parsed(parse_identity, reply, IDENTITY_SIZE);
}
Parsed imsi(const std::string &reply) {
    return parsed(parse_first_digits, reply, IMSI_LENGTH);
}
Parsed iccid(const std::string &reply) {
    return parsed(parse_first_digits, reply, ICCID_LENGTH);
}

TEST(Imei, ec25_bare_and_with_echo) {
    EXPECT_EQ(imei("\r\n350000000000017\r\n\r\nOK\r\n"), (Parsed{0, "350000000000017"}));
    EXPECT_EQ(imei("AT+GSN\r\r\n350000000000017\r\n\r\nOK\r\n"), (Parsed{0, "350000000000017"}));
}

TEST(Imei, l850_recorded) {
    EXPECT_EQ(imei(recorded_reply("fibocom-l850/cgsn--bare")), (Parsed{0, "350000000000017"}));
}

TEST(Imei, digits_on_both_sides_of_something_else_are_joined) {
    EXPECT_EQ(imei("35-000000-000001-7\r\nOK\r\n"), (Parsed{0, "350000000000017"}));
    EXPECT_EQ(imei("+GSN: \"350000000000017\",02\r\nOK\r\n"), (Parsed{0, "35000000000001702"}));
}

TEST(Imei, fewer_than_15_digits_fail) {
    EXPECT_EQ(imei("35000000000001\r\nOK\r\n"), (Parsed{-1, "35000000000001"}));
    EXPECT_EQ(imei("\r\nOK\r\n"), (Parsed{-1, ""}));
    EXPECT_EQ(imei(""), (Parsed{-1, ""}));
}

TEST(Imei, the_35_digits_of_the_longest_reply_have_room) {
    const std::string digits(IMEI_BUFFER_SIZE - 1, '7');
    EXPECT_EQ(imei(digits), (Parsed{0, digits}));
}

TEST(Imei, a_buffer_without_room_aborts) {
    EXPECT_ABORT(parsed(parse_imei, "350000000000017", 14));
}

TEST(Identity, a_revision_keeps_its_leading_blank_and_its_carriage_return) {
    EXPECT_EQ(identity("\r\nQuectel\r\nEC25\r\nRevision: EC25EFAR06A03M4G\r\n\r\nOK\r\n"),
              (Parsed{0, " EC25EFAR06A03M4G\r"}));
}

TEST(Identity, a_model_goes_before_a_revision_wherever_they_stand) {
    EXPECT_EQ(identity("Model: MC7430\r\nRevision: SWI9X30C\r\nOK\r\n"), (Parsed{0, " MC7430\r"}));
    EXPECT_EQ(identity("Revision: SWI9X30C\r\nModel: MC7430\r\nOK\r\n"), (Parsed{0, " MC7430\r"}));
}

TEST(Identity, a_value_without_a_line_feed_goes_to_the_end) {
    EXPECT_EQ(identity("Revision:EC25"), (Parsed{0, "EC25"}));
}

TEST(Identity, an_empty_value_fails_even_where_the_revision_would_have_one) {
    EXPECT_EQ(identity("Model:\nRevision: SWI9X30C\nOK\r\n"), (Parsed{-1, ""}));
    EXPECT_EQ(identity("Model:"), (Parsed{-1, ""}));
    EXPECT_EQ(identity("Revision:\n"), (Parsed{-1, ""}));
    EXPECT_EQ(identity("Revision:\r\n"), (Parsed{0, "\r"}));
}

TEST(Identity, neither_model_nor_revision) {
    EXPECT_EQ(identity("\r\nOK\r\n"), (Parsed{-1, ""}));
    EXPECT_EQ(identity("model: x\nREVISION: y\n"), (Parsed{-1, ""}));
    EXPECT_EQ(identity("Mode"), (Parsed{-1, ""}));
    EXPECT_EQ(identity(""), (Parsed{-1, ""}));
}

TEST(Identity, a_long_value_is_cut_to_199_bytes) {
    EXPECT_EQ(identity("Model:" + std::string(199, 'm') + "\n"), (Parsed{0, std::string(199, 'm')}));
    EXPECT_EQ(identity("Model:" + std::string(300, 'm') + "\n"), (Parsed{0, std::string(199, 'm')}));
}

TEST(Identity, recorded) {
    const std::pair<const char *, const char *> expected[] = {
        {"quectel-ec20/ati--ec20cefrsg", " EC20CEFRSGR08A03M2G\r"},
        {"quectel-ec20/ati-csub--echo-ec20eqar02", " EC20EQAR02A11E2G\r"},
        {"quectel-ec200u/ati", " EC200UEUAAR02A02M08_HJ\r"},
        {"quectel-uc20/ati--echo-lowercase", " UC20GQCR03A16E1G\r"},
        {"sierra-mc7455/ati--swi9x30c-0233", " MC7455\r"},
        {"simcom-sim7600/ati--sim7600m22-echo", " SIMCOM_SIM7600G-H\r"},
        {"fibocom-fm160/ati", " FM160-CN\r"},
        {"zte-zm9000/ati--b17", " ZM9000\r"},
        // Lines that end with a carriage return alone are one line.
        {"simcom-sim7600/ati--lone-cr-line-ends", " SIMCOM_SIM7600C\rRevision: SIM7600C _V1.0\rIMEI: "
                                                  "350000000000017\r+GCAP: +CGSM,+FCLASS,+DS\rOK\r"},
    };
    for (const auto &[name, text] : expected) {
        EXPECT_EQ(identity(recorded_reply(name)), (Parsed{0, text})) << name;
    }
}

TEST(Imsi, ec20_recorded_with_echo) {
    EXPECT_EQ(imsi(recorded_reply("quectel-ec20/cimi--echo")), (Parsed{0, "460040000000017"}));
}

TEST(Imsi, sixteen_digits_give_the_first_15) {
    EXPECT_EQ(imsi("\r\n2620200000000179\r\nOK\r\n"), (Parsed{0, "262020000000017"}));
}

TEST(Imsi, fourteen_digits_fail) {
    EXPECT_EQ(imsi("\r\n26202000000001\r\nOK\r\n"), (Parsed{-1, "26202000000001"}));
    EXPECT_EQ(imsi("26202000000001"), (Parsed{-1, "26202000000001"}));
}

TEST(Imsi, the_first_digits_decide) {
    EXPECT_EQ(imsi("+QIND: 1\r\n262020000000017\r\nOK\r\n"), (Parsed{-1, "1"}));
    EXPECT_EQ(imsi("26202 0000000017\r\nOK\r\n"), (Parsed{-1, "26202"}));
}

TEST(Imsi, no_digits_at_all) {
    EXPECT_EQ(imsi("\r\nOK\r\n"), (Parsed{-1, ""}));
    EXPECT_EQ(imsi(""), (Parsed{-1, ""}));
}

TEST(Iccid, twenty_digits) {
    EXPECT_EQ(iccid("AT+QCCID\r\r\n+QCCID: 89354020000000000017\r\n\r\nOK\r\n"), (Parsed{0, "89354020000000000017"}));
}

TEST(Iccid, nineteen_digits_and_the_letter_f_fail) {
    EXPECT_EQ(iccid(recorded_reply("quectel-ec25/qccid--trailing-F")), (Parsed{-1, "8901260000000000017"}));
    EXPECT_EQ(iccid(recorded_reply("quectel-ep06/qccid--echo-trailing-F")), (Parsed{-1, "8939000000000000017"}));
}

TEST(Digits, only_the_ten_of_ascii) {
    EXPECT_TRUE(is_all_digits("0123456789"));
    EXPECT_TRUE(is_all_digits(""));
    EXPECT_FALSE(is_all_digits("12a"));
    EXPECT_FALSE(is_all_digits("\xb2"));
    EXPECT_FALSE(is_all_digits({"12\0", 3}));
}

// Every beginning of every recorded reply, in a buffer that ends with its NUL, into buffers of just the promised size.
TEST(Identity, every_beginning_of_every_recorded_reply) {
    for (const RecordedReply &reply : recorded_replies()) {
        for (size_t length = 0; length <= reply.wire.size(); length++) {
            const std::vector<char> beginning = [&] {
                std::vector<char> bytes(reply.wire.begin(), reply.wire.begin() + static_cast<ptrdiff_t>(length));
                bytes.push_back('\0');
                return bytes;
            }();
            std::vector<char> name(IDENTITY_SIZE);
            if (parse_identity(beginning.data(), name) == 0) {
                ASSERT_NE(name[0], '\0') << reply.name;
            }
            ASSERT_EQ(name.back(), '\0') << reply.name;
            std::vector<char> digits(ICCID_LENGTH);
            if (parse_first_digits(beginning.data(), digits) == 0) {
                ASSERT_TRUE(is_all_digits({digits.data(), digits.size()})) << reply.name;
            }
            std::vector<char> joined(beginning.size());
            if (parse_imei(beginning.data(), joined) == 0) {
                ASSERT_TRUE(is_all_digits({joined.data(), IMEI_LENGTH})) << reply.name;
            }
        }
    }
}

} // namespace
