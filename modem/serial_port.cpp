// Serial port over termios(3); see serial_port.h.
#include "modem/serial_port.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/owners.h"

namespace {

constexpr int NO_PORT = -1;
constexpr int SETTLE_TIME_MS = 50;

int current_port = NO_PORT;
termios saved_attributes; // as the latest uartOpen found them
termios open_attributes;  // as it set them

struct Speed {
    int baud;
    speed_t constant;
};

constexpr Speed SPEEDS[] = {
    {300, B300},     {1200, B1200},   {2400, B2400},   {4800, B4800},     {9600, B9600},
    {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200},
};

const Speed *find_speed(int baud) {
    for (const Speed &speed : SPEEDS) {
        if (speed.baud == baud) {
            return &speed;
        }
    }
    return nullptr;
}

int report(const char *what, const char *path) {
    fprintf(stderr, "%s %s - %s(%d).\n", what, path, strerror(errno), errno);
    return -1;
}

constexpr int LONGEST_VTIME = 255; // the field has eight bits

// VMIN and VTIME for a read that ends after a silence, counted in tenths of a second.
void end_after_silence(termios &attributes, int timeout_ms) {
    attributes.c_cc[VMIN] = 0;
    attributes.c_cc[VTIME] = static_cast<cc_t>(std::min(timeout_ms / 100, LONGEST_VTIME));
}

// VMIN and VTIME for a read that waits for its first byte without limit.
void wait_for_a_byte(termios &attributes) {
    attributes.c_cc[VMIN] = 1;
    attributes.c_cc[VTIME] = 0;
}

void make_raw_8n1(termios &attributes, int flow_control) {
    cfmakeraw(&attributes);
    attributes.c_iflag = IGNBRK;
    attributes.c_oflag = 0;
    attributes.c_lflag = 0;
    attributes.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CRTSCTS);
    attributes.c_cflag |= CS8 | CREAD | CLOCAL;
    if (flow_control != 0) {
        attributes.c_cflag |= CRTSCTS;
    }
}

// Takes the freshly opened port into use; -1 with a line on standard error where a step fails.
int set_up(int fd, const char *path, speed_t speed, int flow_control, int timeout_ms) {
    if (ioctl(fd, TIOCEXCL) != 0) {
        return report("Error setting TIOCEXCL on", path);
    }
    if (tcgetattr(fd, &saved_attributes) != 0) {
        return report("Error getting tty attributes", path);
    }
    termios &attributes = open_attributes;
    attributes = saved_attributes;
    // The port was opened without waiting for a carrier; from here on reads and writes do wait.
    if (fcntl(fd, F_SETFL, 0) != 0) {
        return report("Error clearing O_NONBLOCK", path);
    }
    if (cfsetspeed(&attributes, speed) != 0) {
        return report("Error setting baud rate", path);
    }
    make_raw_8n1(attributes, flow_control);
    if (timeout_ms >= 0) {
        end_after_silence(attributes, timeout_ms);
    } else {
        wait_for_a_byte(attributes);
    }
    if (tcsetattr(fd, TCSANOW, &attributes) != 0) {
        return report("Error setting tty attributes", path);
    }
    return 0;
}

int plain_read(int fd, int length, void *buffer) {
    return length < 0 ? -1 : static_cast<int>(read(fd, buffer, static_cast<size_t>(length)));
}

// A read that a signal of the host cut short is neither data nor silence, so it goes on; but not past its time-out, or
// a host with a frequent timer would wait for ever.
int timed_read(int fd, int length, void *buffer, int timeout_ms) {
    const int64_t end = monotonic_ms() + timeout_ms;
    int got = 0;
    do {
        got = plain_read(fd, length, buffer);
    } while (got < 0 && errno == EINTR && (timeout_ms <= 0 || monotonic_ms() < end));
    return got < 0 && errno == EINTR ? 0 : got;
}

} // namespace

