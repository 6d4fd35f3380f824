// Shell commands that are waited for: their output, their status, and the clean start that they get.
#include "platform/shell.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/owners.h"
#include "support/capture.h"
#include "support/child.h"
#include "support/files.h"
#include "support/interruptions.h"
#include "support/short_memory.h"
#include "support/system_calls.h"

namespace {

using testing::HasSubstr;

long without_close_range(long number, long first, long second, long third) {
    if (number == SYS_close_range) {
        errno = ENOSYS;
        return -1;
    }
    return real_system_call(number, first, second, third);
}

// A limit of this process, lower for a while.
class Limit {
public:
    Limit(__rlimit_resource resource, rlim_t most) : resource_(resource) {
        EXPECT_EQ(getrlimit(resource_, &before_), 0);
        const rlimit lower = {most, before_.rlim_max};
        EXPECT_EQ(setrlimit(resource_, &lower), 0);
    }
    ~Limit() { setrlimit(resource_, &before_); }
    Limit(const Limit &) = delete;
    Limit &operator=(const Limit &) = delete;

private:
    __rlimit_resource resource_;
    rlimit before_ = {};
};

using Reader = void (*)(const char *command, std::span<char> out);
constexpr Reader READERS[] = {getShellCommandReturn, getShellCommandReturnLine, getUciReturn};

std::string output(const char *command, size_t size = 1024) {
    std::vector<char> out(size);
    getShellCommandReturn(command, out);
    return out.data();
}

std::string first_line(const char *command, size_t size = 1024) {
    std::vector<char> out(size);
    getShellCommandReturnLine(command, out);
    return out.data();
}

std::string dynamic_output(const char *command) {
    const Allocated<char> out(getShellCommandReturnDynamic(command));
    return out ? out.get() : "(null)";
}

TEST(ShellOutput, all_of_it_with_its_line_ends) {
    EXPECT_EQ(output("printf 'one\\ntwo\\n'"), "one\ntwo\n");
    std::array<char, 64> out = {};
    getUciReturn("printf 'one\\ntwo\\n'", out);
    EXPECT_STREQ(out.data(), "one\ntwo\n");
}

TEST(ShellOutput, the_full_syntax_of_the_shell) {
    EXPECT_EQ(output("printf 'b\\na\\n' | sort; false || echo $((6 * 7)) && echo \"x  y\" 2>/dev/null"),
              "a\nb\n42\nx  y\n");
}

TEST(ShellOutput, a_command_that_prints_nothing_leaves_a_zeroed_buffer_zeroed) {
    for (Reader read : READERS) {
        std::array<char, 16> out = {};
        read("true", out);
        EXPECT_EQ(out, (std::array<char, 16>{}));
    }
}

TEST(ShellOutput, a_command_that_prints_nothing_empties_a_used_buffer) {
    for (Reader read : READERS) {
        std::array<char, 16> out;
        out.fill('x');
        read("true", out);
        EXPECT_STREQ(out.data(), "");
    }
}

TEST(ShellOutput, a_command_that_cannot_be_started_prints_nothing) {
    const Capture errors(STDERR_FILENO);
    for (Reader read : READERS) {
        std::array<char, 16> out = {};
        read("/nonexistent/command", out);
        EXPECT_STREQ(out.data(), "");
    }
}

TEST(ShellOutput, a_failed_command_still_has_its_output) {
    EXPECT_EQ(output("echo partial; exit 3"), "partial\n");
}

TEST(ShellOutput, standard_error_is_the_callers) {
    Capture errors(STDERR_FILENO);
    EXPECT_EQ(output("echo complaint >&2"), "");
    EXPECT_EQ(dynamic_output("echo another >&2"), "(null)");
    EXPECT_EQ(errors.text(), "complaint\nanother\n");
}

TEST(ShellOutput, what_just_fits_is_complete) {
    EXPECT_EQ(output("printf 1234567", 8), "1234567");
}

TEST(ShellOutput, what_does_not_fit_is_cut) {
    EXPECT_EQ(output("printf 12345678", 8), "1234567");
    EXPECT_EQ(output("printf 12345678", 1), "");
}

TEST(ShellOutput, no_buffer_at_all) {
    for (Reader read : READERS) {
        read("echo text", std::span<char>());
    }
}

TEST(ShellOutput, nothing_is_written_behind_the_buffer) {
    for (Reader read : READERS) {
        std::array<char, 32> out;
        out.fill('x');
        read("seq 1000 | tr -d '\\n'", std::span(out).first(8));
        EXPECT_EQ(strnlen(out.data(), out.size()), 7u);
        EXPECT_EQ(std::string(out.data() + 8, 24), std::string(24, 'x'));
    }
}

TEST(ShellOutput, a_command_runs_to_its_end_although_its_output_does_not_fit) {
    const ScratchDirectory directory;
    for (Reader read : READERS) {
        const std::string marker = directory / "finished";
        std::array<char, 8> out = {};
        read(("seq 100000; echo yes > " + marker).c_str(), out);
        EXPECT_EQ(read_file(marker), "yes\n");
        unlink(marker.c_str());
    }
}

TEST(ShellOutput, nuls_in_the_output_do_no_harm) {
    EXPECT_EQ(output("printf 'ab\\000cd\\n'"), "ab");
    EXPECT_EQ(first_line("printf 'ab\\000cd\\nef\\n'"), "ab");
    EXPECT_EQ(dynamic_output("printf 'ab\\000cd\\n'"), "ab");
    EXPECT_EQ(output("head -c 100000 /dev/zero", 16), "");
    EXPECT_EQ(first_line("head -c 100000 /dev/zero", 16), "");
}

TEST(ShellOutput, bytes_of_all_values) {
    std::string expected;
    for (int byte = 1; byte < 256; byte++) {
        expected += static_cast<char>(byte);
    }
    const ScratchDirectory directory;
    write_file(directory / "bytes", expected);
    EXPECT_EQ(output(("cat " + (directory / "bytes")).c_str()), expected);
    EXPECT_EQ(dynamic_output(("cat " + (directory / "bytes")).c_str()), expected);
}

TEST(ShellLine, only_the_first_line_without_its_line_end) {
    EXPECT_EQ(first_line("printf 'one\\ntwo\\n'"), "one");
    EXPECT_EQ(first_line("printf 'no line end'"), "no line end");
    EXPECT_EQ(first_line("printf '\\nsecond\\n'"), "");
}

TEST(ShellLine, a_pattern_without_a_match_gives_an_empty_line) {
    Capture errors(STDERR_FILENO);
    EXPECT_EQ(first_line("ls /sys/class/leds/*:usbpow*/brightness"), "");
    EXPECT_THAT(errors.text(), HasSubstr("usbpow"));
}

TEST(ShellLine, a_line_that_does_not_fit_is_cut) {
    EXPECT_EQ(first_line("printf '12345678\\nx\\n'", 8), "1234567");
    EXPECT_EQ(first_line("printf '1234567\\nx\\n'", 8), "1234567");
}

TEST(ShellDynamic, output_of_any_length) {
    const std::string all = dynamic_output("seq 200000");
    EXPECT_EQ(all.size(), 1288895u);
    EXPECT_TRUE(all.starts_with("1\n2\n3\n"));
    EXPECT_TRUE(all.ends_with("199999\n200000\n"));
}

TEST(ShellDynamic, sizes_around_powers_of_two) {
    for (const char *size : {"1", "127", "128", "129", "1023", "1024", "1025", "4095", "4096", "4097", "65536"}) {
        const std::string command = "head -c " + std::string(size) + " /dev/zero | tr '\\000' y";
        EXPECT_EQ(dynamic_output(command.c_str()), std::string(std::stoul(size), 'y'));
    }
}

TEST(ShellDynamic, null_where_nothing_was_printed_or_run) {
    const Capture errors(STDERR_FILENO);
    EXPECT_EQ(getShellCommandReturnDynamic("true"), nullptr);
    EXPECT_EQ(getShellCommandReturnDynamic("cat /nonexistent/signal 2>/dev/null"), nullptr);
    EXPECT_EQ(getShellCommandReturnDynamic("/nonexistent/command"), nullptr);
}

TEST(ShellDynamic, tells_whether_what_a_command_said_is_known) {
    const Capture errors(STDERR_FILENO);
    constexpr struct {
        const char *command;
        const char *text;
        bool known;
    } CASES[] = {
        {"echo text", "text\n", true},
        {"true", "", true},
        {"false", "", true},
        {"kill -9 $$", "", true},
        {"/nonexistent/command", "", false},
        {"nonexistent-command | cat", "", true}, // known is what the last command of the pipe said
    };
    for (const auto &[command, text, expected] : CASES) {
        bool known = !expected;
        const Allocated<char> out(getShellCommandReturnDynamic(command, &known));
        EXPECT_EQ(std::string(out != nullptr ? out.get() : ""), text) << command;
        EXPECT_EQ(known, expected) << command;
    }
}

TEST(ShellDynamic, without_descriptors_nothing_is_known) {
    in_child([] {
        bool known = true;
        {
            const Limit descriptors(RLIMIT_NOFILE, STDERR_FILENO + 1);
            EXPECT_EQ(getShellCommandReturnDynamic("echo text", &known), nullptr);
        }
        EXPECT_FALSE(known);
    });
}

TEST(ShellDynamic, null_where_memory_is_short) {
    for (int spared : {0, 1}) {
        const ShortMemory short_now(spared);
        EXPECT_EQ(getShellCommandReturnDynamic("seq 1000"), nullptr);
    }
}

TEST(ShellExec, returns_the_exit_status) {
    EXPECT_EQ(execCommand("true"), 0);
    EXPECT_EQ(execCommand("false"), 1);
    EXPECT_EQ(execCommand("exit 255"), 255);
    EXPECT_EQ(execCommand("killall -9 no-such-program 2>/dev/null; exit 3"), 3);
}

TEST(ShellExec, a_command_that_is_not_there_gives_the_shells_127) {
    EXPECT_EQ(execCommand("/nonexistent/command 2>/dev/null"), 127);
}

TEST(ShellExec, a_signal_gives_128_and_its_number) {
    EXPECT_EQ(execCommand("kill -9 $$"), 128 + SIGKILL);
    EXPECT_EQ(execCommand("kill -15 $$"), 128 + SIGTERM);
}

TEST(ShellExec, waits_for_the_command) {
    const ScratchDirectory directory;
    EXPECT_EQ(execCommand(("sleep 0.2; echo done > " + (directory / "marker")).c_str()), 0);
    EXPECT_EQ(read_file(directory / "marker"), "done\n");
}

TEST(ShellExec, output_is_dropped_and_complaints_are_the_callers) {
    Capture out(STDOUT_FILENO);
    Capture errors(STDERR_FILENO);
    EXPECT_EQ(execCommand("echo text; echo complaint >&2"), 0);
    EXPECT_EQ(errors.text(), "complaint\n");
    EXPECT_EQ(out.text(), "");
}

TEST(ShellExec, an_empty_command_succeeds) {
    EXPECT_EQ(execCommand(""), 0);
    EXPECT_EQ(output(""), "");
    EXPECT_EQ(getShellCommandReturnDynamic(""), nullptr);
}

TEST(ShellWithin, a_command_that_ends_in_time_is_like_any_other) {
    EXPECT_EQ(execCommandWithin("true | false", 60), 1);
    EXPECT_EQ(execCommandWithin("exit 255", 60), 255);
    EXPECT_EQ(execCommandWithin("kill -9 $$", 60), 128 + SIGKILL);
}

TEST(ShellWithin, a_command_that_hangs_is_killed_with_all_that_it_started) {
    in_child([] {
        int ends[2];
        ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
        const int real_errors = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        const int status = execCommandWithin("sleep 1000 | { sleep 1000; true; }", 1);
        dup2(real_errors, STDERR_FILENO);
        EXPECT_EQ(status, 128 + SIGALRM);
        // Each process of the command held the writing end: the pipe ends when all are gone, and not before.
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), 0);
    });
}

