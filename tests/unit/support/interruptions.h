// Signals that interrupt: a host that runs on a timer, as a server may.
#pragma once

#include <csignal>
#include <sys/time.h>

#include <gtest/gtest.h>

// While it lives, SIGALRM comes every 10 ms to a handler that lets system calls fail with EINTR.
class Interruptions {
public:
    Interruptions() {
        struct sigaction counting = {};
        counting.sa_handler = [](int) { count_ = count_ + 1; };
        EXPECT_EQ(sigaction(SIGALRM, &counting, &before_), 0);
        count_ = 0;
        const itimerval every_10_ms = {{0, 10000}, {0, 10000}};
        EXPECT_EQ(setitimer(ITIMER_REAL, &every_10_ms, nullptr), 0);
    }
    ~Interruptions() {
        const itimerval off = {};
        setitimer(ITIMER_REAL, &off, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }
    Interruptions(const Interruptions &) = delete;
    Interruptions &operator=(const Interruptions &) = delete;

    int count() const { return count_; }

private:
    static inline volatile sig_atomic_t count_;
    struct sigaction before_ = {};
};