int uartOpen(const char *path, int baud, int flow_control, int timeout_ms) {
    current_port = NO_PORT;
    const Speed *speed = find_speed(baud);
    if (speed == nullptr) {
        return report("Baud rate not supported", path);
    }
    // O_CLOEXEC, as the caller may be a server that starts other programs.
    Descriptor port(above_the_streams(open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)));
    if (!port.valid()) {
        return report("Error opening serial port", path);
    }
    if (set_up(port.get(), path, speed->constant, flow_control, timeout_ms) != 0) {
        return -1;
    }
    current_port = port.release();
    sleep_whole(SETTLE_TIME_MS);
    tcflush(current_port, TCIOFLUSH);
    return current_port;
}

int MyuartReapply(int fd) {
    return tcsetattr(fd, TCSANOW, &open_attributes);
}

int uartClose() {
    return MyuartClose(current_port);
}

int MyuartClose(int fd) {
    tcsetattr(fd, TCSANOW, &saved_attributes);
    const int result = close(fd);
    if (result != 0) {
        // The text is the opening's: scripts that watch for it take any trouble with a port for the same thing.
        fprintf(stderr, "Error opening serial port - %s(%d).\n", strerror(errno), errno);
    }
    return result;
}

int flushIoBuffer() {
    return current_port == NO_PORT ? -1 : tcflush(current_port, TCIOFLUSH);
}

void MyflushIoBuffer(int fd) {
    if (fd != NO_PORT) {
        tcflush(fd, TCIOFLUSH);
    }
}

int uartRx(int length, void *buffer) {
    if (current_port == NO_PORT) {
        return -1;
    }
    int received = 0;
    while (received < length) {
        const int got = plain_read(current_port, length - received, static_cast<char *>(buffer) + received);
        if (got < 0) {
            return -1;
        }
        received += got;
    }
    return length;
}

int uartRxExpires(int length, void *buffer, int timeout_ms) {
    return MyuartRxExpires(current_port, length, buffer, timeout_ms);
}

int MyuartRxExpires(int fd, int length, void *buffer, int timeout_ms) {
    tcdrain(fd);
    termios previous;
    if (tcgetattr(fd, &previous) != 0) {
        return -1;
    }
    termios timed = previous;
    cfmakeraw(&timed);
    // Unlike in uartOpen, 0 is no limit here.
    if (timeout_ms > 0) {
        end_after_silence(timed, timeout_ms);
    } else {
        wait_for_a_byte(timed);
    }
    if (tcsetattr(fd, TCSANOW, &timed) != 0) {
        return -1;
    }
    const int got = timed_read(fd, length, buffer, timeout_ms);
    return tcsetattr(fd, TCSANOW, &previous) != 0 ? -1 : got;
}

int uartRxNonBlocking(int length, void *buffer) {
    return current_port == NO_PORT ? -1 : plain_read(current_port, length, buffer);
}

int uartRxPeek() {
    int waiting = 0;
    return ioctl(current_port, FIONREAD, &waiting) != 0 ? -1 : waiting;
}

int uartTx(int length, const void *buffer) {
    if (current_port == NO_PORT) {
        return -1;
    }
    int sent = 0;
    while (sent < length) {
        const ssize_t written =
            write(current_port, static_cast<const char *>(buffer) + sent, static_cast<size_t>(length - sent));
        if (written >= 0) {
            sent += static_cast<int>(written);
        } else if (errno != EAGAIN && errno != EINTR) {
            return -1;
        }
    }
    return 0;
}

int uartTxNonBlocking(int length, const void *buffer) {
    return MyuartTxNonBlocking(current_port, length, buffer);
}

int MyuartTxNonBlocking(int fd, int length, const void *buffer) {
    int unsent = length;
    const char *next = static_cast<const char *>(buffer);
    while (unsent > 0) {
        const ssize_t written = write(fd, next, static_cast<size_t>(unsent));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            break;
        }
        next += written;
        unsent -= static_cast<int>(written);
    }
    return unsent;
}
