// Waiting and measuring time; see clock.h.
#include "platform/clock.h"

#include <cerrno>
#include <ctime>

namespace {

constexpr int64_t MS_PER_SECOND = 1000;
constexpr int64_t NS_PER_MS = 1000000;

} // namespace

void sleep_whole(int64_t milliseconds) {
    timespec left = {.tv_sec = static_cast<time_t>(milliseconds / MS_PER_SECOND),
                     .tv_nsec = static_cast<long>(milliseconds % MS_PER_SECOND * NS_PER_MS)};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

int64_t monotonic_ms() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * MS_PER_SECOND + now.tv_nsec / NS_PER_MS;
}
