// The machine under a fuzzer: what the product asks of the C library is answered here, so that a run reaches no device,
// starts no program, sends nothing and waits for nothing.
//
// The linker leads the calls of the whole program here (WRAPPED_CALLS in CMakeLists.txt). Outside of run_on() they go
// on to the C library as they are. During it
// - paths lead into a scratch directory; one with a ".." leads nowhere;
// - a path that is_tty() opens a serial port, whose calls the FakeSystem answers;
// - a fork makes a child that has ended already, and a pipe is full of what output_of() its command says;
// - a socket is a connection to the bus, which the FakeSystem answers;
// - the monotonic clock goes on where something waits, and stands still otherwise;
// - abort(), which is what the product does about a text that does not fit, ends the run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ifaddrs.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <termios.h>

class FakeSystem {
public:
    FakeSystem() = default;
    FakeSystem(const FakeSystem &) = delete;
    FakeSystem &operator=(const FakeSystem &) = delete;
    virtual ~FakeSystem() = default;

    // --- Serial port ---
    virtual bool is_tty(std::string_view /*path*/) { return false; }
    // Whether the next call succeeds that opens, closes, locks or sets up a serial port.
    virtual bool control_succeeds() { return true; }
    // What read and write do. A read that returns 0 has waited in vain for as long as the port is set to.
    virtual ssize_t receive(char * /*buffer*/, size_t /*size*/) { return 0; }
    virtual ssize_t transmit(const char * /*bytes*/, size_t size) { return static_cast<ssize_t>(size); }

    // --- Commands ---
    virtual std::string output_of(const std::string & /*command*/) { return {}; }
    virtual int status_of(const std::string & /*command*/) { return 0; } // as waitpid gives it

    // --- Bus ---
    virtual bool bus_accepts() { return false; }
    virtual void bus_sent(std::string_view /*bytes*/) {}
    // As recv does; BUS_IS_SILENT has nothing now.
    virtual ssize_t bus_receive(char * /*buffer*/, size_t /*size*/) { return 0; }
    virtual bool bus_is_silent() { return false; }

    // Called on this system where a run has aborted: for what the product keeps between two of them.
    virtual void after_abort() {}

    // --- Files ---
    // Told of each path that a call creates, renames or removes something by, before it does.
    virtual void changes(std::string_view /*path*/) {}

    // --- Network ---
    virtual ifaddrs *network_devices() { return nullptr; }
};

// Calls that can be made to fail in the next run, as they do where memory is short, the disk full or a table full.
enum class Call { MALLOC, OPEN, READ, WRITE, RENAME, TRUNCATE, PIPE, FORK, SOCKET, INTERFACES, INTERRUPT };
constexpr size_t CALL_COUNT = 11;

// INTERRUPT is a signal to the host in a read, write, lock or sleep.
//
// The call of that number, from 1 on, fails; with `from_then_on` all after it as well.
void fail_call(Call call, int number, bool from_then_on);

enum class Ended { NORMALLY, BY_ABORT };

// Runs the product on the fake system. What an aborted run has left open or allocated is released; one that ends
// normally must have left no descriptor.
Ended run_on(FakeSystem &system, const std::function<void()> &product);

// Of the latest run.
int64_t waited_ms();
const termios &tty_attributes(); // as they are now
const termios &tty_attributes_at_start();
int descriptors_left(); // by a run that ended normally; those before it not counted

// --- The scratch directory; only outside of run_on() ---

// Puts a file there, by the path that the product knows it by, with the directories on the way to it.
void put_file(const std::string &path, std::string_view content);
void make_directories(const std::string &path);
// Empties the directory.
void remove_below(const std::string &path);
// Where it really is.
std::string scratch_path(const std::string &path);
