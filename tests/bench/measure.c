// Runs a command and tells what it cost: "WALL_US CPU_US PEAK_KIB" on standard error, the command's output dropped.
// A program of its own, since the peak memory that the kernel reports for a child counts the memory of the process that
// forked it, and that should not be Python's.
//
//   measure COMMAND [ARGUMENT...]
#include <fcntl.h>
#include <stdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static long microseconds(long seconds, long fraction) {
    return seconds * 1000000 + fraction;
}

int main(int argc, char **argv) {
    if (argc < 2) {
        fputs("Usage: measure COMMAND [ARGUMENT...]\n", stderr);
        return 2;
    }
    struct timespec begin;
    struct timespec end;
    clock_gettime(CLOCK_MONOTONIC, &begin);
    const pid_t child = fork();
    if (child == 0) {
        const int null_device = open("/dev/null", O_WRONLY);
        if (null_device >= 0) {
            dup2(null_device, STDOUT_FILENO);
        }
        execvp(argv[1], argv + 1);
        perror(argv[1]);
        _exit(127);
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