TEST(ShellWithin, the_limit_holds_in_a_host_that_ignores_or_blocks_the_alarm) {
    in_child([] {
        signal(SIGALRM, SIG_IGN);
        sigset_t alarm_only;
        sigemptyset(&alarm_only);
        sigaddset(&alarm_only, SIGALRM);
        sigprocmask(SIG_BLOCK, &alarm_only, nullptr);
        EXPECT_EQ(execCommandWithin("sleep 1000", 1), 128 + SIGALRM);
    });
}

TEST(ShellWithin, the_status_is_lost_in_a_host_that_ignores_its_children) {
    in_child([] {
        signal(SIGCHLD, SIG_IGN);
        EXPECT_EQ(execCommandWithin("true", 60), -1);
    });
}

TEST(ShellFile, exists_or_not) {
    const ScratchDirectory directory;
    write_file(directory / "forward", "");
    EXPECT_NE(cmm_check_file_is_exist((directory / "forward").c_str()), 0);
    EXPECT_EQ(cmm_check_file_is_exist((directory / "other").c_str()), 0);
    EXPECT_EQ(cmm_check_file_is_exist("/nonexistent/forward"), 0);
    EXPECT_EQ(cmm_check_file_is_exist(""), 0);
}

TEST(ShellFile, a_file_that_may_not_be_read_exists) {
    const ScratchDirectory directory;
    write_file(directory / "forward", "");
    ASSERT_EQ(chmod((directory / "forward").c_str(), 0), 0);
    EXPECT_NE(cmm_check_file_is_exist((directory / "forward").c_str()), 0);
}

