// The monotonic clock.
#include <ctime>

#include "machine.h"

using namespace machine;

namespace {

int64_t now_ns = 0;
int64_t start_ns = 0;

} // namespace

void machine::start_clock() {
    start_ns = now_ns;
}

void machine::wait_ns(int64_t duration) {
    now_ns += duration;
}

int64_t waited_ms() {
    return (now_ns - start_ns) / NS_PER_MS;
}

// NOLINTBEGIN: the linker prescribes these names.
extern "C" {

int __real_clock_gettime(clockid_t clock, timespec *now);
int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    if (current == nullptr || clock != CLOCK_MONOTONIC) {
        return __real_clock_gettime(clock, now);
    }
    *now = {.tv_sec = now_ns / NS_PER_SECOND, .tv_nsec = now_ns % NS_PER_SECOND};
    return 0;
}

int __real_nanosleep(const timespec *duration, timespec *left);
int __wrap_nanosleep(const timespec *duration, timespec *left) {
    if (current == nullptr) {
        return __real_nanosleep(duration, left);
    }
    if (fails(Call::INTERRUPT)) {
        *left = *duration;
        return -1;
    }
    wait_ns(duration->tv_sec * NS_PER_SECOND + duration->tv_nsec);
    return 0;
}

} // extern "C"
// NOLINTEND
