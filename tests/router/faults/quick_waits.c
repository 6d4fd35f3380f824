// Preloaded into the programs of a simulated router, makes all waiting short, so that a program can be run some
// thousand times: sleeps take a hundredth of their time, those of a second and more a thousandth, and a read that waits
// for a modem's reply gives up after SILENCE_MS. What a program does, and in which order, stays as it is.
//
// In vela_modem it also makes the first of the two marks that meddle.c counts from: when the libraries have been loaded
// and main is about to begin.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <stdbool.h>
#include <string.h>
#include <sys/syscall.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

enum { DIVISOR = 100, LONG_DIVISOR = 1000, NS_PER_SECOND = 1000000000, SILENCE_MS = 50, DESCRIPTORS = 256 };

// The ttys whose reads end after a silence. Told by tcsetattr, as asking the kernel would be one more system call.
static bool ends_after_silence[DESCRIPTORS];

static struct timespec shortened(const struct timespec *asked) {
    const long long nanoseconds = (long long)asked->tv_sec * NS_PER_SECOND + asked->tv_nsec;
    const long long shorter = nanoseconds / (asked->tv_sec >= 1 ? LONG_DIVISOR : DIVISOR);
    return (struct timespec){.tv_sec = shorter / NS_PER_SECOND, .tv_nsec = shorter % NS_PER_SECOND};
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec *asked, struct timespec *left) {
    typedef int (*sleeper)(clockid_t, int, const struct timespec *, struct timespec *);
    const struct timespec actual = (flags & TIMER_ABSTIME) != 0 ? *asked : shortened(asked);
    return ((sleeper)dlsym(RTLD_NEXT, "clock_nanosleep"))(clock, flags, &actual, left);
}

int nanosleep(const struct timespec *asked, struct timespec *left) {
    typedef int (*sleeper)(const struct timespec *, struct timespec *);
    const struct timespec actual = shortened(asked);
    return ((sleeper)dlsym(RTLD_NEXT, "nanosleep"))(&actual, left);
}

int tcsetattr(int fd, int actions, const struct termios *attributes) {
    typedef int (*setter)(int, int, const struct termios *);
    if (fd >= 0 && fd < DESCRIPTORS)
        ends_after_silence[fd] = attributes->c_cc[VMIN] == 0 && attributes->c_cc[VTIME] > 0;
    return ((setter)dlsym(RTLD_NEXT, "tcsetattr"))(fd, actions, attributes);
}

ssize_t read(int fd, void *buffer, size_t size) {
    typedef ssize_t (*reader)(int, void *, size_t);
    if (fd >= 0 && fd < DESCRIPTORS && ends_after_silence[fd]) {
        // ppoll, which the programs do not use themselves: a fault that is meant for poll is not for this one.
        struct pollfd tty = {.fd = fd, .events = POLLIN};
        struct timespec limit = {.tv_nsec = SILENCE_MS * 1000000L};
        if (syscall(SYS_ppoll, &tty, 1L, &limit, NULL, 0L) == 0)
            return 0;
    }
    return ((reader)dlsym(RTLD_NEXT, "read"))(fd, buffer, size);
}

// The next file of that number may be a pipe from a command, which on a busy machine takes longer than that.
int close(int fd) {
    typedef int (*closer)(int);
    if (fd >= 0 && fd < DESCRIPTORS)
        ends_after_silence[fd] = false;
    return ((closer)dlsym(RTLD_NEXT, "close"))(fd);
}

__attribute__((constructor)) static void mark_the_beginning(void) {
    if (strcmp(program_invocation_short_name, "vela_modem") == 0)
        syscall(SYS_write, -1L, "", 0L);
}
