// Receiving: plain, timed, and until a count is reached. A loaded machine may be slow, so where a read must not wait the
// quickest of many is looked at, and other upper limits of time are not tested.
#include "modem/serial_port.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/interruptions.h"
#include "support/modem_peer.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class UartRead : public testing::Test {
protected:
    UartRead() : fd(uartOpen(terminal.path(), 115200, 0, 100)) { EXPECT_GE(fd, 0); }
    ~UartRead() override { EXPECT_EQ(MyuartClose(fd), 0); }

    void queue(std::string_view bytes) {
        terminal.write(bytes);
        terminal.wait_for_queued(static_cast<int>(bytes.size()));
    }
    std::string timed_read(int length, int timeout_ms) {
        std::array<char, 256> buffer = {};
        const int got = MyuartRxExpires(fd, length, buffer.data(), timeout_ms);
        return got < 0 ? "(error)" : std::string(buffer.data(), static_cast<size_t>(got));
    }

    PseudoTerminal terminal;
    int fd;
    std::array<char, 256> buffer = {};
};

TEST_F(UartRead, a_plain_read_takes_what_is_there) {
    queue("abc");
    EXPECT_EQ(uartRxNonBlocking(100, buffer.data()), 3);
    EXPECT_STREQ(buffer.data(), "abc");
}

TEST_F(UartRead, a_plain_read_returns_after_the_opens_timeout_of_silence) {
    const auto start = steady_clock::now();
    EXPECT_EQ(uartRxNonBlocking(100, buffer.data()), 0);
    EXPECT_GE(steady_clock::now() - start, milliseconds(90));
}

TEST_F(UartRead, a_plain_read_takes_no_more_than_asked) {
    queue("abcdef");
    EXPECT_EQ(uartRxNonBlocking(4, buffer.data()), 4);
    EXPECT_STREQ(buffer.data(), "abcd");
    EXPECT_EQ(uartRxPeek(), 2);
}

TEST_F(UartRead, a_timed_read_returns_as_soon_as_bytes_are_there) {
    queue("\r\nOK\r\n");
    EXPECT_EQ(timed_read(100, 600000), "\r\nOK\r\n");
    queue("more");
    EXPECT_EQ(uartRxExpires(100, buffer.data(), 600000), 4);
    EXPECT_STREQ(buffer.data(), "more");
}

TEST_F(UartRead, a_timed_read_returns_nothing_after_half_a_second_of_silence) {
    auto start = steady_clock::now();
    EXPECT_EQ(MyuartRxExpires(fd, 100, buffer.data(), 500), 0);
    EXPECT_GE(steady_clock::now() - start, milliseconds(490));
    start = steady_clock::now();
    EXPECT_EQ(uartRxExpires(100, buffer.data(), 500), 0);
    EXPECT_GE(steady_clock::now() - start, milliseconds(490));
}

TEST_F(UartRead, signals_of_the_host_are_no_silence) {
    const Interruptions signals;
    const auto start = steady_clock::now();
    EXPECT_EQ(MyuartRxExpires(fd, 100, buffer.data(), 500), 0);
    EXPECT_GE(steady_clock::now() - start, milliseconds(490));
    EXPECT_GT(signals.count(), 0);
    queue("abc");
    EXPECT_EQ(timed_read(100, 500), "abc");
}

TEST_F(UartRead, a_timeout_is_rounded_down_to_steps_of_100_ms) {
    const auto start = steady_clock::now();
    EXPECT_EQ(MyuartRxExpires(fd, 100, buffer.data(), 299), 0);
    EXPECT_GE(steady_clock::now() - start, milliseconds(190));
}

TEST_F(UartRead, a_timeout_below_100_ms_takes_what_is_there) {
    EXPECT_EQ(timed_read(100, 50), "");
    EXPECT_EQ(timed_read(100, 1), "");
    queue("abc");
    EXPECT_EQ(timed_read(100, 50), "abc");
}

TEST_F(UartRead, a_timeout_below_100_ms_does_not_wait) {
    for (int timeout_ms : {1, 50, 99}) {
        auto quickest = steady_clock::duration::max();
        for (int i = 0; i < 20; i++) {
            const auto start = steady_clock::now();
            EXPECT_EQ(MyuartRxExpires(fd, 100, buffer.data(), timeout_ms), 0);
            quickest = std::min(quickest, steady_clock::now() - start);
        }
        EXPECT_LT(quickest, milliseconds(90)) << timeout_ms << ": the shortest wait of a terminal is 100 ms";
    }
}

