// What the parts of the fake system share: the run that is on, and what a call does in it.
#pragma once

#include <cerrno>
#include <cstdint>

#include "fake_system.h"
#include "fuzz_support.h"

namespace machine {

constexpr int MOST_DESCRIPTORS = 64;
constexpr int64_t NS_PER_MS = 1'000'000;
constexpr int64_t NS_PER_SECOND = 1'000'000'000;

// --- The run (run.cpp) ---

extern FakeSystem *current; // during a run, outside of what is answered here

// While something is answered, calls mean the C library's, and allocations are the fake system's own.
class Answering {
public:
    Answering() : system_(current) { current = nullptr; }
    ~Answering() { current = system_; }
    Answering(const Answering &) = delete;
    Answering &operator=(const Answering &) = delete;
    FakeSystem *operator->() const { return system_; }

private:
    FakeSystem *system_;
};

// Whether fail_call() has this call fail; errno says why.
bool fails(Call call);

inline int fail(int error) {
    errno = error;
    return -1;
}

// Of a call that sets up a serial port.
inline int control_result(int error) {
    const Answering system;
    return system->control_succeeds() ? 0 : fail(error);
}

// --- Descriptors (run.cpp) ---

enum class Kind : uint8_t { FILE, TTY, BUS };

// FILE outside of a run.
Kind kind_of(int fd);
// Passes the descriptor on.
int opened_as(Kind kind, int fd);
void forget_kind(int fd);

// --- Allocations (allocations.cpp) ---

void record_allocations();
void stop_recording_allocations();
// Those that are still there.
void release_allocations();

// --- Files (paths.cpp, files.cpp) ---

// Where a path of the product leads; valid until the second call from now.
const char *real_path(const char *path);
// The same for a call that changes something, of which the FakeSystem is told first; outside of a run the path itself.
const char *changed_path(const char *path);

// A descriptor that is there only to be answered for.
int open_stand_in(Kind kind);
void close_open_files();
void forget_open_files();

// --- Serial port and time (serial_port.cpp, time.cpp) ---

void reset_tty();

void start_clock();
void wait_ns(int64_t duration);

} // namespace machine
