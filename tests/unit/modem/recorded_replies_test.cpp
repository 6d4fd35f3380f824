// The recorded replies of real modems, in every way in which a tty may bring them: the end is found at the right byte,
// whatever the pieces.
#include <algorithm>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "modem/at_reply.h"
#include "support/replies.h"

namespace {

// How many bytes of the reply must have come for it to be over; npos where it never is.
size_t end_of(std::string_view reply) {
    const size_t ok = reply.find("OK");
    const size_t error = reply.find("ERROR");
    return std::min(ok == std::string_view::npos ? ok : ok + 2, error == std::string_view::npos ? error : error + 5);
}

bool has_complete_ok(std::string_view reply) {
    return reply.find("OK\r") != std::string_view::npos || reply.find("OK\n") != std::string_view::npos;
}

// Feeds the reply in pieces of `piece` bytes, the first one `first` bytes long, and checks each step.
void expect_end(const RecordedReply &reply, size_t first, size_t piece) {
    const std::string &wire = reply.wire;
    const size_t end = end_of(wire);
    std::string buffer(wire.size() + 1, '\0');
    ReplyCollector collector(buffer);
    size_t length = first;
    for (size_t at = 0; at < wire.size(); at += length, length = piece) {
        length = std::min(length, wire.size() - at);
        wire.copy(collector.room().data(), length, at);
        const bool over = collector.add(length);
        ASSERT_EQ(over, at + length >= end) << reply.name << ", " << first << " then " << piece << " bytes, at " << at;
        if (over) {
            ASSERT_EQ(buffer.c_str(), wire.substr(0, at + length)) << reply.name;
            return;
        }
    }
    collector.finish();
    ASSERT_EQ(buffer.c_str(), wire) << reply.name;
}

TEST(RecordedReplies, are_there) {
    EXPECT_GE(recorded_replies().size(), 200u);
    EXPECT_EQ(recorded_reply("quectel-ec25/qcfg-nwscanmode--0"), "\r\n+QCFG: \"nwscanmode\",0\r\n\r\nOK\r\n");
}

TEST(RecordedReplies, is_ok_of_every_beginning) {
    for (const RecordedReply &reply : recorded_replies()) {
        for (size_t length = 0; length <= reply.wire.size(); length++) {
            const std::string beginning = reply.wire.substr(0, length);
            ASSERT_EQ(is_ok(beginning.c_str()), has_complete_ok(beginning) ? 1 : 0) << reply.name << " " << length;
        }
    }
}

TEST(RecordedReplies, has_keystr_finds_every_part) {
    for (const RecordedReply &reply : recorded_replies()) {
        for (size_t at = 0; at < reply.wire.size(); at += 7) {
            ASSERT_EQ(has_keystr(reply.wire.c_str(), reply.wire.substr(at, 5).c_str()), 1) << reply.name << " " << at;
        }
        ASSERT_EQ(has_keystr(reply.wire.c_str(), "\x01 never sent"), 0) << reply.name;
    }
}

TEST(RecordedReplies, the_line_break_of_every_beginning) {
    for (const RecordedReply &reply : recorded_replies()) {
        const size_t at = std::min(reply.wire.find("\r\n"), reply.wire.find("\n\n"));
        for (size_t length = 0; length <= reply.wire.size(); length++) {
            const std::string beginning = reply.wire.substr(0, length);
            const bool there = at != std::string::npos && at + 2 <= length;
            ASSERT_EQ(after_line_break(beginning.c_str()), there ? beginning.c_str() + at + 2 : nullptr)
                << reply.name << " " << length;
        }
    }
}

TEST(RecordedReplies, in_pieces_of_every_size) {
    for (const RecordedReply &reply : recorded_replies()) {
        for (size_t piece = 1; piece <= reply.wire.size(); piece++) {
            expect_end(reply, piece, piece);
        }
    }
}

TEST(RecordedReplies, in_two_pieces_cut_at_every_byte) {
    for (const RecordedReply &reply : recorded_replies()) {
        for (size_t first = 1; first < reply.wire.size(); first++) {
            expect_end(reply, first, reply.wire.size());
        }
    }
}

TEST(RecordedReplies, into_buffers_that_are_too_small) {
    for (const RecordedReply &reply : recorded_replies()) {
        const size_t end = std::min(end_of(reply.wire), reply.wire.size());
        for (size_t size : {size_t{1}, end / 2 + 1, end}) {
            if (size == 0 || size > end) {
                continue;
            }
            std::string buffer(size, '\0');
            ReplyCollector collector(buffer);
            for (size_t at = 0; at < size; at++) {
                collector.room().front() = reply.wire[at];
                ASSERT_EQ(collector.add(1), at + 1 == size) << reply.name << " into " << size;
            }
            ASSERT_EQ(buffer.c_str(), reply.wire.substr(0, size - 1)) << reply.name << " into " << size;
        }
    }
}

} // namespace