// A command that prints those of the descriptors that it has.
std::string say_which_are_open(const Descriptor &one, const Descriptor &another) {
    return "for f in " + std::to_string(one.get()) + " " + std::to_string(another.get()) +
           "; do [ ! -e /proc/$$/fd/$f ] || echo $f; done";
}

// The host's descriptor would survive an exec: it is left without the close-on-exec flag on purpose.
TEST(ShellHost, no_descriptor_of_the_host_reaches_a_command) {
    const Descriptor ours(open("/dev/null", O_RDONLY));
    const Descriptor high(fcntl(ours.get(), F_DUPFD, 100));
    ASSERT_TRUE(high.valid());
    const std::string test = say_which_are_open(ours, high);
    EXPECT_EQ(output(test.c_str()), "");
    EXPECT_EQ(first_line(test.c_str()), "");
    EXPECT_EQ(dynamic_output(test.c_str()), "(null)");
    const ScratchDirectory directory;
    EXPECT_EQ(execCommand(("{ " + test + "; } > " + (directory / "found")).c_str()), 0);
    EXPECT_EQ(read_file(directory / "found"), "");
}

TEST(ShellHost, nor_on_a_kernel_that_cannot_close_them_all_at_once) {
    const Descriptor ours(open("/dev/null", O_RDONLY));
    const Descriptor high(fcntl(ours.get(), F_DUPFD, 100));
    const Limit descriptors(RLIMIT_NOFILE, 200); // they are closed one by one
    const std::string test = say_which_are_open(ours, high);
    const SystemCalls old_kernel(without_close_range);
    EXPECT_EQ(output(test.c_str()), "");
}

