// Programs and shell commands, and what is said to the system log.
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <span>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "machine.h"

using namespace machine;

namespace {

constexpr pid_t FIRST_CHILD = 1'000'000; // beyond the kernel's process numbers that matter here

std::string command_to_run;
pid_t last_child = FIRST_CHILD;

void note_command(const char *command) {
    if (current != nullptr) {
        const Answering system;
        command_to_run = command;
    }
}

} // namespace

// NOLINTBEGIN: the linker prescribes these names.
extern "C" {

pid_t __real_fork();
pid_t __wrap_fork() {
    if (fails(Call::FORK)) {
        return -1;
    }
    return current != nullptr ? ++last_child : __real_fork();
}

int __real_pipe2(int *ends, int flags);
int __wrap_pipe2(int *ends, int flags) {
    if (current == nullptr) {
        return __real_pipe2(ends, flags);
    }
    if (fails(Call::PIPE)) {
        return -1;
    }
    const Answering system;
    const std::string output = system->output_of(command_to_run);
    ends[0] = opened_as(Kind::FILE, memfd_create("output", MFD_CLOEXEC));
    ends[1] = opened_as(Kind::FILE, open("/dev/null", O_WRONLY | O_CLOEXEC));
    require(ends[0] >= 0 && ends[1] >= 0);
    require(write(ends[0], output.data(), output.size()) == static_cast<ssize_t>(output.size()));
    require(lseek(ends[0], 0, SEEK_SET) == 0);
    return 0;
}

pid_t __real_waitpid(pid_t child, int *status, int options);
pid_t __wrap_waitpid(pid_t child, int *status, int options) {
    if (current == nullptr) {
        return __real_waitpid(child, status, options);
    }
    const Answering system;
    *status = system->status_of(command_to_run);
    return child;
}

int __real_waitid(idtype_t type, id_t child, siginfo_t *info, int options);
int __wrap_waitid(idtype_t type, id_t child, siginfo_t *info, int options) {
    if (current == nullptr) {
        return __real_waitid(type, child, info, options);
    }
    const Answering system;
    const int status = system->status_of(command_to_run);
    info->si_code = WIFSIGNALED(status) ? CLD_KILLED : CLD_EXITED;
    info->si_status = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    return 0;
}

int __real_kill(pid_t process, int signal);
int __wrap_kill(pid_t process, int signal) {
    if (current == nullptr) {
        return __real_kill(process, signal);
    }
    require(process == -last_child);
    return 0;
}

void __wrap_syslog(int /*priority*/, const char *format, ...) {
    // Formatted all the same, for the sanitizers to see what is put in.
    char line[1024];
    va_list rest;
    va_start(rest, format);
    vsnprintf(line, sizeof line, format, rest);
    va_end(rest);
}

// The product's own functions, as only they know the command.

#define OUTPUT "St4spanIcLm18446744073709551615EE"
void real_return(const char *command, std::span<char> out) asm("__real__Z21getShellCommandReturnPKc" OUTPUT);
void wrap_return(const char *command, std::span<char> out) asm("__wrap__Z21getShellCommandReturnPKc" OUTPUT);
void wrap_return(const char *command, std::span<char> out) {
    note_command(command);
    real_return(command, out);
}

void real_line(const char *command, std::span<char> out) asm("__real__Z25getShellCommandReturnLinePKc" OUTPUT);
void wrap_line(const char *command, std::span<char> out) asm("__wrap__Z25getShellCommandReturnLinePKc" OUTPUT);
void wrap_line(const char *command, std::span<char> out) {
    note_command(command);
    real_line(command, out);
}

void real_uci_return(const char *command, std::span<char> out) asm("__real__Z12getUciReturnPKc" OUTPUT);
void wrap_uci_return(const char *command, std::span<char> out) asm("__wrap__Z12getUciReturnPKc" OUTPUT);
void wrap_uci_return(const char *command, std::span<char> out) {
    note_command(command);
    real_uci_return(command, out);
}
#undef OUTPUT

char *real_dynamic(const char *command, bool *known) asm("__real__Z28getShellCommandReturnDynamicPKcPb");
char *wrap_dynamic(const char *command, bool *known) asm("__wrap__Z28getShellCommandReturnDynamicPKcPb");
char *wrap_dynamic(const char *command, bool *known) {
    note_command(command);
    return real_dynamic(command, known);
}

int real_exec(const char *command) asm("__real__Z11execCommandPKc");
int wrap_exec(const char *command) asm("__wrap__Z11execCommandPKc");
int wrap_exec(const char *command) {
    note_command(command);
    return real_exec(command);
}

int real_exec_within(const char *command, unsigned seconds) asm("__real__Z17execCommandWithinPKcj");
int wrap_exec_within(const char *command, unsigned seconds) asm("__wrap__Z17execCommandWithinPKcj");
int wrap_exec_within(const char *command, unsigned seconds) {
    note_command(command);
    return real_exec_within(command, seconds);
}

int real_background(const char *command) asm("__real__Z10fork_exec2PKc");
int wrap_background(const char *command) asm("__wrap__Z10fork_exec2PKc");
int wrap_background(const char *command) {
    note_command(command);
    return real_background(command);
}

} // extern "C"
// NOLINTEND
