// The system log as a test sees it, in a child that has an empty /dev.
#pragma once

#include <cerrno>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>

#include <gtest/gtest.h>

#include "platform/owners.h"

// While it lives, messages come to it: the C library sends them as datagrams to a socket.
class SystemLog {
public:
    SystemLog() : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
        EXPECT_EQ(bind(socket_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << strerror(errno);
    }

    // The next line, its facility and priority in front; empty where there is none.
    std::string line() {
        char text[256];
        const ssize_t length = recv(socket_.get(), text, sizeof text, 0);
        return length < 0 ? std::string() : std::string(text, static_cast<size_t>(length));
    }

private:
    Descriptor socket_;
};
