// meddle REPORT WHO CALL WHEN EFFECT COMMAND [ARGUMENT...]: runs a command and meddles with one of its system calls.
//
// The command marks a beginning and an end by writing nothing to descriptor -1; between the two (where there is no end,
// up to that of the process) system calls with the number CALL are counted. WHO "self" is the command's own process;
// "children" are those that it forks, each up to its exec and all counted together. Instead of one call, CALL may be
// "any", or "changing" for those that may change something outside the process. To the WHEN-th call (0: to none)
// happens, as EFFECT says:
//
//   error=E   it is not made and fails with errno E
//   late=E    it is made, and then reported to have failed with errno E
//   short     it takes one byte of the more that are asked for: a read or write
//   kill      the process is killed before it makes the call
//
// A file on a disk is read whole and without interruption, so that a short read, or one that a signal ends (EINTR),
// happens to none: these reads are not counted then.
//
// REPORT gets the calls counted, a line "NUMBER COUNT" each, and last "done" where the effect has come about. The
// program ends as the command did. It knows the registers of x86-64.
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef __x86_64__
#error "the registers of this processor are not known here"
#endif

enum { CALLS = 512, PROCESSES = 16, ANY_CALL = -1, CHANGING_CALLS = -2 };
enum effect { ERROR, LATE, SHORT, KILL };

static struct plan {
    bool children;
    long call;
    long when;
    enum effect effect;
    long number; // errno
} plan;

// A process that is traced. `undo` is what has to be done when its present call returns.
static struct process {
    pid_t pid;
    bool is_child;
    enum { NOTHING, FAIL, RESTORE_SIZE } undo;
    unsigned long size;
} processes[PROCESSES];

static pid_t command;
static bool counting, done;
static long counts[CALLS];

static void fail(const char *what) {
    fprintf(stderr, "meddle: %s: %s\n", what, strerror(errno));
    exit(125);
}

static struct process *find(pid_t pid) {
    struct process *room = NULL;
    for (struct process *process = processes; process < processes + PROCESSES; process++) {
        if (process->pid == pid)
            return process;
        if (process->pid == 0 && room == NULL)
            room = process;
    }
    if (room == NULL) {
        errno = EMFILE;
        fail("too many processes");
    }
    *room = (struct process){.pid = pid, .is_child = pid != command};
    return room;
}

static void set_register(pid_t pid, size_t offset, unsigned long value) {
    if (ptrace(PTRACE_POKEUSER, pid, offset, value) != 0 && errno != ESRCH)
        fail("register");
}

#define SET_REGISTER(pid, name, value) set_register((pid), offsetof(struct user_regs_struct, name), (value))

static void begin_effect(struct process *process, const struct __ptrace_syscall_info *info) {
    switch (plan.effect) {
    case ERROR:
        SET_REGISTER(process->pid, orig_rax, -1UL);
        process->undo = FAIL;
        break;
    case LATE:
        process->undo = FAIL;
        break;
    case SHORT:
        process->size = info->entry.args[2];
        SET_REGISTER(process->pid, rdx, 1);
        process->undo = RESTORE_SIZE;
        break;
    case KILL:
        kill(process->pid, SIGKILL);
        break;
    }
    done = true;
}

static bool is_ordinary_file(pid_t pid, unsigned fd) {
    char path[64];
    struct stat status;
    snprintf(path, sizeof path, "/proc/%d/fd/%u", (int)pid, fd);
    return stat(path, &status) == 0 && S_ISREG(status.st_mode);
}

// What only looks, or stays within the process, is told by name; whatever is not known counts as a change.
static bool changes_something(const struct __ptrace_syscall_info *info) {
    switch (info->entry.nr) {
    case SYS_openat:
        return (info->entry.args[2] & (O_ACCMODE | O_CREAT | O_TRUNC)) != O_RDONLY;
    case SYS_read:
    case SYS_close:
    case SYS_poll:
    case SYS_ppoll:
    case SYS_lseek:
    case SYS_mmap:
    case SYS_munmap:
    case SYS_mprotect:
    case SYS_brk:
    case SYS_access:
    case SYS_fcntl:
    case SYS_readlink:
    case SYS_getdents64:
    case SYS_newfstatat:
    case SYS_getrandom:
    case SYS_rt_sigaction:
    case SYS_rt_sigprocmask:
    case SYS_clock_nanosleep:
        return false;
    default:
        return true;
    }
}

static bool is_a_call_to_meddle_with(pid_t pid, const struct __ptrace_syscall_info *info) {
    if (plan.call == CHANGING_CALLS ? !changes_something(info)
                                    : plan.call != ANY_CALL && plan.call != (long)info->entry.nr)
        return false;
    const bool cut = plan.effect == SHORT || (plan.effect == ERROR && plan.number == EINTR);
    if (cut && info->entry.nr == SYS_read && is_ordinary_file(pid, (unsigned)info->entry.args[0]))
        return false;
    return plan.effect != SHORT || info->entry.args[2] > 1;
}

