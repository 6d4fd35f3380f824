// The simulated bus daemon as a child process with files of its own, for one test.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

class UbusDaemon {
public:
    // Starts the daemon with the state (JSON, see sim/velasim/ubusd.py) and returns once it can be connected to.
    explicit UbusDaemon(const std::string &state);
    ~UbusDaemon();
    UbusDaemon(const UbusDaemon &) = delete;
    UbusDaemon &operator=(const UbusDaemon &) = delete;

    // Where it listens.
    const char *socket() const { return socket_.c_str(); }

    // The invocations so far, a line of JSON each.
    std::vector<std::string> log() const;

    void setState(const std::string &state) const;

    // Stops it in its tracks: callers still connect, and nobody reads what they send.
    void freeze() const;

    // Kills the daemon and waits for its end.
    void kill();

private:
    std::string directory_;
    std::string socket_;
    pid_t pid_ = -1;
};
