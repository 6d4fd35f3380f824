// Starting and ending the simulated bus daemon.
#include "ubus_daemon.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Far more than a loaded machine needs to start Python.
constexpr int START_LIMIT_MS = 60000;
constexpr int POLL_MS = 5;

[[noreturn]] void runDaemon(const std::string &directory, const std::string &socket) {
    const std::string state = directory + "/state.json";
    const std::string log = directory + "/log";
    // Nothing stays behind, should the test itself be killed.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (chdir(SIM_DIR) == 0) {
        execl(PYTHON, PYTHON, "-B", "-m", "velasim.ubusd", "--socket", socket.c_str(), "--state", state.c_str(),
              "--log", log.c_str(), static_cast<char *>(nullptr));
    }
    _exit(127);
}

} // namespace

UbusDaemon::UbusDaemon(const std::string &state) {
    std::string pattern = std::filesystem::temp_directory_path() / "ubus_test_XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        ADD_FAILURE() << "no temporary directory";
        return;
    }
    directory_ = pattern;
    socket_ = directory_ + "/sock";
    setState(state);
    pid_ = fork();
    if (pid_ == 0) {
        runDaemon(directory_, socket_);
    }
    // The socket gets its name when it is ready.
    for (int waited = 0; access(socket_.c_str(), F_OK) != 0; waited += POLL_MS) {
        if (waitpid(pid_, nullptr, WNOHANG) != 0) {
            pid_ = -1;
        }
        if (waited >= START_LIMIT_MS || pid_ == -1) {
            ADD_FAILURE() << "the bus daemon does not start";
            return;
        }
        usleep(POLL_MS * 1000);
    }
}

UbusDaemon::~UbusDaemon() {
    kill();
    std::error_code ignored;
    if (!directory_.empty()) {
        std::filesystem::remove_all(directory_, ignored);
    }
}

std::vector<std::string> UbusDaemon::log() const {
    std::ifstream file(directory_ + "/log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

void UbusDaemon::setState(const std::string &state) const {
    const std::string path = directory_ + "/state.json";
    std::ofstream(path + ".new") << state;
    std::filesystem::rename(path + ".new", path);
}

void UbusDaemon::freeze() const {
    ::kill(pid_, SIGSTOP);
    waitpid(pid_, nullptr, WUNTRACED);
}

void UbusDaemon::kill() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }
}