TEST_F(UartRead, a_timed_read_takes_no_more_than_asked) {
    queue("abcdef");
    EXPECT_EQ(timed_read(4, 500), "abcd");
    EXPECT_EQ(timed_read(4, 500), "ef");
}

TEST_F(UartRead, bytes_of_all_values_come_through) {
    std::string all;
    for (int byte = 0; byte < 256; byte++) {
        all += static_cast<char>(byte);
    }
    queue(all);
    EXPECT_EQ(timed_read(256, 500), all);
}

TEST_F(UartRead, a_timed_read_leaves_the_attributes_as_they_were) {
    termios odd = terminal.attributes();
    odd.c_lflag |= ECHO;
    odd.c_cc[VMIN] = 5;
    odd.c_cc[VTIME] = 6;
    terminal.set_attributes(odd);
    odd = terminal.attributes();
    queue("abc");
    EXPECT_EQ(timed_read(100, 500), "abc");
    EXPECT_EQ(timed_read(100, 100), "");
    const termios now = terminal.attributes();
    EXPECT_EQ(memcmp(&now, &odd, sizeof(now)), 0);
}

TEST_F(UartRead, a_timed_read_is_raw_whatever_the_attributes) {
    termios cooked = terminal.attributes();
    cooked.c_lflag |= ICANON;
    cooked.c_iflag |= ICRNL;
    terminal.set_attributes(cooked);
    queue("");
    terminal.write("no line end\r");
    std::string all;
    while (all.size() < 12) {
        all += timed_read(100, 1000);
    }
    EXPECT_EQ(all.substr(0, 11), "no line end");
}

TEST_F(UartRead, errors) {
    EXPECT_EQ(uartRxNonBlocking(-1, buffer.data()), -1);
    EXPECT_EQ(MyuartRxExpires(-1, 1, buffer.data(), 100), -1);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_EQ(MyuartRxExpires(ends[0], 1, buffer.data(), 100), -1) << "no tty";
    close(ends[0]);
    close(ends[1]);
}

TEST_F(UartRead, peek_counts_what_waits) {
    EXPECT_EQ(uartRxPeek(), 0);
    queue("abc");
    EXPECT_EQ(uartRxPeek(), 3);
    EXPECT_EQ(uartRxPeek(), 3);
}

TEST_F(UartRead, flushing_discards_what_waits) {
    queue("abc");
    EXPECT_EQ(flushIoBuffer(), 0);
    EXPECT_EQ(uartRxPeek(), 0);
    queue("abc");
    MyflushIoBuffer(fd);
    EXPECT_EQ(uartRxPeek(), 0);
    MyflushIoBuffer(-1);
}

// The peers of the following tests write when a reader is most likely waiting; what is tested holds if it is not.

TEST_F(UartRead, a_count_is_read_in_as_many_pieces_as_it_takes) {
    std::thread modem([this] {
        for (const char *piece : {"ab", "c", "defg"}) {
            std::this_thread::sleep_for(milliseconds(250)); // longer than the port's timeout
            terminal.write(piece);
        }
    });
    EXPECT_EQ(uartRx(6, buffer.data()), 6);
    EXPECT_STREQ(buffer.data(), "abcdef");
    modem.join();
    terminal.wait_for_queued(1);
    EXPECT_EQ(uartRxPeek(), 1);
    EXPECT_EQ(uartRx(0, buffer.data()), 0);
}

TEST_F(UartRead, a_count_of_a_current_port_that_is_closed_is_an_error) {
    const PseudoTerminal other;
    ASSERT_EQ(MyuartClose(uartOpen(other.path(), 115200, 0, 100)), 0);
    EXPECT_EQ(uartRx(1, buffer.data()), -1);
}

TEST_F(UartRead, a_timeout_of_0_or_less_waits_for_the_first_byte_without_limit) {
    for (int timeout_ms : {0, -1}) {
        std::thread modem([this] {
            std::this_thread::sleep_for(milliseconds(700));
            terminal.write("x");
        });
        EXPECT_EQ(timed_read(100, timeout_ms), "x");
        modem.join();
    }
}

TEST_F(UartRead, a_current_port_opened_with_a_negative_timeout_waits_for_the_first_byte) {
    const PseudoTerminal other;
    const int other_fd = uartOpen(other.path(), 115200, 0, -1);
    ASSERT_GE(other_fd, 0);
    std::thread modem([&other] {
        std::this_thread::sleep_for(milliseconds(700));
        other.write("x");
    });
    EXPECT_EQ(uartRxNonBlocking(100, buffer.data()), 1);
    modem.join();
    EXPECT_EQ(uartClose(), 0);
}

} // namespace
