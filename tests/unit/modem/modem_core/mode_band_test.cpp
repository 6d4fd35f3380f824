// Network mode and bands: what replies say, word by word and mask by mask.
#include "modem/modem_core/mode_band.h"

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/aborts.h"
#include "support/child.h"
#include "support/json_text.h"
#include "support/replies.h"

namespace {

using ModeReader = const char *(*)(const char *reply);

constexpr const char *NONE = "(none)";

std::string mode(ModeReader read, const std::string &reply) {
    const char *text = read(reply.c_str());
    return text == nullptr ? NONE : text;
}

// The mode for a reply that names `word`, in the dialect's way of saying it.
std::string quectel(const std::string &word) {
    return mode(read_quectel_mode, "\r\n+QNWINFO: \"" + word + "\",\"26202\",\"\",1300\r\n\r\nOK\r\n");
}
std::string zte(const std::string &word) {
    return mode(read_zte_mode, "\r\n+ZPAS: \"" + word + "\",\"CS_PS\"\r\n\r\nOK\r\n");
}
std::string simcom(const std::string &number) {
    return mode(read_simcom_mode, "\r\n+CNSMOD: 0," + number + "\r\n\r\nOK\r\n");
}

// Generation in use.

TEST(QuectelMode, every_word_of_every_generation) {
    for (const char *word : {"LTE", "FDD LTE", "TDD LTE", "HSPA+"}) {
        EXPECT_EQ(quectel(word), "4G") << word;
    }
    for (const char *word :
         {"CDMA", "CDMA1X", "WCDMA", "EVDO", "UMTS", "TD-SCDMA", "TDSCDMA", "HSPA", "HSUPA", "HSDPA", "HDR"}) {
        EXPECT_EQ(quectel(word), "3G") << word;
    }
    for (const char *word : {"GSM", "GPRS", "EDGE"}) {
        EXPECT_EQ(quectel(word), "2G") << word;
    }
}

TEST(QuectelMode, hspa_plus_counts_as_4g) {
    EXPECT_EQ(quectel("HSPA+"), "4G");
    EXPECT_EQ(quectel("HSPA"), "3G");
}

TEST(QuectelMode, cdma_is_3g) {
    EXPECT_EQ(quectel("CDMA"), "3G");
}

TEST(QuectelMode, the_strongest_word_decides_wherever_it_stands) {
    EXPECT_EQ(mode(read_quectel_mode, "GSM HSDPA LTE"), "4G");
    EXPECT_EQ(mode(read_quectel_mode, "LTE HSDPA GSM"), "4G");
    EXPECT_EQ(mode(read_quectel_mode, "GSM HSDPA"), "3G");
    EXPECT_EQ(mode(read_quectel_mode, R"(+QNWINFO: "EDGE","26202","LTE BAND 3",1300)"), "4G");
}

TEST(QuectelMode, no_known_word) {
    for (const char *word : {"", "NONE", "No Service", "NR5G-SA", "lte", "L TE", "HS", "gsm"}) {
        EXPECT_EQ(quectel(word), NONE) << word;
    }
    EXPECT_EQ(mode(read_quectel_mode, ""), NONE);
}

TEST(QuectelMode, the_recorded_ones) {
    const std::pair<const char *, const char *> expected[] = {
        {"quectel-ec25/qnwinfo--hspa-wcdma2100", "4G"},
        {"quectel-bg96/qnwinfo--cat-m1", "4G"}, // its band is an LTE band
        {"quectel-bg96/qnwinfo--edge", "2G"},
        {"quectel-ep06/qnwinfo-qeng-qspn--chained-echo", "4G"},
        {"quectel-rm5xx/qnwinfo-qcainfo-qeng-qspn--sa-chained", NONE},
    };
    for (const auto &[name, text] : expected) {
        EXPECT_EQ(mode(read_quectel_mode, recorded_reply(name)), text) << name;
    }
}

TEST(ZteMode, every_word_of_every_generation) {
    for (const char *word : {"LTE", "HSPA+"}) {
        EXPECT_EQ(zte(word), "4G") << word;
    }
    for (const char *word : {"EVDO", "UMTS", "TD-SCDMA", "HSPA", "HSUPA", "HSDPA", "EHRPD"}) {
        EXPECT_EQ(zte(word), "3G") << word;
    }
    for (const char *word : {"CDMA", "GSM", "GPRS"}) {
        EXPECT_EQ(zte(word), "2G") << word;
    }
}

TEST(ZteMode, cdma_is_2g) {
    EXPECT_EQ(zte("CDMA"), "2G");
    EXPECT_EQ(zte("WCDMA"), "2G") << "as a text that holds the word";
}

TEST(ZteMode, words_of_quectel_alone_say_nothing) {
    for (const char *word : {"EDGE", "HDR"}) {
        EXPECT_EQ(zte(word), NONE) << word;
    }
}

TEST(ZteMode, no_known_word) {
    for (const char *word : {"", "No Service", "Limited Service", "NR5G-SA", "lte"}) {
        EXPECT_EQ(zte(word), NONE) << word;
    }
    EXPECT_EQ(mode(read_zte_mode, ""), NONE);
}

TEST(ZteMode, the_recorded_ones) {
    EXPECT_EQ(mode(read_zte_mode, recorded_reply("zte-3g/zpas--gprs-cs-ps")), "2G");
    EXPECT_EQ(mode(read_zte_mode, recorded_reply("zte-3g/zpas--hsdpa-cs-ps")), "3G");
    EXPECT_EQ(mode(read_zte_mode, recorded_reply("zte-3g/zpas--limited-service-words")), NONE);
    EXPECT_EQ(mode(read_zte_mode, recorded_reply("zte-zm9000/zpas--nr5g-sa-ps-only")), NONE);
}

TEST(SimcomMode, every_number) {
    constexpr const char *EXPECTED[] = {NONE, "2G", "2G", "2G", "3G", "3G", "3G", "3G", "4G", "3G", "3G", "3G"};
    for (size_t number = 0; number < std::size(EXPECTED); number++) {
        EXPECT_EQ(simcom(std::to_string(number)), EXPECTED[number]) << number;
    }
}

TEST(SimcomMode, numbers_that_are_not_listed) {
    for (const char *number : {"12", "13", "23", "80", "08", "-1", "", "8 "}) {
        EXPECT_EQ(simcom(number), NONE) << number;
    }
}

TEST(SimcomMode, the_number_ends_with_a_carriage_return) {
    EXPECT_EQ(mode(read_simcom_mode, "+CNSMOD: 0,8\r"), "4G");
    EXPECT_EQ(mode(read_simcom_mode, "+CNSMOD: 0,8\nOK\n"), NONE);
    EXPECT_EQ(mode(read_simcom_mode, "+CNSMOD: 0,8"), NONE);
    EXPECT_EQ(mode(read_simcom_mode, "+CNSMOD: 8\r\n"), NONE) << "a comma must be before it";
    EXPECT_EQ(mode(read_simcom_mode, ""), NONE);
}

TEST(SimcomMode, lte_recorded) {
    EXPECT_EQ(mode(read_simcom_mode, recorded_reply("simcom-sim7600/cnsmod--0-8-lte")), "4G");
}

// The scan mode.

TEST(ScanMode, every_value) {
    constexpr const char *EXPECTED[] = {"AUTO", "GSM only", "WCDMA only", "LTE only", NONE,
                                        NONE,   NONE,       NONE,         NONE,       NONE};
    for (size_t value = 0; value < std::size(EXPECTED); value++) {
        const std::string number = std::to_string(value);
        EXPECT_EQ(mode(read_scan_mode, "\r\n+QCFG: \"nwscanmode\"," + number + "\r\n\r\nOK\r\n"), EXPECTED[value]);
    }
}

TEST(ScanMode, the_smallest_digit_of_the_reply_decides_wherever_it_stands) {
    EXPECT_EQ(mode(read_scan_mode, "3 2 1 0"), "AUTO");
    EXPECT_EQ(mode(read_scan_mode, "3 2 1"), "GSM only");
    EXPECT_EQ(mode(read_scan_mode, "3 2"), "WCDMA only");
    EXPECT_EQ(mode(read_scan_mode, "+QIND: 1\r\n+QCFG: \"nwscanmode\",3\r\nOK\r\n"), "GSM only");
}

TEST(ScanMode, no_digit) {
    EXPECT_EQ(mode(read_scan_mode, ""), NONE);
    EXPECT_EQ(mode(read_scan_mode, "\r\nOK\r\n"), NONE);
}

TEST(ScanMode, the_recorded_ones) {
    EXPECT_EQ(mode(read_scan_mode, recorded_reply("quectel-ec25/qcfg-nwscanmode--0")), "AUTO");
    EXPECT_EQ(mode(read_scan_mode, recorded_reply("quectel-ec25/qcfg-nwscanmode--2-umts-only")), "WCDMA only");
    EXPECT_EQ(mode(read_scan_mode, recorded_reply("quectel-bg96/qcfg-nwscanmode--0-no-blank")), "AUTO");
    EXPECT_EQ(mode(read_scan_mode, recorded_reply("quectel-eg25/qcfg-nwscanmode--echo-auto")), "AUTO");
}

// Bands.

constexpr const char *GSM_BANDS = "850MHz 900MHz 1800Mhz 1900MHz ";

std::string bands(const std::string &reply) {
    const Json object(json_object_new_object());
    read_band_configuration(reply.c_str(), object.get());
    return plain_json(object.get());
}

std::string reply_with(const std::string &gsm, const std::string &m1, const std::string &nb2) {
    return "\r\n+QCFG: \"band\",0x" + gsm + ",0x" + m1 + ",0x" + nb2 + "\r\n\r\nOK\r\n";
}

std::string three_texts(const std::string &m1, const std::string &nb2) {
    return std::string(R"({"EGPRS":")") + GSM_BANDS + R"(","Cat M1":")" + m1 + R"(","Cat NB2":")" + nb2 + "\"}";
}

TEST(Bands, gsm_is_a_fixed_text_with_a_lower_case_h_in_its_third_item) {
    EXPECT_EQ(bands(reply_with("0", "0", "0")), bands(reply_with("f", "0", "0")));
    EXPECT_NE(bands(reply_with("f", "0", "0")).find("\"EGPRS\":\"850MHz 900MHz 1800Mhz 1900MHz \""), std::string::npos);
}

TEST(Bands, the_same_mask_twice_is_listed_shifted_for_cat_m1_and_as_it_is_for_cat_nb2) {
    EXPECT_EQ(bands(reply_with("f", "80084", "80084")), three_texts("B3 B4 B7 B12 B24 ", "B3 B8 B20 "));
}

TEST(Bands, cat_m1_lists_bands_3_and_4_always_and_each_other_as_its_number_and_4) {
    EXPECT_EQ(bands(reply_with("f", "0", "0")), three_texts("B3 B4 ", ""));
    EXPECT_EQ(bands(reply_with("f", "1", "1")), three_texts("B3 B4 B5 ", "B1 "));
    EXPECT_EQ(bands(reply_with("f", "8000000", "8000000")), three_texts("B3 B4 B32 ", "B28 "));
}

TEST(Bands, bg95_recorded) {
    EXPECT_EQ(bands(recorded_reply("quectel-bg95/qcfg-band--three-fields")),
              three_texts("B3 B4 B5 B6 B7 B8 B9 B12 B16 B17 B22 B23 B24 B29 B30 B31 B32 B70 B89 ",
                          "B1 B2 B3 B4 B5 B8 B12 B13 B18 B19 B20 B25 B28 B66 B71 B85 "));
    EXPECT_EQ(bands(recorded_reply("quectel-bg77/qcfg-band--question-form")),
              bands(recorded_reply("quectel-bg95/qcfg-band--three-fields")));
}

TEST(Bands, every_single_band_that_a_mask_can_hold) {
    for (int band = 1; band <= 156; band++) {
        const char *digit[] = {"1", "2", "4", "8"};
        const std::string mask = digit[(band - 1) % 4] + std::string(static_cast<size_t>(band - 1) / 4, '0');
        const std::string name = "B" + std::to_string(band) + " ";
        EXPECT_EQ(bands(reply_with("f", "0", mask)), three_texts("B3 B4 ", name)) << mask;
        if (mask.size() <= 39) {
            const std::string shifted = "B" + std::to_string(band + 4) + " ";
            EXPECT_EQ(bands(reply_with("f", mask, "0")), three_texts("B3 B4 " + shifted, "")) << mask;
        }
    }
}

TEST(Bands, digits_of_either_case) {
    EXPECT_EQ(bands(reply_with("F", "ABCDEF", "ABCDEF")), bands(reply_with("f", "abcdef", "abcdef")));
}

TEST(Bands, a_gsm_mask_of_7_digits_fits_and_one_of_8_aborts_as_its_comma_counts) {
    EXPECT_EQ(bands(reply_with("0000fff", "0", "0")), three_texts("B3 B4 ", ""));
    EXPECT_ABORT(bands(reply_with("00000fff", "0", "0")));
    EXPECT_ABORT(bands(reply_with("000000fff", "0", "0")));
    EXPECT_ABORT(bands(reply_with(std::string(100000, '0'), "0", "0")));
}

TEST(Bands, a_cat_m1_mask_of_39_digits_fits_and_one_of_40_aborts_as_its_comma_counts) {
    EXPECT_EQ(bands(reply_with("f", std::string(37, '0') + "1", "0")), three_texts("B3 B4 B5 ", ""));
    EXPECT_EQ(bands(reply_with("f", std::string(38, '0') + "1", "0")), three_texts("B3 B4 B5 ", ""));
    EXPECT_ABORT(bands(reply_with("f", std::string(39, '0') + "1", "0")));
    EXPECT_ABORT(bands(reply_with("f", std::string(40, '0') + "1", "0")));
    EXPECT_ABORT(bands(reply_with("f", std::string(100000, '0'), "0")));
}

TEST(Bands, a_cat_nb2_mask_of_40_digits_fits_and_one_of_41_aborts) {
    EXPECT_EQ(bands(reply_with("f", "0", std::string(38, '0') + "1")), three_texts("B3 B4 ", "B1 "));
    EXPECT_EQ(bands(reply_with("f", "0", std::string(39, '0') + "1")), three_texts("B3 B4 ", "B1 "));
    EXPECT_EQ(bands(reply_with("f", "0", "8" + std::string(39, '0'))), three_texts("B3 B4 ", "B160 "));
    EXPECT_ABORT(bands(reply_with("f", "0", std::string(40, '0') + "1")));
    EXPECT_ABORT(bands(reply_with("f", "0", std::string(100000, '0'))));
}

TEST(Bands, names_of_99_characters_fit_and_more_abort) {
    std::string names;
    for (int band = 1; band <= 27; band++) {
        names += "B" + std::to_string(band) + " ";
    }
    ASSERT_EQ(names.size(), 99u);
    EXPECT_EQ(bands(reply_with("f", "0", "7ffffff")), three_texts("B3 B4 ", names));
    EXPECT_ABORT(bands(reply_with("f", "0", "fffffff")));
    EXPECT_ABORT(bands(reply_with("f", std::string(39, 'f'), "0")));
    EXPECT_ABORT(bands(reply_with("f", "0", std::string(40, 'f'))));
}

TEST(Bands, fewer_than_three_masks_or_no_ok_after_them_add_nothing) {
    for (const char *reply :
         {"", "\r\nOK\r\n", "\r\n+QCFG: \"band\",0xf\r\n\r\nOK\r\n", "+QCFG: \"band\",0xf,0x1\r\n\r\nOK\r\n",
          "+QCFG: \"band\",0xf,0x1,0x1\r\n\r\n", "OK ,0xf,0x1,0x1", "+QCFG: \"band\",f,1,1\r\n\r\nOK\r\n",
          "+QCFG: \"band\",0Xf,0X1,0X1\r\n\r\nOK\r\n"}) {
        EXPECT_EQ(bands(reply), "{}") << reply;
    }
}

TEST(Bands, empty_masks) {
    EXPECT_EQ(bands(reply_with("", "", "")), three_texts("B3 B4 ", ""));
}

TEST(Bands, an_ok_sooner_than_4_characters_after_the_third_mask_is_survived) {
    for (const char *end : {"OK\r\n", "1OK\r\n", "\nOK\r\n", "\r\nOK\r\n", "1\r\nOK\r\n", "\n\r\nOK\r\n"}) {
        const Json after = parse_json(bands(std::string("+QCFG: \"band\",0xf,0x0,0x") + end));
        const int members = json_object_object_length(after.get());
        EXPECT_TRUE(members == 0 || members == 3) << end;
    }
}

TEST(Bands, a_reply_cut_after_every_byte_gives_all_or_nothing) {
    const std::string whole = reply_with("f", "80084", "80084");
    for (size_t length = 0; length <= whole.size(); length++) {
        const bool complete = length >= whole.find("OK") + 2;
        EXPECT_EQ(bands(whole.substr(0, length)), complete ? bands(whole) : "{}") << length;
    }
}

TEST(Bands, masks_with_other_characters_are_lists_all_the_same) {
    for (const char *mask : {"zz", "-1", " 1 ", "\x01", "\x7f", "\xff\xfe", "0x1", "\"1\""}) {
        const Json object(json_object_new_object());
        read_band_configuration(reply_with("f", mask, mask).c_str(), object.get());
        EXPECT_EQ(json_object_object_length(object.get()), 3) << mask;
    }
}

// Hexadecimal text.

struct Converted {
    int result;
    std::vector<int> bytes;
    bool operator==(const Converted &) const = default;
};
void PrintTo(const Converted &converted, std::ostream *out) {
    *out << converted.result << " " << testing::PrintToString(converted.bytes);
}

Converted converted(const std::string &text) {
    std::vector<uint8_t> bytes((text.size() + 1) / 2); // just enough
    int count = -1;
    const int result = StringToHex(text, bytes, &count);
    EXPECT_EQ(count, result);
    return {result, {bytes.begin(), bytes.end()}};
}

TEST(HexText, an_odd_number_of_digits_gets_a_0_in_front) {
    EXPECT_EQ(converted("abc"), (Converted{2, {0x0A, 0xBC}}));
    EXPECT_EQ(converted("7"), (Converted{1, {0x07}}));
    EXPECT_EQ(converted("12345"), (Converted{3, {0x01, 0x23, 0x45}}));
}

TEST(HexText, every_digit_in_either_half) {
    EXPECT_EQ(converted("0123456789abcdefABCDEF"),
              (Converted{11, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xAB, 0xCD, 0xEF}}));
    EXPECT_EQ(converted("1032547698badcfeBADCFE"),
              (Converted{11, {0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE, 0xBA, 0xDC, 0xFE}}));
}

