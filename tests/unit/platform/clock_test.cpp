// Waiting in a host whose signals interrupt.
#include "platform/clock.h"

#include <chrono>

#include <gtest/gtest.h>

#include "support/interruptions.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(Clock, runs_forward) {
    const int64_t start = monotonic_ms();
    sleep_whole(20);
    EXPECT_GE(monotonic_ms() - start, 20);
}

TEST(Clock, sleeps_the_whole_time_whatever_signals_come) {
    const Interruptions signals;
    const auto start = steady_clock::now();
    sleep_whole(300);
    EXPECT_GE(steady_clock::now() - start, milliseconds(300));
    EXPECT_GT(signals.count(), 0);
}

TEST(Clock, nothing_to_wait_for) {
    sleep_whole(0);
    sleep_whole(-1);
}

} // namespace
