/*
 * libubus: a client of the router's message bus. One connection, calls that wait for their answer.
 *
 * Results are 0 (UBUS_STATUS_OK) or one of the UBUS_STATUS_ codes, from the other side or from here: TIMEOUT where the
 * answer took too long, CONNECTION_FAILED where the daemon went away or broke the protocol. After the latter every call
 * on the context fails the same way.
 */
#ifndef HOSTLIBS_LIBUBUS_H
#define HOSTLIBS_LIBUBUS_H

#include <libubox/blobmsg.h>
#include <stdbool.h>
#include <stdint.h>

#include "ubusmsg.h"

#ifdef __cplusplus
extern "C" {
#endif

struct ubus_context;
struct ubus_request;

/* An object found: all of it, and what it points at, holds during the callback only. */
struct ubus_object_data {
    uint32_t id;
    uint32_t type_id;
    const char *path;
    struct blob_attr *signature; /* a table of methods, NULL where the object declares none */
};

typedef void (*ubus_lookup_handler_t)(struct ubus_context *ctx, struct ubus_object_data *obj, void *priv);

/* A reply: `msg` holds its values and is valid during the callback only; req->priv is what the caller gave. */
typedef void (*ubus_data_handler_t)(struct ubus_request *req, int type, struct blob_attr *msg);

struct ubus_request {
    struct ubus_request *outer; /* the request whose callback this one is made in */
    int status_code;
    bool status_msg; /* the answer is complete, status_code is its result */
    uint32_t peer;
    uint16_t seq;
    ubus_data_handler_t raw_data_cb; /* gets the whole message instead of the reply's values */
    ubus_data_handler_t data_cb;
    struct ubus_context *ctx;
    void *priv;
};

struct ubus_context {
    struct {
        int fd;
        bool eof; /* the connection is of no more use */
    } sock;
    uint32_t local_id; /* our number on the bus */
    uint16_t request_seq;
    struct ubus_request *requests; /* those under way, innermost first */
};

const char *ubus_strerror(int error);

/* Connects and waits (5 s at most) for the daemon's greeting. NULL path: the default socket. NULL on failure. */
struct ubus_context *ubus_connect(const char *path);

/* Closes the connection; NULL is allowed. */
void ubus_free(struct ubus_context *ctx);

/*
 * Looks up an object by its path, or calls `cb` for every object that matches: all for NULL, those that begin alike for
 * a path with a final '*'. NOT_FOUND where there is none. The daemon answers these by itself, within 5 s or not at all.
 */
int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id);
int ubus_lookup(struct ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv);

/*
 * Calls a method and waits for its result, `timeout_ms` for everything together; 0 waits without a limit. `msg` are the
 * arguments (NULL: none), `cb` gets the replies (NULL: they are dropped). A descriptor other than -1 is sent along and
 * closed here, whatever the result.
 */
int ubus_invoke_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout_ms, int fd);

static inline int ubus_invoke(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                              ubus_data_handler_t cb, void *priv, int timeout_ms) {
    return ubus_invoke_fd(ctx, obj, method, msg, cb, priv, timeout_ms, -1);
}

#ifdef __cplusplus
}
#endif

#endif
