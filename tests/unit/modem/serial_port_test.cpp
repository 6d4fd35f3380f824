// Opening and closing a port: what is set, what is put back, what is said when it fails.
#include "modem/serial_port.h"

#include <chrono>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/child.h"
#include "support/files.h"
#include "support/modem_peer.h"

namespace {

using testing::MatchesRegex;

// uartOpen with what it says on standard error.
struct Opened {
    Opened(const char *path, int baud, int flow_control, int timeout_ms) {
        Capture capture(STDERR_FILENO);
        fd = uartOpen(path, baud, flow_control, timeout_ms);
        errors = capture.text();
    }
    int fd;
    std::string errors;
};

bool same(const termios &a, const termios &b) {
    return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag && a.c_lflag == b.c_lflag &&
           memcmp(a.c_cc, b.c_cc, sizeof(a.c_cc)) == 0 && cfgetispeed(&a) == cfgetispeed(&b) &&
           cfgetospeed(&a) == cfgetospeed(&b);
}

TEST(UartOpen, raw_8n1) {
    const PseudoTerminal terminal;
    termios before = terminal.attributes();
    before.c_cflag |= CSTOPB;
    before.c_iflag |= IXON | IXOFF | INLCR | ISTRIP;
    terminal.set_attributes(before);
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    const termios now = terminal.attributes();
    EXPECT_EQ(now.c_iflag, static_cast<tcflag_t>(IGNBRK));
    EXPECT_EQ(now.c_oflag, 0u);
    EXPECT_EQ(now.c_lflag, 0u);
    EXPECT_EQ(now.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_EQ(now.c_cflag & (CSTOPB | PARENB | CRTSCTS), 0u);
    EXPECT_EQ(now.c_cflag & (CREAD | CLOCAL), static_cast<tcflag_t>(CREAD | CLOCAL));
    EXPECT_EQ(MyuartClose(fd), 0);
}

TEST(UartOpen, flow_control_by_hardware) {
    for (int flow_control : {1, 2, -1}) {
        const PseudoTerminal terminal;
        const int fd = uartOpen(terminal.path(), 115200, flow_control, 100);
        ASSERT_GE(fd, 0);
        EXPECT_NE(terminal.attributes().c_cflag & CRTSCTS, 0u);
        EXPECT_EQ(MyuartClose(fd), 0);
    }
}

TEST(UartOpen, flow_control_that_was_on_is_cleared) {
    const PseudoTerminal terminal;
    termios before = terminal.attributes();
    before.c_cflag |= CRTSCTS;
    terminal.set_attributes(before);
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(terminal.attributes().c_cflag & CRTSCTS, 0u);
    EXPECT_EQ(MyuartClose(fd), 0);
}

TEST(UartOpen, every_speed_of_the_table_in_both_directions) {
    static const struct {
        int baud;
        speed_t speed;
    } SPEEDS[] = {{300, B300},     {1200, B1200},   {2400, B2400},   {4800, B4800},    {9600, B9600},
                  {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200}};
    for (const auto &one : SPEEDS) {
        const PseudoTerminal terminal;
        const int fd = uartOpen(terminal.path(), one.baud, 0, 100);
        ASSERT_GE(fd, 0) << one.baud;
        const termios now = terminal.attributes();
        EXPECT_EQ(cfgetispeed(&now), one.speed);
        EXPECT_EQ(cfgetospeed(&now), one.speed);
        EXPECT_EQ(MyuartClose(fd), 0);
    }
}

TEST(UartOpen, the_timeout_of_plain_reads) {
    static const struct {
        int timeout_ms;
        int minimum, tenths;
    } TIMEOUTS[] = {{0, 0, 0},       {99, 0, 0},      {100, 0, 1},       {199, 0, 1}, {500, 0, 5},
                    {25500, 0, 255}, {25600, 0, 255}, {INT_MAX, 0, 255}, {-1, 1, 0},  {-1000, 1, 0}};
    for (const auto &one : TIMEOUTS) {
        const PseudoTerminal terminal;
        const int fd = uartOpen(terminal.path(), 115200, 0, one.timeout_ms);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(terminal.attributes().c_cc[VMIN], one.minimum) << one.timeout_ms;
        EXPECT_EQ(terminal.attributes().c_cc[VTIME], one.tenths) << one.timeout_ms;
        EXPECT_EQ(MyuartClose(fd), 0);
    }
}

TEST(UartOpen, the_descriptor_blocks) {
    const PseudoTerminal terminal;
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(MyuartClose(fd), 0);
}

TEST(UartOpen, no_other_process_may_open_the_port) {
    const PseudoTerminal terminal;
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    int exclusive = 0;
    ASSERT_EQ(ioctl(fd, TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 1);
    EXPECT_EQ(MyuartClose(fd), 0);
}

TEST(UartOpen, what_was_queued_before_is_discarded) {
    const PseudoTerminal terminal;
    terminal.write("+QIND: SMS DONE\n");
    terminal.wait_for_queued(1);
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(uartRxPeek(), 0);
    EXPECT_EQ(MyuartClose(fd), 0);
}

TEST(UartOpen, the_port_gets_50_ms_to_settle) {
    const PseudoTerminal terminal;
    const auto start = std::chrono::steady_clock::now();
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    EXPECT_EQ(MyuartClose(fd), 0);
}

TEST(UartOpen, a_baud_number_outside_the_table_fails_without_an_open) {
    const PseudoTerminal terminal;
    for (int baud : {0, -1, 110, 301, 600, 115199, 230400, 115201, INT_MAX, INT_MIN}) {
        const Opened port(terminal.path(), baud, 0, 100);
        EXPECT_EQ(port.fd, -1);
        EXPECT_THAT(port.errors, MatchesRegex("Baud rate not supported " + std::string(terminal.path()) +
                                              " - [^\n]*\\([0-9]+\\)\\.\n"));
    }
    int exclusive = 1;
    ASSERT_EQ(ioctl(terminal.tty(), TIOCGEXCL, &exclusive), 0);
    EXPECT_EQ(exclusive, 0) << "the port was opened";
}

TEST(UartOpen, a_bad_baud_number_comes_before_a_bad_path) {
    const Opened port("/nonexistent/ttyUSB2", 1, 0, 100);
    EXPECT_EQ(port.fd, -1);
    EXPECT_THAT(port.errors, testing::StartsWith("Baud rate not supported /nonexistent/ttyUSB2 - "));
}

TEST(UartOpen, a_port_that_is_not_there) {
    const Opened port("/nonexistent/ttyUSB2", 115200, 0, 100);
    EXPECT_EQ(port.fd, -1);
    EXPECT_EQ(port.errors, "Error opening serial port /nonexistent/ttyUSB2 - No such file or directory(2).\n");
}

TEST(UartOpen, an_empty_path) {
    const Opened port("", 115200, 0, 100);
    EXPECT_EQ(port.fd, -1);
    EXPECT_EQ(port.errors, "Error opening serial port  - No such file or directory(2).\n");
}

TEST(UartOpen, a_file_that_is_no_tty_is_closed_again) {
    const ScratchDirectory directory;
    const std::string path = directory / "ttyUSB2";
    write_file(path, "content");
    const int before = open_descriptors();
    const Opened port(path.c_str(), 115200, 0, 100);
    EXPECT_EQ(port.fd, -1);
    EXPECT_EQ(port.errors, "Error setting TIOCEXCL on " + path + " - Inappropriate ioctl for device(25).\n");
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(read_file(path), "content");
}

TEST(UartOpen, does_not_become_the_controlling_terminal) {
    const PseudoTerminal terminal;
    in_child([&] {
        ASSERT_GE(setsid(), 0);
        const int fd = uartOpen(terminal.path(), 115200, 0, 100);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(open("/dev/tty", O_RDWR), -1);
        MyuartClose(fd);
    });
}

TEST(UartOpen, a_host_with_closed_standard_streams_gets_a_number_above_them) {
    const PseudoTerminal terminal;
    in_child([&] {
        for (int fd : {0, 1, 2}) {
            close(fd);
        }
        const int fd = uartOpen(terminal.path(), 115200, 0, 100);
        EXPECT_GT(fd, 2);
        MyuartClose(fd);
    });
}

TEST(UartOpen, failing_leaves_no_current_port) {
    const PseudoTerminal terminal;
    ASSERT_GE(uartOpen(terminal.path(), 115200, 0, 100), 0);
    EXPECT_EQ(uartClose(), 0);
    const Opened port("/nonexistent/ttyUSB2", 115200, 0, 100);
    char byte = 0;
    EXPECT_EQ(flushIoBuffer(), -1);
    EXPECT_EQ(uartRx(1, &byte), -1);
    EXPECT_EQ(uartRxExpires(1, &byte, 100), -1);
    EXPECT_EQ(uartRxNonBlocking(1, &byte), -1);
    EXPECT_EQ(uartRxPeek(), -1);
    EXPECT_EQ(uartTx(1, "x"), -1);
    EXPECT_EQ(uartTxNonBlocking(1, "x"), 1);
    EXPECT_EQ(uartClose(), -1);
}

TEST(UartOpen, a_refused_speed_leaves_no_current_port) {
    const PseudoTerminal terminal;
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    const Opened refused(terminal.path(), 1, 0, 100);
    EXPECT_EQ(uartRxPeek(), -1);
    EXPECT_EQ(MyuartClose(fd), 0);
}

TEST(UartClose, puts_back_the_attributes_found_on_opening) {
    const PseudoTerminal terminal;
    termios before = terminal.attributes();
    before.c_cc[VMIN] = 7;
    before.c_lflag |= ECHOK;
    cfsetspeed(&before, B9600);
    terminal.set_attributes(before);
    before = terminal.attributes();
    const int fd = uartOpen(terminal.path(), 115200, 1, 100);
    ASSERT_GE(fd, 0);
    EXPECT_FALSE(same(terminal.attributes(), before));
    EXPECT_EQ(MyuartClose(fd), 0);
    EXPECT_TRUE(same(terminal.attributes(), before));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "still open";
}

TEST(UartClose, closes_the_current_port) {
    const PseudoTerminal terminal;
    const termios before = terminal.attributes();
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(uartClose(), 0);
    EXPECT_TRUE(same(terminal.attributes(), before));
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
}

TEST(UartClose, puts_back_what_the_latest_open_found_even_on_another_descriptor) {
    const PseudoTerminal first;
    const PseudoTerminal second;
    termios peculiar = second.attributes();
    peculiar.c_cc[VMIN] = 9;
    peculiar.c_iflag |= INLCR;
    second.set_attributes(peculiar);
    peculiar = second.attributes();
    const int first_fd = uartOpen(first.path(), 115200, 0, 100);
    const int second_fd = uartOpen(second.path(), 115200, 0, 100);
    EXPECT_EQ(MyuartClose(first_fd), 0);
    EXPECT_TRUE(same(first.attributes(), peculiar));
    EXPECT_EQ(MyuartClose(second_fd), 0);
    EXPECT_TRUE(same(second.attributes(), peculiar));
}

TEST(UartClose, a_close_that_fails_says_so_in_its_own_words) {
    Capture errors(STDERR_FILENO);
    EXPECT_EQ(MyuartClose(-1), -1);
    EXPECT_EQ(errors.text(), "Error opening serial port - Bad file descriptor(9).\n");
}

TEST(UartClose, the_current_port_keeps_its_number) {
    const PseudoTerminal terminal;
    const int fd = uartOpen(terminal.path(), 115200, 0, 100);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(uartClose(), 0);
    // Another descriptor under the same number is the current port now.
    ASSERT_EQ(dup2(terminal.tty(), fd), fd);
    EXPECT_EQ(uartRxPeek(), 0);
    EXPECT_EQ(flushIoBuffer(), 0);
    EXPECT_EQ(close(fd), 0);
}

TEST(UartReapply, sets_again_what_the_latest_open_had_set) {
    const PseudoTerminal terminal;
    const termios before = terminal.attributes();
    const int fd = uartOpen(terminal.path(), 9600, 0, 100);
    ASSERT_GE(fd, 0);
    const termios raw = terminal.attributes();
    terminal.set_attributes(before); // as another process does on closing the port
    EXPECT_EQ(MyuartReapply(fd), 0);
    EXPECT_TRUE(same(terminal.attributes(), raw));
    EXPECT_EQ(MyuartClose(fd), 0);
    EXPECT_TRUE(same(terminal.attributes(), before)) << "what is put back on closing is still what was found";
}

TEST(UartReapply, fails_on_what_is_no_port) {
    EXPECT_EQ(MyuartReapply(-1), -1);
}

} // namespace
