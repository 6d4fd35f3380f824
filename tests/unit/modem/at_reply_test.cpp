// When a reply is complete and what it says, without a modem.
#include "modem/at_reply.h"

#include <array>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/aborts.h"

namespace {

using namespace std::string_view_literals;

TEST(IsOk, an_ok_with_a_line_end) {
    EXPECT_EQ(is_ok("\r\nOK\r\n"), 1);
    EXPECT_EQ(is_ok("OK\n"), 1);
    EXPECT_EQ(is_ok("OK\r"), 1);
    EXPECT_EQ(is_ok("AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n"), 1);
}

TEST(IsOk, an_ok_at_the_very_end_does_not_count) {
    EXPECT_EQ(is_ok("OK"), 0);
    EXPECT_EQ(is_ok("+CSQ: 20,99\r\n\r\nOK"), 0);
}

TEST(IsOk, an_ok_before_anything_else_does_not_count) {
    EXPECT_EQ(is_ok("OKAY\r\n"), 0);
    EXPECT_EQ(is_ok("OK \r\n"), 0);
    EXPECT_EQ(is_ok("+COPS: 0,0,\"TOKYO\",7\r\n"), 0);
    EXPECT_EQ(is_ok("OOKK\r\n"), 0);
}

TEST(IsOk, the_scan_goes_on_after_an_ok_that_does_not_count) {
    EXPECT_EQ(is_ok("OKOK\r\n"), 1);
    EXPECT_EQ(is_ok("+COPS: 0,0,\"TOKYO\",7\r\n\r\nOK\r\n"), 1);
    EXPECT_EQ(is_ok("OOK\n"), 1);
}

TEST(IsOk, errors_and_silence) {
    EXPECT_EQ(is_ok("\r\nERROR\r\n"), 0);
    EXPECT_EQ(is_ok("\r\n+CME ERROR: 10\r\n"), 0);
    EXPECT_EQ(is_ok(""), 0);
    EXPECT_EQ(is_ok("O"), 0);
    EXPECT_EQ(is_ok("\r\nok\r\n"), 0);
    EXPECT_EQ(is_ok("O\r\nK\r\n"), 0);
}

TEST(HasKeystr, anywhere_in_the_text) {
    EXPECT_EQ(has_keystr("+CPIN: READY", "+CPIN"), 1);
    EXPECT_EQ(has_keystr("+CPIN: READY", "READY"), 1);
    EXPECT_EQ(has_keystr("+CPIN: READY", ":"), 1);
    EXPECT_EQ(has_keystr("READY", "READY"), 1);
}

TEST(HasKeystr, not_in_the_text) {
    EXPECT_EQ(has_keystr("+CPIN: READY", "ready"), 0);
    EXPECT_EQ(has_keystr("READ", "READY"), 0);
    EXPECT_EQ(has_keystr("", "READY"), 0);
}

TEST(HasKeystr, a_match_that_begins_within_a_false_one) {
    EXPECT_EQ(has_keystr("aab", "ab"), 1);
    EXPECT_EQ(has_keystr("ERRERROR", "ERROR"), 1);
}

TEST(HasKeystr, an_empty_key_is_in_every_text_but_the_empty_one) {
    EXPECT_EQ(has_keystr("x", ""), 1);
    EXPECT_EQ(has_keystr("", ""), 0);
}

TEST(AfterLineBreak, the_answer_behind_an_echo) {
    EXPECT_STREQ(after_line_break("AT+CSQ\r\r\n+CSQ: 20,99\r\n"), "+CSQ: 20,99\r\n");
    EXPECT_STREQ(after_line_break("\r\n+CSQ: 20,99\r\n"), "+CSQ: 20,99\r\n");
    EXPECT_STREQ(after_line_break("a\n\nb"), "b");
    EXPECT_STREQ(after_line_break("a\r\n"), "");
}

TEST(AfterLineBreak, other_characters_between_are_no_break) {
    EXPECT_EQ(after_line_break("a\nb\nc\n"), nullptr);
    EXPECT_EQ(after_line_break("a\rb\rc\r"), nullptr);
    EXPECT_EQ(after_line_break("a\n\rb"), nullptr);
    EXPECT_EQ(after_line_break(""), nullptr);
    EXPECT_EQ(after_line_break("\r"), nullptr);
    EXPECT_EQ(after_line_break("\n"), nullptr);
}

// A collector with what a test says of it; the buffer is as large as said and not one byte larger.
struct Collecting {
    explicit Collecting(size_t size) : buffer(size), collector(buffer) {}

    // What one read brings.
    bool take(std::string_view bytes) {
        std::copy(bytes.begin(), bytes.end(), collector.room().begin());
        return collector.add(bytes.size());
    }
    const char *text() const { return buffer.data(); }