TEST(HexText, a_comma_is_12_in_either_half) {
    EXPECT_EQ(converted(",1"), (Converted{1, {0xC1}}));
    EXPECT_EQ(converted("1,"), (Converted{1, {0x1C}}));
    EXPECT_EQ(converted(","), (Converted{1, {0x0C}}));
}

TEST(HexText, every_character_counts_as_its_code_less_55_or_48_in_4_bits) {
    for (int code = 0; code < 256; code++) {
        const int value = (code >= ':' && code <= 'f' ? code - 55 : code - 48) & 0xF;
        const std::string character(1, static_cast<char>(code));
        EXPECT_EQ(converted(character + "0"), (Converted{1, {value << 4}})) << code;
        EXPECT_EQ(converted("0" + character), (Converted{1, {value}})) << code;
    }
}

TEST(HexText, no_digits) {
    EXPECT_EQ(converted(""), (Converted{0, {}}));
}

TEST(HexText, forty_digits_and_39) {
    EXPECT_EQ(converted(std::string(40, 'f')), (Converted{20, std::vector<int>(20, 0xFF)}));
    std::vector<int> with_a_0_in_front(20, 0xFF);
    with_a_0_in_front[0] = 0x0F;
    EXPECT_EQ(converted(std::string(39, 'f')), (Converted{20, with_a_0_in_front}));
}

