// Calls on a descriptor that may be a serial port.
#include <cstdarg>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include "machine.h"

using namespace machine;

namespace {

termios attributes;
termios attributes_at_start;

} // namespace

void machine::reset_tty() {
    attributes = {};
    attributes.c_iflag = ICRNL | IXON;
    attributes.c_oflag = OPOST | ONLCR;
    attributes.c_lflag = ISIG | ICANON | ECHO;
    attributes.c_cflag = CS8 | CREAD | B9600;
    attributes.c_cc[VMIN] = 1;
    attributes_at_start = attributes;
}

const termios &tty_attributes() {
    return attributes;
}

const termios &tty_attributes_at_start() {
    return attributes_at_start;
}

// NOLINTBEGIN: the linker prescribes these names.
extern "C" {

ssize_t __real_read(int fd, void *buffer, size_t size);
ssize_t __wrap_read(int fd, void *buffer, size_t size) {
    if (kind_of(fd) != Kind::TTY) {
        return fails(Call::READ) || fails(Call::INTERRUPT) ? -1 : __real_read(fd, buffer, size);
    }
    const Answering system;
    const ssize_t got = system->receive(static_cast<char *>(buffer), size);
    if (got == 0) {
        if (attributes.c_cc[VMIN] > 0) {
            return fail(EIO); // it would wait for ever
        }
        wait_ns(attributes.c_cc[VTIME] * NS_PER_SECOND / 10);
    }
    return got;
}

ssize_t __real_write(int fd, const void *bytes, size_t size);
ssize_t __wrap_write(int fd, const void *bytes, size_t size) {
    if (kind_of(fd) != Kind::TTY) {
        return fails(Call::WRITE) || fails(Call::INTERRUPT) ? -1 : __real_write(fd, bytes, size);
    }
    const Answering system;
    return system->transmit(static_cast<const char *>(bytes), size);
}

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list rest;
    va_start(rest, request);
    void *const argument = va_arg(rest, void *);
    va_end(rest);
    if (kind_of(fd) != Kind::TTY) {
        return __real_ioctl(fd, request, argument);
    }
    if (request == FIONREAD) {
        *static_cast<int *>(argument) = 1;
    }
    return control_result(EBUSY);
}

int __real_tcgetattr(int fd, termios *into);
int __wrap_tcgetattr(int fd, termios *into) {
    if (kind_of(fd) != Kind::TTY) {
        return __real_tcgetattr(fd, into);
    }
    *into = attributes;
    return control_result(EIO);
}

int __real_tcsetattr(int fd, int when, const termios *from);
int __wrap_tcsetattr(int fd, int when, const termios *from) {
    if (kind_of(fd) != Kind::TTY) {
        return __real_tcsetattr(fd, when, from);
    }
    const int result = control_result(EIO);
    if (result == 0) {
        attributes = *from;
    }
    return result;
}

int __real_tcflush(int fd, int queue);
int __wrap_tcflush(int fd, int queue) {
    return kind_of(fd) == Kind::TTY ? control_result(EIO) : __real_tcflush(fd, queue);
}

int __real_tcdrain(int fd);
int __wrap_tcdrain(int fd) {
    return kind_of(fd) == Kind::TTY ? control_result(EIO) : __real_tcdrain(fd);
}

int __real_flock(int fd, int operation);
int __wrap_flock(int fd, int operation) {
    if (fails(Call::INTERRUPT)) {
        return -1;
    }
    return kind_of(fd) == Kind::TTY ? control_result(EWOULDBLOCK) : __real_flock(fd, operation);
}

} // extern "C"
// NOLINTEND