static void enter_call(struct process *process, const struct __ptrace_syscall_info *info) {
    const unsigned long long number = info->entry.nr;
    if (!process->is_child && number == SYS_write && info->entry.args[0] == -1ULL) {
        counting = !counting;
        return;
    }
    if (!counting || process->is_child != plan.children || number >= CALLS ||
        !is_a_call_to_meddle_with(process->pid, info))
        return;
    static long seen;
    counts[number]++;
    if (++seen == plan.when)
        begin_effect(process, info);
}

static void leave_call(struct process *process) {
    if (process->undo == FAIL)
        SET_REGISTER(process->pid, rax, (unsigned long)-plan.number);
    else if (process->undo == RESTORE_SIZE)
        SET_REGISTER(process->pid, rdx, process->size);
    process->undo = NOTHING;
}

// Goes on with a process that has stopped for `status`.
static void go_on(struct process *process, int status) {
    const int event = status >> 16;
    int signal = WSTOPSIG(status);
    if (signal == (SIGTRAP | 0x80)) {
        struct __ptrace_syscall_info info;
        if (ptrace(PTRACE_GET_SYSCALL_INFO, process->pid, sizeof info, &info) > 0) {
            if (info.op == PTRACE_SYSCALL_INFO_ENTRY)
                enter_call(process, &info);
            else if (info.op == PTRACE_SYSCALL_INFO_EXIT)
                leave_call(process);
        }
        signal = 0;
    } else if (event != 0 || (process->is_child && signal == SIGSTOP)) {
        signal = 0;
    }
    const bool becomes_another = process->is_child && event == PTRACE_EVENT_EXEC;
    const bool is_over = done && plan.when > 0 && process->undo == NOTHING;
    if (ptrace(becomes_another || is_over ? PTRACE_DETACH : PTRACE_SYSCALL, process->pid, 0, signal) != 0 &&
        errno != ESRCH)
        fail("continue");
    if (becomes_another || is_over)
        process->pid = 0;
}

static int trace(char **argv) {
    command = fork();
    if (command < 0)
        fail("fork");
    if (command == 0) {
        ptrace(PTRACE_TRACEME, 0, 0, 0);
        raise(SIGSTOP);
        execvp(argv[0], argv);
        fail(argv[0]);
    }
    int status = 0;
    if (waitpid(command, &status, 0) != command || !WIFSTOPPED(status))
        fail("start");
    long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC;
    if (plan.children)
        options |= PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE;
    if (ptrace(PTRACE_SETOPTIONS, command, 0, options) != 0)
        fail("options");
    find(command);
    if (ptrace(PTRACE_SYSCALL, command, 0, 0) != 0)
        fail("continue");
    for (;;) {
        const pid_t pid = waitpid(-1, &status, __WALL);
        if (pid < 0)
            fail("wait");
        if (WIFSTOPPED(status))
            go_on(find(pid), status);
        else if (pid == command)
            return status;
        else
            find(pid)->pid = 0;
    }
}

static void report(const char *path) {
    FILE *file = fopen(path, "we");
    if (file == NULL)
        fail(path);
    for (int number = 0; number < CALLS; number++)
        if (counts[number] > 0)
            fprintf(file, "%d %ld\n", number, counts[number]);
    if (done)
        fputs("done\n", file);
    fclose(file);
}

static void read_plan(char **argv) {
    plan.children = strcmp(argv[2], "children") == 0;
    if (strcmp(argv[3], "any") == 0)
        plan.call = ANY_CALL;
    else if (strcmp(argv[3], "changing") == 0)
        plan.call = CHANGING_CALLS;
    else
        plan.call = strtol(argv[3], NULL, 10);
    plan.when = strtol(argv[4], NULL, 10);
    if (sscanf(argv[5], "error=%ld", &plan.number) == 1)
        plan.effect = ERROR;
    else if (sscanf(argv[5], "late=%ld", &plan.number) == 1)
        plan.effect = LATE;
    else
        plan.effect = strcmp(argv[5], "short") == 0 ? SHORT : KILL;
}

int main(int argc, char **argv) {
    if (argc < 7) {
        fputs("usage: meddle REPORT self|children CALL|any|changing WHEN EFFECT COMMAND [ARGUMENT...]\n", stderr);
        return 125;
    }
    read_plan(argv);
    const int status = trace(argv + 6);
    report(argv[1]);
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    // By the same signal, without a second core file.
    const struct rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    signal(WTERMSIG(status), SIG_DFL);
    kill(getpid(), WTERMSIG(status));
    return 128 + WTERMSIG(status);
}