TEST(ShellHost, without_descriptors_to_spare_no_output_is_read) {
    in_child([] {
        const Limit descriptors(RLIMIT_NOFILE, STDERR_FILENO + 1);
        EXPECT_EQ(output("echo text"), "");
        EXPECT_EQ(first_line("echo text"), "");
        EXPECT_EQ(dynamic_output("echo text"), "(null)");
    });
}

// The pipe's ends take the streams' places then and cannot be moved away.
TEST(ShellHost, nor_where_the_only_ones_are_those_of_closed_standard_streams) {
    in_child([] {
        const int input = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 10);
        const int out = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 10);
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        std::string got;
        {
            const Limit descriptors(RLIMIT_NOFILE, STDERR_FILENO + 1);
            got = output("echo text");
        }
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
        EXPECT_EQ(fcntl(STDOUT_FILENO, F_GETFD), -1);
        dup2(input, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        EXPECT_EQ(got, "");
    });
}

TEST(ShellHost, where_no_process_can_be_made_nothing_is_run) {
    in_child([] {
        constexpr uid_t NOBODY = 65534;
        // The limit is none for the superuser.
        ASSERT_TRUE(geteuid() != 0 || setresuid(NOBODY, NOBODY, NOBODY) == 0);
        const Limit processes(RLIMIT_NPROC, 0);
        EXPECT_EQ(output("echo text"), "");
        EXPECT_EQ(dynamic_output("echo text"), "(null)");
        EXPECT_EQ(execCommand("true"), -1);
        EXPECT_EQ(execCommandWithin("true", 60), -1);
        EXPECT_EQ(fork_exec2("true"), -1);
    });
}

