#include "support/modem_peer.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>

using std::chrono::milliseconds;

PseudoTerminal::PseudoTerminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    EXPECT_GE(master_, 0);
    EXPECT_EQ(grantpt(master_), 0);
    EXPECT_EQ(unlockpt(master_), 0);
    char name[64] = "";
    EXPECT_EQ(ptsname_r(master_, name, sizeof(name)), 0);
    path_ = name;
    tty_ = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(tty_, 0) << path_;
}

PseudoTerminal::~PseudoTerminal() {
    close(tty_);
    hang_up();
}

termios PseudoTerminal::attributes() const {
    termios now = {};
    EXPECT_EQ(tcgetattr(tty_, &now), 0);
    return now;
}

void PseudoTerminal::set_attributes(const termios &wanted) const {
    EXPECT_EQ(tcsetattr(tty_, TCSANOW, &wanted), 0);
}

void PseudoTerminal::write(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t written = ::write(master_, bytes.data(), bytes.size());
        ASSERT_GT(written, 0);
        bytes.remove_prefix(static_cast<size_t>(written));
    }
}

std::string PseudoTerminal::read(size_t count) const {
    std::string all;
    while (all.size() < count) {
        char part[4096];
        const ssize_t got = ::read(master_, part, std::min(sizeof(part), count - all.size()));
        if (got <= 0) {
            ADD_FAILURE() << "the tty was closed after " << all.size() << " bytes";
            break;
        }
        all.append(part, static_cast<size_t>(got));
    }
    return all;
}

void PseudoTerminal::wait_for_queued(int count) const {
    int queued = 0;
    while (ioctl(tty_, FIONREAD, &queued) == 0 && queued < count) {
        std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_GE(queued, count);
}

void PseudoTerminal::hang_up() {
    if (master_ >= 0) {
        close(master_);
        master_ = -1;
    }
}

ModemPeer::ModemPeer(Script script) {
    EXPECT_EQ(fcntl(terminal_.modem_side(), F_SETFL, O_NONBLOCK), 0);
    thread_ = std::thread([this, script = std::move(script)] { script(*this); });
}

std::string ModemPeer::received() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return received_;
}

void ModemPeer::stop() {
    stopping_ = true;
    if (!thread_.joinable()) {
        return;
    }
    thread_.join();
    char byte = 0;
    while (terminal_.modem_side() >= 0 && ::read(terminal_.modem_side(), &byte, 1) == 1) {
        received_ += byte;
    }
}

std::string ModemPeer::read_line() {
    std::string line;
    while (!stopping_ && (line.empty() || line.back() != '\n')) {
        char byte = 0;
        const ssize_t got = ::read(terminal_.modem_side(), &byte, 1);
        if (got == 1) {
            line += byte;
            const std::lock_guard<std::mutex> guard(mutex_);
            received_ += byte;
        } else {
            pollfd input = {terminal_.modem_side(), POLLIN, 0};
            poll(&input, 1, 5);
        }
    }
    return line;
}

void ModemPeer::write(std::string_view bytes) {
    while (!stopping_ && !bytes.empty()) {
        const ssize_t written = ::write(terminal_.modem_side(), bytes.data(), bytes.size());
        if (written > 0) {
            bytes.remove_prefix(static_cast<size_t>(written));
        } else {
            // A full queue: the other side has to read first.
            std::this_thread::sleep_for(milliseconds(1));
        }
    }
}

void ModemPeer::pause(milliseconds time) const {
    const auto end = std::chrono::steady_clock::now() + time;
    while (!stopping_ && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(5));
    }
}

ModemPeer::Script answer(std::string reply) {
    return [reply = std::move(reply)](ModemPeer &peer) {
        peer.read_line();
        peer.write(reply);
    };
}
