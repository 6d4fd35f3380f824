/* The context: the directories that are worked on, and the packages that are loaded. */
#include "internal.h"

#include <stdlib.h>
#include <string.h>

static int set_directory(char **directory, const char *path) {
    char *copy = strdup(path);
    if (!copy)
        return UCI_ERR_MEM;
    free(*directory);
    *directory = copy;
    return UCI_OK;
}

struct uci_context *uci_alloc_context(void) {
    struct uci_context *ctx = calloc(1, sizeof *ctx);
    if (!ctx)
        return NULL;
    uci_list_init(&ctx->root);
    if (set_directory(&ctx->confdir, "/etc/config") || set_directory(&ctx->savedir, "/tmp/.uci")) {
        uci_free_context(ctx);
        return NULL;
    }
    return ctx;
}

void uci_free_context(struct uci_context *ctx) {
    if (!ctx)
        return;
    struct uci_element *e, *next;
    uci_foreach_element_safe(&ctx->root, next, e) uci_package_free(uci_to_package(e));
    free(ctx->confdir);
    free(ctx->savedir);
    free(ctx);
}

int uci_set_confdir(struct uci_context *ctx, const char *dir) {
    return ctx && dir ? set_directory(&ctx->confdir, dir) : UCI_ERR_INVAL;
}

int uci_set_savedir(struct uci_context *ctx, const char *dir) {
    return ctx && dir ? set_directory(&ctx->savedir, dir) : UCI_ERR_INVAL;
}