TEST(ShellHost, a_system_without_a_null_device_gives_a_command_closed_streams) {
    in_child_with_empty({"/dev"}, [] {
        EXPECT_EQ(execCommand("[ ! -e /proc/$$/fd/0 ] && [ ! -e /proc/$$/fd/1 ]"), 0);
        EXPECT_EQ(output("[ ! -e /proc/$$/fd/0 ] && echo text"), "text\n");
    });
}

// A command must not eat what a script feeds the loop in which it runs the program.
TEST(ShellHost, a_command_reads_nothing_of_the_hosts_standard_input) {
    in_child([] {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        ASSERT_EQ(write(ends[1], "kept", 4), 4);
        close(ends[1]);
        ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
        EXPECT_EQ(output("cat; readlink /proc/$$/fd/0"), "/dev/null\n");
        EXPECT_EQ(first_line("cat"), "");
        EXPECT_EQ(dynamic_output("cat"), "(null)");
        EXPECT_EQ(execCommand("cat"), 0);
        char left[8] = "";
        EXPECT_EQ(read(STDIN_FILENO, left, sizeof(left)), 4);
        EXPECT_STREQ(left, "kept");
    });
}

TEST(ShellHost, a_command_gets_an_empty_signal_mask_and_the_default_sigpipe) {
    in_child([] {
        signal(SIGPIPE, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        EXPECT_EQ(output("grep SigBlk /proc/self/status"), "SigBlk:\t0000000000000000\n");
        const unsigned long ignored = std::stoul(output("sed -n 's/SigIgn:.//p' /proc/self/status"), nullptr, 16);
        EXPECT_EQ(ignored & (1ul << (SIGPIPE - 1)), 0u);
    });
}

TEST(ShellHost, the_hosts_own_signal_handling_stays) {
    in_child([] {
        signal(SIGPIPE, SIG_IGN);
        signal(SIGCHLD, SIG_DFL);
        sigset_t before = {};
        sigprocmask(SIG_SETMASK, nullptr, &before);
        EXPECT_EQ(output("echo text"), "text\n");
        EXPECT_EQ(execCommand("true"), 0);
        EXPECT_EQ(fork_exec2("true"), 0);
        sigset_t after = {};
        sigprocmask(SIG_SETMASK, nullptr, &after);
        EXPECT_EQ(memcmp(&before, &after, sizeof(before)), 0);
        EXPECT_EQ(signal(SIGPIPE, SIG_DFL), SIG_IGN);
        EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_DFL);
        EXPECT_EQ(signal(SIGINT, SIG_DFL), SIG_DFL);
    });
}

