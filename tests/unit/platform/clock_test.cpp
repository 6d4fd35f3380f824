// Waiting in a host whose signals interrupt.
#include "platform/clock.h"

#include <chrono>
#include <csignal>
#include <sys/time.h>

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

volatile sig_atomic_t interruptions;

TEST(Clock, runs_forward) {
    const int64_t start = monotonic_ms();
    sleep_whole(20);
    EXPECT_GE(monotonic_ms() - start, 20);
}

TEST(Clock, sleeps_the_whole_time_whatever_signals_come) {
    interruptions = 0;
    struct sigaction counting = {};
    struct sigaction before = {};
    counting.sa_handler = [](int) { interruptions = interruptions + 1; };
    ASSERT_EQ(sigaction(SIGALRM, &counting, &before), 0);
    const itimerval every_10_ms = {{0, 10000}, {0, 10000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &every_10_ms, nullptr), 0);
    const auto start = steady_clock::now();
    sleep_whole(300);
    EXPECT_GE(steady_clock::now() - start, milliseconds(300));
    const itimerval off = {};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &before, nullptr);
    EXPECT_GT(interruptions, 0);
}

TEST(Clock, nothing_to_wait_for) {
    sleep_whole(0);
    sleep_whole(-1);
}

} // namespace
