// Shell commands over fork and exec; see shell.h for what a child inherits.
#include "platform/shell.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/owners.h"
#include "platform/text.h"

namespace {

constexpr int FIRST_PRIVATE_DESCRIPTOR = STDERR_FILENO + 1;
constexpr int CANNOT_RUN = 127; // what a shell answers when a command cannot be executed

// Everything from here to execl runs between fork and exec, so it keeps to async-signal-safe calls.

// Standard input never comes from the host: a command would eat what a script feeds its loop with.
void use_null_device(int first_stream, int last_stream) {
    const int null_device = open("/dev/null", O_RDWR);
    for (int stream = first_stream; stream <= last_stream; stream++) {
        if (null_device < 0 || dup2(null_device, stream) < 0) {
            close(stream);
        }
    }
}

void close_private_descriptors() {
#ifdef SYS_close_range
    if (syscall(SYS_close_range, static_cast<unsigned>(FIRST_PRIVATE_DESCRIPTOR), ~0u, 0u) == 0) {
        return;
    }
#endif
    // Kernels before 5.9 have no close_range.
    const long limit = sysconf(_SC_OPEN_MAX);
    for (int fd = FIRST_PRIVATE_DESCRIPTOR; fd < limit; fd++) {
        close(fd);
    }
}

[[noreturn]] void exec_shell(const char *command) {
    close_private_descriptors();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
    _exit(CANNOT_RUN);
}

// The status of a child, or -1 where a host that ignores SIGCHLD has had it reaped already.
int wait_for(pid_t child) {
    int status = -1;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return -1;
        }
    }
    return status;
}

// What a shell says of such a status; -1 where it was lost.
int exit_status(int status) {
    if (status == -1) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A running command and the reading end of its standard output.
class CommandOutput {
public:
    explicit CommandOutput(const char *command) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            return;
        }
        pipe_.reset(above_the_streams(ends[0]));
        Descriptor write_end(above_the_streams(ends[1]));
        if (!pipe_.valid() || !write_end.valid()) {
            return;
        }
        child_ = fork();
        if (child_ == 0) {
            use_null_device(STDIN_FILENO, STDIN_FILENO);
            if (dup2(write_end.get(), STDOUT_FILENO) < 0) {
                _exit(CANNOT_RUN);
            }
            exec_shell(command);
        }
        if (child_ < 0) {
            pipe_.reset();
        }
    }
    ~CommandOutput() { end(); }
    CommandOutput(const CommandOutput &) = delete;
    CommandOutput &operator=(const CommandOutput &) = delete;

    // Up to `size` bytes; 0 at the end of the output or on an error.
    size_t read_some(char *out, size_t size) {
        if (!pipe_.valid()) {
            return 0;
        }
        ssize_t got = 0;
        do {
            got = read(pipe_.get(), out, size);
        } while (got < 0 && errno == EINTR);
        failed_ = failed_ || got < 0;
        return got > 0 ? static_cast<size_t>(got) : 0;
    }

    // Ends the reading and waits for the command. Returns whether a command ran and what was read until the end is all that
    // it had to say.
    bool end() {
        pipe_.reset();
        if (child_ > 0) {
            status_ = exit_status(wait_for(child_));
            child_ = -1;
        }
        return !failed_ && status_ != CANNOT_RUN;
    }

private:
    Descriptor pipe_;
    pid_t child_ = -1;
    bool failed_ = false;
    int status_ = CANNOT_RUN; // of the shell, once it has ended
};

} // namespace

void getShellCommandReturn(const char *command, std::span<char> out) {
    if (out.empty()) {
        return;
    }
    CommandOutput output(command);
    size_t length = 0;
    while (length < out.size() - 1) {
        const size_t got = output.read_some(out.data() + length, out.size() - 1 - length);
        if (got == 0) {
            break;
        }
        length += got;
    }
    out[length] = '\0';
    char dropped[256];
    while (output.read_some(dropped, sizeof dropped) > 0) {
    }
}

void getShellCommandReturnLine(const char *command, std::span<char> out) {
    if (out.empty()) {
        return;
    }
    getShellCommandReturn(command, out);
    out[strcspn(out.data(), "\n")] = '\0';
}

char *getShellCommandReturnDynamic(const char *command, bool *known) {
    constexpr size_t CHUNK = 512;
    if (known != nullptr) {
        *known = false;
    }
    CommandOutput output(command);
    Allocated<char> text;
    size_t length = 0;
    size_t room = 0;
    for (;;) {
        if (length + 1 >= room) {
            // Doubling keeps a long document at a few copies.
            room = room == 0 ? CHUNK : room * 2;
            char *larger = static_cast<char *>(realloc(text.get(), room));
            if (larger == nullptr) {
                return nullptr;
            }
            (void)text.release();
            text.reset(larger);
        }
        const size_t got = output.read_some(text.get() + length, room - 1 - length);
        if (got == 0) {
            break;
        }
        length += got;
    }
    if (const bool ended_well = output.end(); known != nullptr) {
        *known = ended_well;
    }
    if (length == 0) {
        return nullptr;
    }
    text.get()[length] = '\0';
    return text.release();
}

void getUciReturn(const char *command, std::span<char> out) {
    getShellCommandReturn(command, out);
}

int execCommand(const char *command) {
    const pid_t child = fork();
    if (child == 0) {
        use_null_device(STDIN_FILENO, STDOUT_FILENO);
        exec_shell(command);
    }
    return child < 0 ? -1 : exit_status(wait_for(child));
}

int execCommandWithin(const char *command, unsigned seconds) {
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        use_null_device(STDIN_FILENO, STDOUT_FILENO);
        // An alarm outlives exec; the shell does not outlive the alarm.
        signal(SIGALRM, SIG_DFL);
        alarm(seconds);
        exec_shell(command);
    }
    if (child < 0) {
        return -1;
    }
    // The shell is not reaped before its group has been killed, so that the number is still the group's.
    siginfo_t ended = {};
    while (waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    if (ended.si_code == CLD_KILLED && ended.si_status == SIGALRM) {
        kill(-child, SIGKILL);
    }
    return exit_status(wait_for(child));
}

int fork_exec2(const char *command) {
    // Two forks: the one in the middle ends at once and is waited for, so the command becomes init's child.
    const pid_t middle = fork();
    if (middle == 0) {
        const pid_t background = fork();
        if (background == 0) {
            setsid();
            use_null_device(STDIN_FILENO, STDERR_FILENO);
            exec_shell(command);
        }
        _exit(background < 0 ? EXIT_FAILURE : EXIT_SUCCESS);
    }
    if (middle < 0) {
        return -1;
    }
    const int status = wait_for(middle);
    return status == -1 || (WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) ? 0 : -1;
}

int cmm_check_file_is_exist(const char *path) {
    return access(path, F_OK) == 0;
}

bool is_shell_word(std::string_view text) {
    constexpr std::string_view PLAIN = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ._:/-";
    return text.find_first_not_of(PLAIN) == text.npos;
}
