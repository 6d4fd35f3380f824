/*
 * Packages and their files: loading, staging changes, committing. Locks are always taken in the same order, first the
 * configuration file, then the delta file; so whoever loads sees both from before a commit or both from after it.
 */
#include "internal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

/* A package made of a locked configuration file and the text staged for it, in no context's list yet. */
static int build(struct uci_context *ctx, const char *name, int config_fd, const struct uci_text *staged,
                 struct uci_package **built) {
    struct uci_package *package = uci_package_new(ctx, name);
    if (!package)
        return UCI_ERR_MEM;
    struct uci_text text = {0};
    int err = uci_file_read(config_fd, &text);
    if (!err)
        err = uci_parse_config(package, text.data, text.length);
    if (!err)
        err = uci_delta_apply(package, staged);
    uci_text_free(&text);
    if (err)
        uci_package_free(package);
    else
        *built = package;
    return err;
}

static bool is_loaded(const struct uci_context *ctx, const char *name) {
    struct uci_element *e;
    uci_foreach_element(&ctx->root, e) if (!strcmp(e->name, name)) return true;
    return false;
}

static int open_config(const struct uci_context *ctx, const char *name, int lock, int *fd) {
    char *path = uci_path_join(ctx->confdir, name);
    if (!path)
        return UCI_ERR_MEM;
    int err = uci_file_open_locked(path, O_RDONLY, lock, fd);
    free(path);
    return err;
}

int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package) {
    if (!ctx || !uci_valid_package_name(name))
        return UCI_ERR_INVAL;
    if (is_loaded(ctx, name))
        return UCI_ERR_DUPLICATE;
    int fd;
    int err = open_config(ctx, name, LOCK_SH, &fd);
    if (err)
        return err;
    struct uci_text staged = {0};
    struct uci_package *loaded = NULL;
    err = uci_delta_load(ctx, name, &staged);
    if (!err)
        err = build(ctx, name, fd, &staged, &loaded);
    close(fd);
    uci_text_free(&staged);
    if (err)
        return err;
    uci_list_append(&ctx->root, &loaded->e.list);
    if (package)
        *package = loaded;
    return UCI_OK;
}

int uci_unload(struct uci_context *ctx, struct uci_package *p) {
    if (!ctx || !p || p->ctx != ctx)
        return UCI_ERR_INVAL;
    uci_package_free(p);
    return UCI_OK;
}

int uci_save(struct uci_context *ctx, struct uci_package *p) {
    if (!ctx || !p || p->ctx != ctx)
        return UCI_ERR_INVAL;
    if (uci_list_is_empty(&p->delta))
        return UCI_OK;
    int fd;
    int err = uci_delta_open(ctx, p->e.name, true, O_RDWR, &fd);
    if (err)
        return err;
    err = uci_delta_append(fd, p);
    close(fd);
    return err;
}

static int write_config(const struct uci_package *package, int config_fd) {
    char *path = uci_path_join(package->ctx->confdir, package->e.name);
    if (!path)
        return UCI_ERR_MEM;
    struct uci_text text = {0};
    uci_export_config(package, &text);
    int err = text.failed ? UCI_ERR_MEM : uci_file_replace(path, config_fd, &text);
    uci_text_free(&text);
    free(path);
    return err;
}

/* Under both locks; `delta_fd` is -1 where there is no delta file. With nothing staged the file is left untouched. */
static int commit_staged(struct uci_package *old, int config_fd, int delta_fd, struct uci_package **fresh) {
    struct uci_text staged = {0};
    int err = UCI_OK;
    if (delta_fd >= 0 && !uci_list_is_empty(&old->delta))
        err = uci_delta_append(delta_fd, old);
    if (!err && delta_fd >= 0)
        err = uci_file_read(delta_fd, &staged);
    if (!err)
        err = build(old->ctx, old->e.name, config_fd, &staged, fresh);
    if (!err && staged.length) {
        err = write_config(*fresh, config_fd);
        /* Emptied last: a crash before this repeats the changes with the next commit, rather than losing them. */
        if (!err && ftruncate(delta_fd, 0))
            err = UCI_ERR_IO;
        if (err)
            uci_package_free(*fresh);
    }
    uci_text_free(&staged);
    return err;
}

/* What is in memory has the staged changes in it already, so none are left to do. */
static int commit_overwriting(struct uci_package *package, int config_fd, int delta_fd) {
    int err = write_config(package, config_fd);
    if (err)
        return err;
    uci_change_list_free(&package->delta);
    return delta_fd >= 0 && ftruncate(delta_fd, 0) ? UCI_ERR_IO : UCI_OK;
}

static int commit_locked(struct uci_context *ctx, struct uci_package **p, bool overwrite, int config_fd) {
    const bool create = !overwrite && !uci_list_is_empty(&(*p)->delta);
    int delta_fd = -1;
    int err = uci_delta_open(ctx, (*p)->e.name, create, O_RDWR, &delta_fd);
    if (err && err != UCI_ERR_NOTFOUND)
        return err;
    if (overwrite) {
        err = commit_overwriting(*p, config_fd, delta_fd);
    } else {
        struct uci_package *fresh;
        err = commit_staged(*p, config_fd, delta_fd, &fresh);
        if (!err) {
            uci_package_free(*p);
            uci_list_append(&ctx->root, &fresh->e.list);
            *p = fresh;
        }
    }
    if (delta_fd >= 0)
        close(delta_fd);
    return err;
}

int uci_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite) {
    if (!ctx || !p || !*p || (*p)->ctx != ctx)
        return UCI_ERR_INVAL;
    int config_fd;
    int err = open_config(ctx, (*p)->e.name, LOCK_EX, &config_fd);
    if (err)
        return err;
    err = commit_locked(ctx, p, overwrite, config_fd);
    close(config_fd);
    return err;
}
