#include "support/child.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

constexpr int FAILED = 1;
constexpr int NOT_ALLOWED = 77;

// Forks; the child ends with the result of `body`. Returns the wait status.
int run(const std::function<int()> &body) {
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int result = body();
        exit(testing::Test::HasFailure() ? FAILED : result);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

bool write_text(const char *path, const std::string &text) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    const bool written = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (fd >= 0) {
        close(fd);
    }
    return written;
}

// Leaves the machine's namespaces of the kinds. Who is not root becomes root of a user namespace first.
bool leave(int kinds) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0) {
        return unshare(kinds) == 0;
    }
    return unshare(CLONE_NEWUSER | kinds) == 0 &&
           write_text("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
           write_text("/proc/self/setgroups", "deny") &&
           write_text("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

// Mounts made after this stay within this process and those it starts.
bool enter_private_mounts() {
    constexpr const char *SCRATCH = "/mnt";
    if (!leave(CLONE_NEWNS)) {
        return false;
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {
        return true;
    }
    // In a chroot the root is a plain directory, which cannot be made private; a mount of it can.
    return mount("/", SCRATCH, nullptr, MS_BIND | MS_REC, nullptr) == 0 &&
           mount("none", SCRATCH, nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && chroot(SCRATCH) == 0 &&
           chdir("/") == 0;
}

void judge(int status) {
    if (WIFEXITED(status) && WEXITSTATUS(status) == NOT_ALLOWED) {
        GTEST_SKIP() << "needs to be allowed to make a namespace";
    }
    EXPECT_TRUE(WIFEXITED(status)) << "the child was ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "in the child";
}

} // namespace

void in_child(const std::function<void()> &body) {
    judge(run([&] {
        body();
        return 0;
    }));
}

void in_child_with_empty(const std::initializer_list<const char *> &hidden, const std::function<void()> &body) {
    judge(run([&] {
        if (!enter_private_mounts()) {
            return NOT_ALLOWED;
        }
        for (const char *directory : hidden) {
            if (mount("tmpfs", directory, "tmpfs", 0, "mode=0755") != 0) {
                return NOT_ALLOWED;
            }
        }
        body();
        return 0;
    }));
}

void in_child_with_empty_network(const std::function<void()> &body) {
    judge(run([&] {
        if (!leave(CLONE_NEWNET)) {
            return NOT_ALLOWED;
        }
        body();
        return 0;
    }));
}
