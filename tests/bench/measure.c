// Runs a command and tells on standard error what it cost: "WALL_US CPU_US PEAK_KIB" or, with -p, the KiB of memory
// that it had to itself when it ended (Private_Clean and Private_Dirty of its smaps). The command's output is dropped.
// A program of its own, since the peak memory that the kernel reports for a child counts the memory of the process that
// forked it, and that should not be Python's.
//
//   measure [-p] [-t TTY | -i FILE] COMMAND [ARGUMENT...]
//   measure -x [-t TTY | -i FILE] COMMAND [ARGUMENT...]     becomes the command
//
// With -t standard input and output are the tty, with -i standard input is the file.
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static long microseconds(long seconds, long fraction) {
    return seconds * 1000000 + fraction;
}

static void become(const char *tty, const char *input, char **command) {
    const int out = open(tty != NULL ? tty : "/dev/null", O_RDWR | O_NOCTTY);
    const int in = input != NULL ? open(input, O_RDONLY) : out;
    if (out < 0 || in < 0) {
        perror("measure");
        _exit(127);
    }
    dup2(out, STDOUT_FILENO);
    if (tty != NULL || input != NULL) {
        dup2(in, STDIN_FILENO);
    }
    execvp(command[0], command);
    perror(command[0]);
    _exit(127);
}

static long private_kib(pid_t pid) {
    char line[256];
    long sum = 0;
    snprintf(line, sizeof line, "/proc/%d/smaps_rollup", (int)pid);
    FILE *file = fopen(line, "r");
    while (file != NULL && fgets(line, sizeof line, file) != NULL) {
        long kib = 0;
        if (sscanf(line, "Private_Clean: %ld", &kib) == 1 || sscanf(line, "Private_Dirty: %ld", &kib) == 1) {
            sum += kib;
        }
    }
    if (file != NULL) {
        fclose(file);
    }
    return sum;
}

// Lets the traced command run and looks at its memory when it is about to end, which the kernel announces.
static int trace(pid_t child) {
    int status = 0;
    long kib = -1;
    if (waitpid(child, &status, 0) != child || !WIFSTOPPED(status) ||
        ptrace(PTRACE_SETOPTIONS, child, 0, PTRACE_O_TRACEEXIT | PTRACE_O_EXITKILL) != 0) {
        perror("measure");
        return 1;
    }
    int pending = 0;
    while (ptrace(PTRACE_CONT, child, 0, pending) == 0 && waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        const int is_end = status >> 8 == (SIGTRAP | (PTRACE_EVENT_EXIT << 8));
        if (is_end) {
            kib = private_kib(child);
        }
        pending = is_end || WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
    }
    fprintf(stderr, "%ld\n", kib);
    return kib >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}

int main(int argc, char **argv) {
    const char *tty = NULL;
    const char *input = NULL;
    int traced = 0;
    int in_place = 0;
    int option;
    while ((option = getopt(argc, argv, "+pxt:i:")) != -1) {
        switch (option) {
        case 'p':
            traced = 1;
            break;
        case 'x':
            in_place = 1;
            break;
        case 't':
            tty = optarg;
            break;
        case 'i':
            input = optarg;
            break;
        default:
            return 2;
        }
    }
    if (optind >= argc) {
        fputs("Usage: measure [-p | -x] [-t TTY | -i FILE] COMMAND [ARGUMENT...]\n", stderr);
        return 2;
    }
    if (in_place) {
        become(tty, input, argv + optind);
    }
    struct timespec begin;
    struct timespec end;
    clock_gettime(CLOCK_MONOTONIC, &begin);
    const pid_t child = fork();
    if (child == 0) {
        if (traced) {
            ptrace(PTRACE_TRACEME, 0, 0, 0);
        }
        become(tty, input, argv + optind);
    }
    if (traced && child > 0) {
        return trace(child);
    }
    int status = 0;
    struct rusage usage;
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        perror("measure");
        return 1;
    }
    clock_gettime(CLOCK_MONOTONIC, &end);
    const long wall = microseconds(end.tv_sec - begin.tv_sec, (end.tv_nsec - begin.tv_nsec) / 1000);
    const long cpu =
        microseconds(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec, usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    fprintf(stderr, "%ld %ld %ld\n", wall, cpu, usage.ru_maxrss);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
}
