/*
 * Files: locking one whose path is renamed over by others, reading and writing it whole, and replacing it so that
 * at every moment, a crash included, the path leads to the old text or to the new one.
 */
#include "internal.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

char *uci_path_join(const char *dir, const char *name) {
    struct uci_text path = {0};
    uci_text_append_string(&path, dir);
    uci_text_append_string(&path, "/");
    uci_text_append_string(&path, name);
    if (path.failed)
        uci_text_free(&path);
    return path.data;
}

static int error_of_errno(void) {
    switch (errno) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
        return UCI_ERR_NOTFOUND;
    case ENOMEM:
        return UCI_ERR_MEM;
    default:
        return UCI_ERR_IO;
    }
}

static int lock_file(int fd, int lock) {
    while (flock(fd, lock))
        if (errno != EINTR)
            return UCI_ERR_IO;
    return UCI_OK;
}

/* Whether the path still leads to the open file. */
static bool is_at_path(int fd, const char *path) {
    struct stat opened, named;
    return !fstat(fd, &opened) && !stat(path, &named) && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

int uci_file_open_locked(const char *path, int open_flags, int lock, int *fd) {
    /* Whoever held the lock before may have renamed a new file over this one; the lock of the old one guards nothing.
     */
    for (;;) {
        /* Nonblocking, so that a pipe in place of a file is refused instead of waited for. */
        int opened = open(path, open_flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
        if (opened < 0)
            return error_of_errno();
        struct stat status;
        int err = fstat(opened, &status) || !S_ISREG(status.st_mode) ? UCI_ERR_IO : lock_file(opened, lock);
        if (!err && is_at_path(opened, path)) {
            *fd = opened;
            return UCI_OK;
        }
        close(opened);
        if (err)
            return err;
    }
}

int uci_file_read(int fd, struct uci_text *text) {
    char chunk[4096];
    if (lseek(fd, 0, SEEK_SET) < 0)
        return UCI_ERR_IO;
    for (;;) {
        ssize_t got = read(fd, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return UCI_ERR_IO;
        if (got == 0)
            return text->failed ? UCI_ERR_MEM : UCI_OK;
        uci_text_append(text, chunk, (size_t)got);
    }
}

int uci_file_write(int fd, const char *data, size_t length) {
    while (length) {
        ssize_t written = write(fd, data, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return UCI_ERR_IO;
        data += written;
        length -= (size_t)written;
    }
    return UCI_OK;
}

/* Who is not root cannot give files away, and keeps what the directory's rights allowed him to replace. */
static int copy_owner_and_mode(int from, int to) {
    struct stat status;
    if (fstat(from, &status))
        return UCI_ERR_IO;
    if (fchown(to, status.st_uid, status.st_gid) && errno != EPERM)
        return UCI_ERR_IO;
    return fchmod(to, status.st_mode & 07777) ? UCI_ERR_IO : UCI_OK;
}

/* "<dir of target>/.<last part of path>.uci-XXXXXX" for mkstemp. */
static void temporary_name(struct uci_text *name, const char *path, const char *target) {
    const char *base = strrchr(path, '/');
    uci_text_append(name, target, (size_t)(strrchr(target, '/') - target));
    uci_text_append_string(name, "/.");
    uci_text_append_string(name, base ? base + 1 : path);
    uci_text_append_string(name, ".uci-XXXXXX");
}

static int write_and_rename(char *temporary, const char *target, int locked_fd, const struct uci_text *text) {
    int fd = mkostemp(temporary, O_CLOEXEC);
    if (fd < 0)
        return UCI_ERR_IO;
    int err = uci_file_write(fd, text->data, text->length);
    if (!err)
        err = copy_owner_and_mode(locked_fd, fd);
    if (!err && fsync(fd))
        err = UCI_ERR_IO;
    if (close(fd) && !err)
        err = UCI_ERR_IO;
    if (!err && rename(temporary, target))
        err = UCI_ERR_IO;
    if (err)
        unlink(temporary);
    return err;
}

int uci_file_replace(const char *path, int locked_fd, const struct uci_text *text) {
    /* Where the path is a symbolic link, the file that it leads to is replaced and the link stays. */
    char *target = realpath(path, NULL);
    if (!target)
        return UCI_ERR_IO;
    struct uci_text temporary = {0};
    temporary_name(&temporary, path, target);
    int err = temporary.failed ? UCI_ERR_MEM : write_and_rename(temporary.data, target, locked_fd, text);
    uci_text_free(&temporary);
    free(target);
    return err;
}
