// Replies to AT commands (ITU-T V.250, 3GPP TS 27.007) as text: when one is complete, and what it says on the whole.
// No I/O here.
#pragma once

#include <cstddef>
#include <span>

// 1 when the reply holds "OK" directly followed by a carriage return or a line feed, else 0. An "OK" at the very end
// does not count: its line is not complete.
int is_ok(const char *reply);

// 1 when `key` occurs anywhere in `text`, else 0. An empty key is in every text but the empty one.
int has_keystr(const char *text, const char *key);

// What follows the first line break of the text, a carriage return or a line feed directly followed by a line feed;
// null where there is none. In a reply with an echo that is the answer's first line.
const char *after_line_break(const char *text);

// A reply while it arrives, in the caller's zero-filled buffer of at least one byte. The bytes may be anything, NULs
// included. Between two arrivals: read at most room().size() bytes into room(), then add() their count.
class ReplyCollector {
public:
    explicit ReplyCollector(std::span<char> buffer) : buffer_(buffer) {}

    // What is left of the buffer; the last byte too, although the final NUL overwrites it in a full buffer.
    std::span<char> room() const { return buffer_.subspan(received_); }
    size_t received() const { return received_; }

    // Takes the `count` bytes that were put at the start of room(). True when the reply is over: the buffer is full, or
    // "OK" or "ERROR" stands anywhere in it, be it within data or an echoed command. A reply that is over is
    // NUL-terminated; the last byte of a full buffer is given up for that.
    bool add(size_t count);

    // Ends the reply that never came to an end: a NUL goes into the last byte.
    void finish() { buffer_.back() = '\0'; }

private:
    std::span<char> buffer_;
    size_t received_ = 0;
};
