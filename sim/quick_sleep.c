// Preloaded into the programs of a simulated router, shortens their waiting: a sleep of a second or more takes a
// hundredth of it. What waits for a modem's restart or for a link then takes as long as a test may take, and the
// programs are still those that ship. An alarm, which bounds what hangs, comes after a tenth of its time: what does not
// hang has to end before it, on a busy machine, too.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <sys/time.h>
#include <time.h>

enum { DIVISOR = 100, ALARM_DIVISOR = 10, US_PER_SECOND = 1000000, NS_PER_SECOND = 1000000000 };

typedef int (*sleeper)(clockid_t, int, const struct timespec *, struct timespec *);

static struct timespec shortened(const struct timespec *asked) {
    if (asked->tv_sec < 1) {
        return *asked;
    }
    const long long nanoseconds = ((long long)asked->tv_sec * NS_PER_SECOND + asked->tv_nsec) / DIVISOR;
    return (struct timespec){.tv_sec = nanoseconds / NS_PER_SECOND, .tv_nsec = nanoseconds % NS_PER_SECOND};
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec *asked, struct timespec *left) {
    const sleeper real = (sleeper)dlsym(RTLD_NEXT, "clock_nanosleep");
    const struct timespec actual = (flags & TIMER_ABSTIME) != 0 ? *asked : shortened(asked);
    return real(clock, flags, &actual, left);
}

int nanosleep(const struct timespec *asked, struct timespec *left) {
    const struct timespec actual = shortened(asked);
    typedef int (*short_sleeper)(const struct timespec *, struct timespec *);
    return ((short_sleeper)dlsym(RTLD_NEXT, "nanosleep"))(&actual, left);
}

unsigned alarm(unsigned seconds) {
    const long long microseconds = (long long)seconds * US_PER_SECOND / ALARM_DIVISOR;
    const struct itimerval timer = {
        .it_value = {.tv_sec = microseconds / US_PER_SECOND, .tv_usec = microseconds % US_PER_SECOND}};
    struct itimerval left = {0};
    setitimer(ITIMER_REAL, &timer, &left);
    // What was left, in whole seconds of the caller's time; never none of an alarm that was still to come.
    const long long before = (left.it_value.tv_sec * (long long)US_PER_SECOND + left.it_value.tv_usec) * ALARM_DIVISOR;
    return (unsigned)((before + US_PER_SECOND - 1) / US_PER_SECOND);
}
