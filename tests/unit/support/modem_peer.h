// The other end of a modem's tty: a pseudo-terminal, and a thread that answers on it by a script.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <termios.h>
#include <thread>

// A pseudo-terminal. The tty's side is opened by the code under test through path(); this side stays open here.
class PseudoTerminal {
public:
    PseudoTerminal();
    ~PseudoTerminal();
    PseudoTerminal(const PseudoTerminal &) = delete;
    PseudoTerminal &operator=(const PseudoTerminal &) = delete;

    const char *path() const { return path_.c_str(); }
    int modem_side() const { return master_; }
    // A descriptor of the tty's side that the test itself holds, for looking at it.
    int tty() const { return tty_; }
    termios attributes() const;
    void set_attributes(const termios &wanted) const;
    // Writes everything as the modem.
    void write(std::string_view bytes) const;
    // Reads as the modem until `count` bytes have come.
    std::string read(size_t count) const;
    // Waits until `count` bytes are ready to be read on the tty's side.
    void wait_for_queued(int count) const;
    // Closes the modem's side, as when a modem drops off the bus.
    void hang_up();

private:
    int master_;
    std::string path_;
    int tty_;
};

// A modem on a pseudo-terminal whose side of the talk is the function `script`, run in a thread of its own. The script
// ends by itself or when the peer goes out of scope, which ends every wait in it.
class ModemPeer {
public:
    using Script = std::function<void(ModemPeer &)>;

    explicit ModemPeer(Script script);
    ~ModemPeer() { stop(); }
    ModemPeer(const ModemPeer &) = delete;
    ModemPeer &operator=(const ModemPeer &) = delete;

    const char *path() const { return terminal_.path(); }
    const PseudoTerminal &terminal() const { return terminal_; }
    // All that the other side has sent; complete after stop().
    std::string received() const;
    void stop();

    // For scripts. All return early when the peer is stopped.
    std::string read_line(); // up to and including the line feed
    void write(std::string_view bytes);
    void pause(std::chrono::milliseconds time) const;
    bool stopped() const { return stopping_; }
    void hang_up() { terminal_.hang_up(); }

private:
    PseudoTerminal terminal_;
    std::atomic<bool> stopping_ = false;
    mutable std::mutex mutex_;
    std::string received_;
    std::thread thread_;
};

// A script that takes one command line and answers it.
ModemPeer::Script answer(std::string reply);