TEST(HexText, the_count_need_not_be_asked_for) {
    std::array<uint8_t, 2> bytes = {};
    EXPECT_EQ(StringToHex("abc", bytes, nullptr), 2);
    EXPECT_EQ(bytes[1], 0xBC);
}

TEST(HexText, what_is_left_of_the_buffer_stays) {
    std::array<uint8_t, 3> bytes = {0x55, 0x55, 0x55};
    EXPECT_EQ(StringToHex("12", bytes, nullptr), 1);
    EXPECT_EQ(bytes[0], 0x12);
    EXPECT_EQ(bytes[1], 0x55);
    EXPECT_EQ(bytes[2], 0x55);
}

TEST(HexText, a_buffer_without_room_aborts) {
    std::array<uint8_t, 2> bytes = {};
    EXPECT_ABORT(StringToHex("12345", bytes, nullptr));
    EXPECT_ABORT(StringToHex("123456", bytes, nullptr));
    EXPECT_ABORT(StringToHex("1", std::span<uint8_t>(), nullptr));
}

// A modem that is not there.

TEST(ModeAndBand, of_a_modem_that_is_not_there) {
    in_child_with_empty({"/sys", "/dev"}, [] {
        ModemModel model = *modem_list_find_id(modem_head, 7);
        replace_modem_struct(&model, "1-1.2");
        std::vector<char> text(11);
        EXPECT_EQ(modem_get_mode(model, text), -1);
        EXPECT_EQ(zte_get_mode(model, text), -1);
        EXPECT_EQ(simcom_get_mode(model, text), -1);
        EXPECT_EQ(modem_get_current_mode(model, text), 0);
        EXPECT_STREQ(text.data(), "");
        const Json object(json_object_new_object());
        EXPECT_EQ(modem_get_band(model, object.get()), 0);
        EXPECT_EQ(plain_json(object.get()), "{}");
        EXPECT_EQ(modem_set_mode(2, 4), -1);
        EXPECT_EQ(soft_reset_mode("/dev/ttyUSB2", "AT+CRESET"), -1);
    });
}

