/*
 * Inside the bus client: time limits, messages in and out of the socket, requests.
 */
#ifndef HOSTLIBS_UBUS_CLIENT_PRIVATE_H
#define HOSTLIBS_UBUS_CLIENT_PRIVATE_H

#include <libubus.h>

/* A point in time that a call must not outlast, on the clock that nobody sets. */
struct deadline {
    bool limited;
    int64_t at_ns;
};

/* What is read of a message so far. It lives with the connection, as a call may run out of time in the middle of it. */
struct incoming {
    struct {
        struct ubus_msghdr hdr;
        uint32_t id_len; /* of the body */
    } start;
    struct blob_attr *body; /* set once the start is complete; as long as it says, zeros up to the padding */
    size_t have;            /* bytes of start and payload */
};

/* A whole message in host byte order, its body to be released with free(). */
struct message {
    uint8_t type;
    uint16_t seq;
    uint32_t peer;
    struct blob_attr *body;
};

/* What ubus_connect() allocates; the public part comes first. */
struct connection {
    struct ubus_context ctx;
    struct incoming incoming;
};

enum { DAEMON_TIMEOUT_MS = 5000 }; /* for what the daemon answers by itself */

/* 0 milliseconds or less: no limit. */
struct deadline deadline_in(int timeout_ms);

/* Send or receive one message. A result but OK and TIMEOUT on receiving leaves the connection unusable (sock.eof). */
int ubus_send_message(struct ubus_context *ctx, const struct message *message, int fd, const struct deadline *deadline);
int ubus_receive_message(struct ubus_context *ctx, struct message *message, const struct deadline *deadline);

/* Forgets a message that is only half there. */
void ubus_drop_incoming(struct incoming *incoming);

#endif