TEST(ShellHost, a_host_that_ignores_its_children_gets_the_output_all_the_same) {
    in_child([] {
        signal(SIGCHLD, SIG_IGN);
        EXPECT_EQ(output("echo text"), "text\n");
        EXPECT_EQ(first_line("echo text"), "text");
        EXPECT_EQ(dynamic_output("echo text"), "text\n");
        const ScratchDirectory directory;
        EXPECT_EQ(execCommand(("sleep 0.1; echo done > " + (directory / "marker")).c_str()), -1);
        EXPECT_EQ(read_file(directory / "marker"), "done\n") << "not waited for";
        EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN);
    });
}

TEST(ShellHost, a_host_with_closed_standard_streams) {
    for (const std::vector<int> &closed :
         {std::vector<int>{0}, std::vector<int>{1}, std::vector<int>{2}, std::vector<int>{0, 1, 2}}) {
        in_child([&closed] {
            for (int fd : closed) {
                close(fd);
            }
            EXPECT_EQ(output("echo text"), "text\n");
            EXPECT_EQ(first_line("echo text"), "text");
            EXPECT_EQ(dynamic_output("echo text"), "text\n");
            EXPECT_EQ(execCommand("exit 3"), 3);
            for (int fd : closed) {
                EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "stream " << fd << " was opened";
            }
        });
    }
}

TEST(ShellHost, signals_of_the_host_cut_no_output_and_no_wait_short) {
    const Interruptions signals;
    EXPECT_EQ(output("sleep 0.2; echo text"), "text\n");
    EXPECT_EQ(first_line("sleep 0.2; echo text"), "text");
    EXPECT_EQ(dynamic_output("sleep 0.2; echo text"), "text\n");
    EXPECT_EQ(execCommand("sleep 0.2; exit 3"), 3);
    EXPECT_GT(signals.count(), 0);
}

TEST(ShellHost, many_commands_leave_no_descriptor_and_no_child) {
    const int before = open_descriptors();
    for (int i = 0; i < 20; i++) {
        output("echo text");
        first_line("seq 10");
        dynamic_output("seq 10");
        execCommand("true");
        output("kill -9 $$");
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

TEST(ShellHost, a_command_that_leaves_a_child_with_the_pipe_is_read_to_the_end_of_that_child) {
    EXPECT_EQ(output("(sleep 0.2; echo late) & echo early"), "early\nlate\n");
}

TEST(ShellHost, the_working_directory_stays) {
    std::array<char, 4096> before = {};
    std::array<char, 4096> after = {};
    ASSERT_NE(getcwd(before.data(), before.size()), nullptr);
    EXPECT_EQ(output("cd /; pwd"), "/\n");
    EXPECT_EQ(output("pwd"), std::string(before.data()) + "\n");
    ASSERT_NE(getcwd(after.data(), after.size()), nullptr);
    EXPECT_STREQ(after.data(), before.data());
}

TEST(ShellWord, what_a_shell_takes_for_itself) {
    for (const char *text : {"", "1-1.2", "/dev/cdc-wdm0", "192.168.8.1", "fe80::1", "modem_1_1_2", "AZaz09"}) {
        EXPECT_TRUE(is_shell_word(text)) << text;
    }
}

TEST(ShellWord, what_it_would_take_apart) {
    for (const char *text : {" ", "a b", "a\n", "a;b", "$x", "`x`",   "a&", "a|b", "'", "\"", "\\",
                             "*", "?",   "~",   "a>b", "(",  "{a,b}", "!",  "#",   "%", "=",  "\xc3\xa4"}) {
        EXPECT_FALSE(is_shell_word(text)) << text;
    }
}

} // namespace