    std::vector<char> buffer;
    ReplyCollector collector;
};

TEST(ReplyCollector, ends_with_ok_and_keeps_all_that_came) {
    Collecting reply(64);
    EXPECT_FALSE(reply.take("AT+CSQ\r\r\n"));
    EXPECT_FALSE(reply.take("+CSQ: 20,99\r\n"));
    EXPECT_TRUE(reply.take("\r\nOK\r\n"));
    EXPECT_STREQ(reply.text(), "AT+CSQ\r\r\n+CSQ: 20,99\r\n\r\nOK\r\n");
    EXPECT_EQ(reply.collector.received(), 28u);
}

TEST(ReplyCollector, ends_with_error) {
    Collecting reply(64);
    EXPECT_TRUE(reply.take("\r\n+CME ERROR: 10\r\n"));
    EXPECT_STREQ(reply.text(), "\r\n+CME ERROR: 10\r\n");
}

TEST(ReplyCollector, an_end_without_its_line_end_is_an_end) {
    Collecting reply(64);
    EXPECT_TRUE(reply.take("\r\nOK"));
    EXPECT_STREQ(reply.text(), "\r\nOK");
    EXPECT_EQ(is_ok(reply.text()), 0);
}

TEST(ReplyCollector, ends_with_an_ok_inside_data) {
    Collecting reply(64);
    EXPECT_TRUE(reply.take("+COPS: 0,0,\"TOKYO"));
}

TEST(ReplyCollector, an_end_word_that_comes_in_pieces) {
    for (std::string_view word : {"OK"sv, "ERROR"sv}) {
        Collecting reply(64);
        for (size_t i = 0; i < word.size(); i++) {
            EXPECT_EQ(reply.take(word.substr(i, 1)), i + 1 == word.size()) << word << i;
        }
    }
}

TEST(ReplyCollector, halves_of_end_words_are_no_end) {
    Collecting reply(64);
    EXPECT_FALSE(reply.take("O\r\nKERRO\r\nR"));
    EXPECT_FALSE(reply.take("OERROKERRO"sv.substr(0, 5)));
}

TEST(ReplyCollector, an_end_behind_nuls) {
    Collecting reply(64);
    EXPECT_FALSE(reply.take("\0\0abc\0"sv));
    EXPECT_TRUE(reply.take("\0OK\r\n"sv));
    EXPECT_EQ(reply.collector.received(), 11u);
    Collecting error(64);
    EXPECT_FALSE(error.take("\0ERR"sv));
    EXPECT_TRUE(error.take("OR"sv));
}

TEST(ReplyCollector, a_nul_inside_an_end_word_is_no_end) {
    Collecting reply(64);
    EXPECT_FALSE(reply.take("O\0K\r\n"sv));
    EXPECT_FALSE(reply.take("ER\0ROR"sv));
}

TEST(ReplyCollector, bytes_of_all_values_are_kept) {
    std::string all;
    for (int byte = 0; byte < 256; byte++) {
        all += static_cast<char>(byte);
    }
    Collecting reply(512);
    EXPECT_FALSE(reply.take(all));
    EXPECT_TRUE(reply.take("OK"));
    EXPECT_EQ(std::string(reply.text(), 256), all);
}

TEST(ReplyCollector, room_shrinks_by_what_came) {
    Collecting reply(16);
    EXPECT_EQ(reply.collector.room().size(), 16u);
    EXPECT_EQ(reply.collector.room().data(), reply.buffer.data());
    EXPECT_FALSE(reply.take("12345"));
    EXPECT_EQ(reply.collector.room().size(), 11u);
    EXPECT_EQ(reply.collector.room().data(), reply.buffer.data() + 5);
    EXPECT_FALSE(reply.take(""));
    EXPECT_EQ(reply.collector.room().size(), 11u);
}

TEST(ReplyCollector, a_reply_one_byte_shorter_than_the_buffer_is_whole) {
    Collecting reply(8);
    EXPECT_TRUE(reply.take("12345OK"));
    EXPECT_STREQ(reply.text(), "12345OK");
}

TEST(ReplyCollector, a_reply_as_long_as_the_buffer_gives_up_its_last_byte) {
    Collecting reply(8);
    EXPECT_FALSE(reply.take("1234567"));
    EXPECT_TRUE(reply.take("8"));
    EXPECT_STREQ(reply.text(), "1234567");
    EXPECT_EQ(reply.collector.received(), 8u);
    EXPECT_TRUE(reply.collector.room().empty());
}

TEST(ReplyCollector, an_end_word_in_the_last_bytes_of_the_buffer) {
    Collecting reply(8);
    EXPECT_TRUE(reply.take("123456OK"));
    EXPECT_STREQ(reply.text(), "123456O");
}

TEST(ReplyCollector, a_buffer_of_one_byte) {
    Collecting reply(1);
    EXPECT_TRUE(reply.take("x"));
    EXPECT_STREQ(reply.text(), "");
}

TEST(ReplyCollector, finish_terminates_what_never_ended) {
    Collecting reply(8);
    EXPECT_FALSE(reply.take("> "));
    reply.collector.finish();
    EXPECT_STREQ(reply.text(), "> ");
    EXPECT_EQ(reply.buffer.back(), '\0');
    EXPECT_EQ(reply.collector.received(), 2u);
}

TEST(ReplyCollector, finish_of_silence_is_an_empty_text) {
    Collecting reply(4);
    reply.collector.finish();
    EXPECT_STREQ(reply.text(), "");
}

} // namespace
