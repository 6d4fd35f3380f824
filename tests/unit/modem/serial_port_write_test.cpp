// Sending: everything, or a count of what was left.
#include "modem/serial_port.h"

#include <algorithm>
#include <fcntl.h>
#include <string>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/modem_peer.h"

namespace {

class UartWrite : public testing::Test {
protected:
    UartWrite() : fd(uartOpen(terminal.path(), 115200, 0, 100)) { EXPECT_GE(fd, 0); }
    ~UartWrite() override { EXPECT_EQ(MyuartClose(fd), 0); }

    void make_port_nonblocking() { EXPECT_EQ(fcntl(fd, F_SETFL, O_NONBLOCK), 0); }

    PseudoTerminal terminal;
    int fd;
};

TEST_F(UartWrite, all_bytes_arrive_as_they_are) {
    std::string all;
    for (int byte = 0; byte < 256; byte++) {
        all += static_cast<char>(byte);
    }
    EXPECT_EQ(uartTx(256, all.data()), 0);
    EXPECT_EQ(terminal.read(256), all);
    EXPECT_EQ(MyuartTxNonBlocking(fd, 256, all.data()), 0);
    EXPECT_EQ(terminal.read(256), all);
    EXPECT_EQ(uartTxNonBlocking(256, all.data()), 0);
    EXPECT_EQ(terminal.read(256), all);
}

TEST_F(UartWrite, nothing_is_sent_of_a_length_of_0) {
    EXPECT_EQ(uartTx(0, "x"), 0);
    EXPECT_EQ(uartTxNonBlocking(0, "x"), 0);
    EXPECT_EQ(MyuartTxNonBlocking(fd, 0, "x"), 0);
    EXPECT_EQ(uartTx(1, "y"), 0);
    EXPECT_EQ(terminal.read(1), "y");
}

TEST_F(UartWrite, a_port_that_takes_no_more_gives_the_count_of_what_was_not_sent) {
    make_port_nonblocking();
    const std::string much(1 << 20, 'x');
    const int unsent = MyuartTxNonBlocking(fd, static_cast<int>(much.size()), much.data());
    EXPECT_GT(unsent, 0);
    EXPECT_LT(unsent, 1 << 20);
    EXPECT_EQ(terminal.read(much.size() - static_cast<size_t>(unsent)), much.substr(static_cast<size_t>(unsent)));
    EXPECT_GT(uartTxNonBlocking(static_cast<int>(much.size()), much.data()), 0);
}

TEST_F(UartWrite, a_busy_port_is_tried_again_until_all_is_sent) {
    make_port_nonblocking();
    std::string much(200000, 'x');
    std::generate(much.begin(), much.end(), [n = 0]() mutable { return static_cast<char>('a' + n++ % 26); });
    std::string arrived;
    std::thread modem([&] { arrived = terminal.read(much.size()); });
    EXPECT_EQ(uartTx(static_cast<int>(much.size()), much.data()), 0);
    modem.join();
    EXPECT_TRUE(arrived == much);
}

TEST(UartWriteErrors, a_descriptor_that_is_not_open) {
    EXPECT_EQ(MyuartTxNonBlocking(-1, 5, "AT\r\n"), 5);
}

TEST(UartWriteErrors, a_port_that_is_gone) {
    PseudoTerminal terminal;
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    terminal.hang_up();
    EXPECT_EQ(uartTx(4, "AT\r\n"), -1);
    EXPECT_EQ(uartTxNonBlocking(4, "AT\r\n"), 4);
    EXPECT_EQ(MyuartTxNonBlocking(fd, 4, "AT\r\n"), 4);
    char byte = 0;
    EXPECT_LE(uartRxExpires(1, &byte, 500), 0);
    EXPECT_EQ(MyuartClose(fd), 0) << "closing does not depend on the port";
}

} // namespace
