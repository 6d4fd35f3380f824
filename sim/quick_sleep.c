// Preloaded into the programs of a simulated router, shortens their waiting: a sleep of a second or more takes a
// hundredth of it. What waits for a modem's restart or for a link then takes as long as a test may take, and the
// programs are still those that ship. An alarm, which bounds what hangs, comes after a tenth of its time: what does not
// hang has to end before it, on a busy machine, too.
//
// With QUICK_WAITS=N in the environment it is all waiting: every sleep, and every read of a tty that ends after a
// silence, takes an N-th of its time. The program's own counting of attempts and silences stays as it is, so that a
// run of many hours fits into minutes; what was waited for is counted in quick_waits, as it would have been without
// this library.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/time.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

enum {
    LONG_SLEEP_DIVISOR = 100,
    ALARM_DIVISOR = 10,
    US_PER_SECOND = 1000000,
    NS_PER_SECOND = 1000000000,
    NS_PER_MS = 1000000,
    MS_PER_VTIME = 100,
};

// What this process did since the last time somebody set it to zero: found by name (dlsym) by whoever wants to know.
struct {
    long locked;            // ttys whose lock was taken, each of which starts an exchange
    long refused;           // attempts at a lock that somebody else had
    long silent_reads;      // reads that ended without a byte, and
    long most_silent_reads; // the most of them after one lock
    long waited_ms;         // sleeps and silences, as long as they were asked for
} quick_waits;

static long silent_reads_since_lock;

static long long divisor_of_all(void) {
    static long long divisor = -1;
    if (divisor < 0) {
        const char *text = getenv("QUICK_WAITS");
        divisor = text != NULL ? atoll(text) : 0;
    }
    return divisor;
}

static long long nanoseconds_of(const struct timespec *time) {
    return (long long)time->tv_sec * NS_PER_SECOND + time->tv_nsec;
}

static struct timespec timespec_of(long long nanoseconds) {
    return (struct timespec){.tv_sec = nanoseconds / NS_PER_SECOND, .tv_nsec = nanoseconds % NS_PER_SECOND};
}

static long long divisor_of_sleep(const struct timespec *asked) {
    const long long all = divisor_of_all();
    return all > 0 ? all : asked->tv_sec >= 1 ? LONG_SLEEP_DIVISOR : 1;
}

typedef int (*sleeper)(clockid_t, int, const struct timespec *, struct timespec *);

static int sleep_shortened(clockid_t clock, const struct timespec *asked, struct timespec *left) {
    const long long divisor = divisor_of_sleep(asked);
    const struct timespec actual = timespec_of(nanoseconds_of(asked) / divisor);
    quick_waits.waited_ms += (long)(nanoseconds_of(asked) / NS_PER_MS);
    const int result = ((sleeper)dlsym(RTLD_NEXT, "clock_nanosleep"))(clock, 0, &actual, left);
    // Who goes on with what is left asks for it as if nothing had been shortened.
    if (result == EINTR && left != NULL) {
        *left = timespec_of(nanoseconds_of(left) * divisor);
    }
    return result;
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec *asked, struct timespec *left) {
    if ((flags & TIMER_ABSTIME) != 0) {
        return ((sleeper)dlsym(RTLD_NEXT, "clock_nanosleep"))(clock, flags, asked, left);
    }
    return sleep_shortened(clock, asked, left);
}

int nanosleep(const struct timespec *asked, struct timespec *left) {
    const int result = sleep_shortened(CLOCK_REALTIME, asked, left);
    if (result != 0) {
        errno = result;
        return -1;
    }
    return 0;
}

// How long a read of this descriptor waits for its first byte, in milliseconds; 0 where it is no tty with a limit.
static int silence_limit(int fd) {
    struct termios attributes;
    if (tcgetattr(fd, &attributes) != 0 || (attributes.c_lflag & ICANON) != 0 || attributes.c_cc[VMIN] != 0) {
        return 0;
    }
    return attributes.c_cc[VTIME] * MS_PER_VTIME;
}

static void count_silence(int milliseconds) {
    quick_waits.silent_reads++;
    silent_reads_since_lock++;
    if (silent_reads_since_lock > quick_waits.most_silent_reads) {
        quick_waits.most_silent_reads = silent_reads_since_lock;
    }
    quick_waits.waited_ms += milliseconds;
}

ssize_t read(int fd, void *buffer, size_t size) {
    typedef ssize_t (*reader)(int, void *, size_t);
    const reader real = (reader)dlsym(RTLD_NEXT, "read");
    const long long divisor = divisor_of_all();
    if (divisor == 0) {
        return real(fd, buffer, size);
    }
    const int saved_errno = errno;
    const int limit = silence_limit(fd);
    errno = saved_errno;
    if (limit == 0) {
        return real(fd, buffer, size);
    }
    struct pollfd tty = {.fd = fd, .events = POLLIN};
    const struct timespec timeout = timespec_of((long long)limit * NS_PER_MS / divisor);
    const int ready = ppoll(&tty, 1, &timeout, NULL);
    // Bytes, or the end of a tty that was hung up: neither is waited for.
    const ssize_t got = ready > 0 ? real(fd, buffer, size) : ready;
    if (got == 0) {
        count_silence(ready == 0 ? limit : 0);
    }
    return got;
}

int flock(int fd, int operation) {
    typedef int (*locker)(int, int);
    const int result = ((locker)dlsym(RTLD_NEXT, "flock"))(fd, operation);
    const int saved_errno = errno;
    if ((operation & LOCK_EX) != 0 && isatty(fd)) {
        if (result == 0) {
            quick_waits.locked++;
            silent_reads_since_lock = 0;
        } else {
            quick_waits.refused++;
        }
    }
    errno = saved_errno;
    return result;
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