TEST(SoftReset, a_command_of_more_than_49_characters_aborts) {
    in_child_with_empty({"/sys", "/dev"}, [] {
        EXPECT_EQ(soft_reset_mode("/dev/ttyUSB2", std::string(49, 'A').c_str()), -1);
        EXPECT_ABORT(soft_reset_mode("/dev/ttyUSB2", std::string(50, 'A').c_str()));
    });
}

// Every beginning of every recorded reply through every reader. None of them has a mask that aborts.
TEST(ModeAndBand, every_beginning_of_every_recorded_reply) {
    for (const RecordedReply &recorded : recorded_replies()) {
        for (size_t length = 0; length <= recorded.wire.size(); length++) {
            // Of exactly this size on the heap, so that a read beyond it is seen.
            const auto reply = std::make_unique<char[]>(length + 1);
            recorded.wire.copy(reply.get(), length);
            for (const ModeReader read : {read_quectel_mode, read_zte_mode, read_simcom_mode}) {
                const char *text = read(reply.get());
                ASSERT_TRUE(text == nullptr || (text[0] >= '2' && text[0] <= '4' && std::string(text + 1) == "G"))
                    << recorded.name << " " << length;
            }
            const char *scan_mode = read_scan_mode(reply.get());
            ASSERT_LE(scan_mode == nullptr ? 0 : strlen(scan_mode), 10u);
            const Json object(json_object_new_object());
            read_band_configuration(reply.get(), object.get());
            const int members = json_object_object_length(object.get());
            ASSERT_TRUE(members == 0 || members == 3) << recorded.name << " " << length;
        }
    }
}

} // namespace
