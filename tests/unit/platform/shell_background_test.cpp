// Commands in the background: nothing of the host stays in them and nothing of them stays in the host.
//
// The tests wait for files that the commands write, without a limit of their own.
#include "platform/shell.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/owners.h"
#include "support/child.h"
#include "support/files.h"

namespace {

class Background : public testing::Test {
protected:
    // Waits for a file that a command moves into place when it is complete.
    std::string wait_for(const char *name) const {
        const std::string path = directory / name;
        while (!std::filesystem::exists(path)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return read_file(path);
    }
    // A command that stores the output of `command` under the name.
    std::string storing(const std::string &command, const char *name) const {
        return "cd " + directory.path() + "; { " + command + "; } > part; mv part " + name;
    }
    // A command that waits until there is a file "go".
    std::string waiting() const { return "cd " + directory.path() + "; while [ ! -e go ]; do sleep 0.02; done; "; }

    ScratchDirectory directory;
};

TEST_F(Background, runs_the_command_with_the_shell) {
    EXPECT_EQ(fork_exec2(storing("sleep 0.05; printf 'b\\na\\n' | sort", "sorted").c_str()), 0);
    EXPECT_EQ(wait_for("sorted"), "a\nb\n");
}

TEST_F(Background, returns_while_the_command_is_still_running) {
    EXPECT_EQ(fork_exec2((waiting() + "echo > done").c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(directory / "done"));
    write_file(directory / "go", "");
    wait_for("done");
}

TEST_F(Background, leaves_no_zombie_and_no_child) {
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(fork_exec2("true"), 0);
    }
    EXPECT_EQ(fork_exec2(storing("echo last", "last").c_str()), 0);
    wait_for("last");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left, ended or not";
}

TEST_F(Background, leaves_no_descriptor_in_the_host) {
    const int before = open_descriptors();
    for (int i = 0; i < 20; i++) {
        EXPECT_EQ(fork_exec2("true"), 0);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Background, a_pipe_of_the_host_does_not_stay_open_behind_it) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0); // without close-on-exec
    const Descriptor reading(ends[0]);
    Descriptor writing(ends[1]);
    const std::string test = storing("[ ! -e /proc/$$/fd/" + std::to_string(ends[1]) + " ] && echo no", "inherited");
    EXPECT_EQ(fork_exec2((test + "; " + waiting() + "echo > done").c_str()), 0);
    EXPECT_EQ(wait_for("inherited"), "no\n");
    writing.reset();
    char byte = 0;
    EXPECT_EQ(read(reading.get(), &byte, 1), 0) << "the command keeps the pipe open";
    write_file(directory / "go", "");
    wait_for("done");
}

TEST_F(Background, its_standard_streams_are_the_null_device) {
    EXPECT_EQ(fork_exec2((storing("for f in 0 2; do readlink /proc/$$/fd/$f; done", "streams")).c_str()), 0);
    EXPECT_EQ(wait_for("streams"), "/dev/null\n/dev/null\n");
    // Standard output is the file while something is stored, so it is looked at by another command.
    const std::string outer = "sh -c 'readlink /proc/$PPID/fd/1 > " + (directory / "part") + "'; mv " +
                              (directory / "part") + " " + (directory / "output");
    EXPECT_EQ(fork_exec2(outer.c_str()), 0);
    EXPECT_EQ(wait_for("output"), "/dev/null\n");
}

TEST_F(Background, it_leads_a_session_of_its_own) {
    EXPECT_EQ(fork_exec2(storing("echo $$; cut -d ' ' -f 6 /proc/$$/stat", "session").c_str()), 0);
    const std::string numbers = wait_for("session");
    const std::string pid = numbers.substr(0, numbers.find('\n'));
    EXPECT_EQ(numbers, pid + "\n" + pid + "\n");
}

TEST_F(Background, it_gets_an_empty_signal_mask_and_the_default_sigpipe) {
    in_child([this] {
        signal(SIGPIPE, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        EXPECT_EQ(fork_exec2(storing("sed -n 's/Sig[BI][lg][kn]:.//p' /proc/self/status", "signals").c_str()), 0);
        const std::string masks = wait_for("signals");
        EXPECT_EQ(masks.substr(0, 17), "0000000000000000\n");
        EXPECT_EQ(std::stoul(masks.substr(17), nullptr, 16) & (1ul << (SIGPIPE - 1)), 0u);
    });
}

TEST_F(Background, a_host_that_ignores_its_children) {
    in_child([this] {
        signal(SIGCHLD, SIG_IGN);
        EXPECT_EQ(fork_exec2(storing("echo text", "text").c_str()), 0);
        EXPECT_EQ(wait_for("text"), "text\n");
        EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN);
    });
}

TEST_F(Background, a_host_with_closed_standard_streams) {
    in_child([this] {
        for (int fd : {0, 1, 2}) {
            close(fd);
        }
        EXPECT_EQ(fork_exec2(storing("echo text; readlink /proc/$$/fd/0", "text").c_str()), 0);
        EXPECT_EQ(wait_for("text"), "text\n/dev/null\n");
        for (int fd : {0, 1, 2}) {
            EXPECT_EQ(fcntl(fd, F_GETFD), -1);
        }
    });
}

} // namespace
