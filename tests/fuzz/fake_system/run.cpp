// A run of the product on the fake system: its beginning, its end, and the descriptors and failures in between.
#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <unistd.h>

#include "machine.h"

using namespace machine;

namespace {

std::jmp_buf run_end;
Kind kinds[MOST_DESCRIPTORS];
int left_descriptors = 0;

struct Failure {
    int calls_until; // 0: none fails
    bool from_then_on;
};
Failure failures[CALL_COUNT];

uint64_t open_descriptors() {
    uint64_t set = 0;
    for (int fd = 0; fd < MOST_DESCRIPTORS; fd++) {
        set |= fcntl(fd, F_GETFD) >= 0 ? uint64_t{1} << fd : 0;
    }
    return set;
}

} // namespace

FakeSystem *machine::current = nullptr;

Kind machine::kind_of(int fd) {
    return current != nullptr && fd >= 0 && fd < MOST_DESCRIPTORS ? kinds[fd] : Kind::FILE;
}

int machine::opened_as(Kind kind, int fd) {
    require(fd < MOST_DESCRIPTORS);
    if (fd >= 0) {
        kinds[fd] = kind;
    }
    return fd;
}

void machine::forget_kind(int fd) {
    if (current != nullptr && fd >= 0 && fd < MOST_DESCRIPTORS) {
        kinds[fd] = Kind::FILE;
    }
}

bool machine::fails(Call call) {
    if (current == nullptr) {
        return false;
    }
    Failure &failure = failures[static_cast<size_t>(call)];
    if (failure.calls_until == 0) {
        return false;
    }
    if (--failure.calls_until > 0) {
        return false;
    }
    failure.calls_until = failure.from_then_on ? 1 : 0;
    errno = call == Call::MALLOC ? ENOMEM : call == Call::INTERRUPT ? EINTR : EIO;
    return true;
}

void fail_call(Call call, int number, bool from_then_on) {
    failures[static_cast<size_t>(call)] = {number, from_then_on};
}

Ended run_on(FakeSystem &system, const std::function<void()> &product) {
    // What the product says is nothing to see here.
    static FILE *const nowhere = fopen("/dev/null", "we");
    static char nowhere_buffer[BUFSIZ];
    static const int buffered = setvbuf(nowhere, nowhere_buffer, _IOFBF, sizeof nowhere_buffer);
    require(buffered == 0);
    FILE *const output = stdout;
    FILE *const errors = stderr;
    stdout = nowhere;
    stderr = nowhere;

    reset_tty();
    start_clock();
    left_descriptors = 0;
    scratch_path("/"); // where the product's paths lead from now on
    const uint64_t open_before = open_descriptors();
    record_allocations();
    volatile Ended ended = Ended::NORMALLY;
    if (setjmp(run_end) == 0) {
        current = &system;
        product();
        current = nullptr;
    } else {
        ended = Ended::BY_ABORT;
        std::fill(std::begin(failures), std::end(failures), Failure{});
        current = &system;
        system.after_abort();
        current = nullptr;
        close_open_files();
        release_allocations();
    }
    stop_recording_allocations();
    std::fill(std::begin(failures), std::end(failures), Failure{});
    stdout = output;
    stderr = errors;
    forget_open_files();
    std::fill(std::begin(kinds), std::end(kinds), Kind::FILE);
    const uint64_t left = open_descriptors() & ~open_before;
    for (int fd = 0; fd < MOST_DESCRIPTORS; fd++) {
        if ((left >> fd & 1) != 0) {
            close(fd);
            left_descriptors += ended == Ended::NORMALLY ? 1 : 0;
        }
    }
    return ended;
}

int descriptors_left() {
    return left_descriptors;
}

// NOLINTBEGIN: the linker prescribes these names.
extern "C" {

[[noreturn]] void __real_abort();
[[noreturn]] void __wrap_abort() {
    if (current == nullptr) {
        __real_abort();
    }
    current = nullptr;
    longjmp(run_end, 1);
}

} // extern "C"
// NOLINTEND
