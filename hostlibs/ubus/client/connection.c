/*
 * Connecting to the daemon and its greeting.
 */
#include "client_private.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

/* The second is where systems before 2021 have it. */
static const char *const DEFAULT_SOCKETS[] = {"/var/run/ubus/ubus.sock", "/var/run/ubus.sock"};

/* Connecting waits only where the daemon has too many callers in its queue; for that long and no longer. */
static bool connect_in_time(int fd, const struct sockaddr_un *address) {
    const struct timeval limit = {.tv_sec = DAEMON_TIMEOUT_MS / 1000};
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) != 0) {
        return false;
    }
    int result;
    do {
        result = connect(fd, (const struct sockaddr *)address, sizeof(*address));
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

/* A connected socket, or -1. */
static int open_socket(const char *path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    if (strlen(path) >= sizeof(address.sun_path)) {
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path));

    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && !connect_in_time(fd, &address)) {
        close(fd);
        return -1;
    }
    return fd;
}

static int open_default_socket(void) {
    int fd = -1;
    for (size_t i = 0; fd < 0 && i < sizeof(DEFAULT_SOCKETS) / sizeof(DEFAULT_SOCKETS[0]); i++) {
        fd = open_socket(DEFAULT_SOCKETS[i]);
    }
    return fd;
}

/* The daemon speaks first and tells us our number. */
static bool receive_greeting(struct ubus_context *ctx) {
    const struct deadline deadline = deadline_in(DAEMON_TIMEOUT_MS);
    struct message message;
    if (ubus_receive_message(ctx, &message, &deadline) != UBUS_STATUS_OK) {
        return false;
    }
    ctx->local_id = message.peer;
    free(message.body);
    return message.type == UBUS_MSG_HELLO;
}

struct ubus_context *ubus_connect(const char *path) {
    struct connection *connection = calloc(1, sizeof(*connection));
    if (connection == NULL) {
        return NULL;
    }
    struct ubus_context *ctx = &connection->ctx;
    ctx->sock.fd = path != NULL ? open_socket(path) : open_default_socket();
    if (ctx->sock.fd < 0 || !receive_greeting(ctx)) {
        ubus_free(ctx);
        return NULL;
    }
    return ctx;
}

void ubus_free(struct ubus_context *ctx) {
    if (ctx == NULL) {
        return;
    }
    struct connection *connection = (struct connection *)ctx;
    if (ctx->sock.fd >= 0) {
        close(ctx->sock.fd);
    }
    ubus_drop_incoming(&connection->incoming);
    free(connection);
}
