// Waiting and measuring time; see clock.h.
#include "platform/clock.h"

#include <cerrno>
#include <ctime>

void sleep_whole(int64_t milliseconds) {
    timespec left = {.tv_sec = static_cast<time_t>(milliseconds / 1000),
                     .tv_nsec = static_cast<long>(milliseconds % 1000) * 1000 * 1000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

int64_t monotonic_ms() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / (1000 * 1000);
}
