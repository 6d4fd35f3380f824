// enter PID COMMAND [ARGUMENT...]: runs a command inside the simulated router whose first process is PID.
//
// It joins that process's namespaces and takes its root, starts the command as a child (a process can only be born into a PID namespace),
// passes signals on to it and ends the way it ended, so that a test sees the command's own exit status or signal.

#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static const int forwarded[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2};
static volatile sig_atomic_t child;

static void pass_on(int number) {
    if (child > 0)
        kill((pid_t)child, number);
}

static void fail(const char *what) {
    fprintf(stderr, "enter: %s: %s\n", what, strerror(errno));
    exit(126);
}

static void join_namespaces(const char *pid) {
    // All are opened before the first is joined: afterwards /proc is the router's own.
    static const char *const names[] = {"net", "pid", "mnt"};
    int descriptors[3];
    char path[64];
    for (size_t i = 0; i < 3; i++) {
        snprintf(path, sizeof path, "/proc/%.20s/ns/%s", pid, names[i]);
        descriptors[i] = open(path, O_RDONLY | O_CLOEXEC);
        if (descriptors[i] < 0)
            fail(path);
    }
    // The root of a mount namespace that was made in a chroot is not the root of the processes in it.
    snprintf(path, sizeof path, "/proc/%.20s/root", pid);
    const int root = open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (root < 0)
        fail(path);
    for (size_t i = 0; i < 3; i++) {
        if (setns(descriptors[i], 0) != 0)
            fail(names[i]);
        close(descriptors[i]);
    }
    if (fchdir(root) != 0 || chroot(".") != 0)
        fail("chroot");
    close(root);
}

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: enter PID COMMAND [ARGUMENT...]\n");
        return 126;
    }
    join_namespaces(argv[1]);

    // Blocked until the child is known, so that a signal which arrives in between is passed on and not lost.
    sigset_t set, before;
    sigemptyset(&set);
    for (size_t i = 0; i < sizeof forwarded / sizeof forwarded[0]; i++)
        sigaddset(&set, forwarded[i]);
    sigprocmask(SIG_BLOCK, &set, &before);

    pid_t pid = fork();
    if (pid < 0)
        fail("fork");
    if (pid == 0) {
        // Whoever kills this program means the command.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        sigprocmask(SIG_SETMASK, &before, NULL);
        execvp(argv[2], argv + 2);
        fprintf(stderr, "enter: %s: %s\n", argv[2], strerror(errno));
        _exit(127);
    }
    child = pid;
    struct sigaction action = {.sa_handler = pass_on, .sa_flags = SA_RESTART};
    for (size_t i = 0; i < sizeof forwarded / sizeof forwarded[0]; i++)
        sigaction(forwarded[i], &action, NULL);
    sigprocmask(SIG_SETMASK, &before, NULL);

    int status;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            fail("waitpid");
    if (WIFEXITED(status))
        return WEXITSTATUS(status);

    // Ends by the same signal, without a second core file.
    struct rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    signal(WTERMSIG(status), SIG_DFL);
    sigprocmask(SIG_UNBLOCK, &set, NULL);
    kill(getpid(), WTERMSIG(status));
    return 128 + WTERMSIG(status);
}
