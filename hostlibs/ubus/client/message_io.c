/*
 * Messages over the socket, never blocking in a read or write: each wait is cut to what is left of the caller's time. A
 * daemon that dribbles bytes or floods us with messages thus costs its caller no more time than one that is silent.
 */
#include "client_private.h"

#include <errno.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>

static const int64_t NS_PER_MS = 1000000;

static int64_t now_ns(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 * NS_PER_MS + now.tv_nsec;
}

struct deadline deadline_in(int timeout_ms) {
    return (struct deadline){.limited = timeout_ms > 0, .at_ns = now_ns() + timeout_ms * NS_PER_MS};
}

/* Waits for the socket; OK, TIMEOUT or CONNECTION_FAILED. Errors and hang-ups are left to the read or write to find. */
static int wait_for(int fd, short events, const struct deadline *deadline) {
    for (;;) {
        int left_ms = -1;
        if (deadline->limited) {
            const int64_t left_ns = deadline->at_ns - now_ns();
            if (left_ns <= 0) {
                return UBUS_STATUS_TIMEOUT;
            }
            left_ms = (int)((left_ns + NS_PER_MS - 1) / NS_PER_MS);
        }
        struct pollfd socket = {.fd = fd, .events = events};
        const int ready = poll(&socket, 1, left_ms);
        if (ready > 0) {
            return UBUS_STATUS_OK;
        }
        if (ready < 0 && errno != EINTR) {
            return UBUS_STATUS_CONNECTION_FAILED;
        }
    }
}

static bool is_temporary(int error) {
    return error == EINTR || error == EAGAIN || error == EWOULDBLOCK;
}

/* Puts a descriptor in front of the first byte. */
static void attach_descriptor(struct msghdr *header, struct cmsghdr *control, size_t size, int fd) {
    header->msg_control = control;
    header->msg_controllen = size;
    control->cmsg_len = CMSG_LEN(sizeof(fd));
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    memcpy(CMSG_DATA(control), &fd, sizeof(fd));
}

/* Takes the bytes that are sent off the pieces' front. */
static void advance(struct iovec *pieces, size_t count, size_t sent) {
    for (size_t i = 0; i < count; i++) {
        const size_t part = sent < pieces[i].iov_len ? sent : pieces[i].iov_len;
        pieces[i].iov_base = (char *)pieces[i].iov_base + part;
        pieces[i].iov_len -= part;
        sent -= part;
    }
}

int ubus_send_message(struct ubus_context *ctx, const struct message *message, int fd,
                      const struct deadline *deadline) {
    struct ubus_msghdr hdr = {
        .version = 0, .type = message->type, .seq = htobe16(message->seq), .peer = htobe32(message->peer)};
    struct iovec pieces[] = {{&hdr, sizeof(hdr)}, {message->body, blob_raw_len(message->body)}};
    const size_t total = pieces[0].iov_len + pieces[1].iov_len;
    union {
        struct cmsghdr header;
        char space[CMSG_SPACE(sizeof(int))];
    } control = {.space = {0}};

    for (size_t sent = 0; sent < total;) {
        struct msghdr out = {.msg_iov = pieces, .msg_iovlen = 2};
        if (sent == 0 && fd >= 0) {
            attach_descriptor(&out, &control.header, sizeof(control), fd);
        }
        int status = wait_for(ctx->sock.fd, POLLOUT, deadline);
        if (status == UBUS_STATUS_OK) {
            const ssize_t count = sendmsg(ctx->sock.fd, &out, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count >= 0) {
                sent += (size_t)count;
                advance(pieces, 2, (size_t)count);
                continue;
            }
            status = is_temporary(errno) ? UBUS_STATUS_OK : UBUS_STATUS_CONNECTION_FAILED;
        }
        if (status != UBUS_STATUS_OK) {
            /* What follows half a message would be taken for its other half. */
            ctx->sock.eof = ctx->sock.eof || sent > 0 || status == UBUS_STATUS_CONNECTION_FAILED;
            return status;
        }
    }
    return UBUS_STATUS_OK;
}

/* One read into `space`, at least a byte of it. */
static int read_some(struct ubus_context *ctx, void *space, size_t len, size_t *count,
                     const struct deadline *deadline) {
    for (;;) {
        const int status = wait_for(ctx->sock.fd, POLLIN, deadline);
        if (status != UBUS_STATUS_OK) {
            return status;
        }
        const ssize_t got = recv(ctx->sock.fd, space, len, MSG_DONTWAIT);
        if (got > 0) {
            *count = (size_t)got;
            return UBUS_STATUS_OK;
        }
        if (got == 0 || !is_temporary(errno)) {
            return UBUS_STATUS_CONNECTION_FAILED;
        }
    }
}

/* Allocates the body once its length is known. */
static int begin_body(struct incoming *incoming) {
    const struct blob_attr attr = {.id_len = incoming->start.id_len};
    const size_t len = blob_raw_len(&attr);
    if (incoming->start.hdr.version != 0 || len < sizeof(attr) || len > UBUS_MAX_MSGLEN) {
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    incoming->body = calloc(1, blob_pad_len(&attr));
    if (incoming->body == NULL) {
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    incoming->body->id_len = attr.id_len;
    return UBUS_STATUS_OK;
}

static int read_message(struct ubus_context *ctx, struct incoming *incoming, const struct deadline *deadline) {
    int status = UBUS_STATUS_OK;

    while (status == UBUS_STATUS_OK) {
        const size_t start_len = sizeof(incoming->start);
        size_t count = 0;
        if (incoming->have < start_len) {
            char *space = (char *)&incoming->start + incoming->have;
            status = read_some(ctx, space, start_len - incoming->have, &count, deadline);
        } else if (incoming->body == NULL) {
            status = begin_body(incoming);
        } else {
            const size_t got = incoming->have - start_len;
            const size_t len = blob_len(incoming->body);
            if (got == len) {
                return UBUS_STATUS_OK;
            }
            status = read_some(ctx, incoming->body->data + got, len - got, &count, deadline);
        }
        incoming->have += count;
    }
    return status;
}

int ubus_receive_message(struct ubus_context *ctx, struct message *message, const struct deadline *deadline) {
    struct incoming *incoming = &((struct connection *)ctx)->incoming;
    const int status = ctx->sock.eof ? UBUS_STATUS_CONNECTION_FAILED : read_message(ctx, incoming, deadline);

    if (status == UBUS_STATUS_OK) {
        *message = (struct message){.type = incoming->start.hdr.type,
                                    .seq = be16toh(incoming->start.hdr.seq),
                                    .peer = be32toh(incoming->start.hdr.peer),
                                    .body = incoming->body};
        *incoming = (struct incoming){.body = NULL};
    } else if (status != UBUS_STATUS_TIMEOUT) {
        ctx->sock.eof = true;
        ubus_drop_incoming(incoming);
    }
    return status;
}

void ubus_drop_incoming(struct incoming *incoming) {
    free(incoming->body);
    *incoming = (struct incoming){.body = NULL};
}
