/*
 * Requests: a message out, the messages of its answer in, until the one with the result. What arrives for no request
 * under way (the late answer to one that ran out of time, say) is dropped.
 */
#include "client_private.h"

#include <stdlib.h>
#include <unistd.h>

static const struct blob_attr_info ATTRIBUTES[UBUS_ATTR_MAX] = {
    [UBUS_ATTR_STATUS] = {.type = BLOB_ATTR_INT32},       [UBUS_ATTR_OBJPATH] = {.type = BLOB_ATTR_STRING},
    [UBUS_ATTR_OBJID] = {.type = BLOB_ATTR_INT32},        [UBUS_ATTR_METHOD] = {.type = BLOB_ATTR_STRING},
    [UBUS_ATTR_OBJTYPE] = {.type = BLOB_ATTR_INT32},      [UBUS_ATTR_SIGNATURE] = {.type = BLOB_ATTR_NESTED},
    [UBUS_ATTR_DATA] = {.type = BLOB_ATTR_NESTED},        [UBUS_ATTR_TARGET] = {.type = BLOB_ATTR_INT32},
    [UBUS_ATTR_ACTIVE] = {.type = BLOB_ATTR_INT8},        [UBUS_ATTR_NO_REPLY] = {.type = BLOB_ATTR_INT8},
    [UBUS_ATTR_SUBSCRIBERS] = {.type = BLOB_ATTR_NESTED},
};

static struct ubus_request *find_request(const struct ubus_context *ctx, uint16_t seq) {
    struct ubus_request *request = ctx->requests;
    while (request != NULL && request->seq != seq) {
        request = request->outer;
    }
    return request;
}

static void take_status(struct ubus_request *request, struct blob_attr *body) {
    struct blob_attr *attrs[UBUS_ATTR_MAX];
    blob_parse(body, attrs, ATTRIBUTES, UBUS_ATTR_MAX);
    request->status_code =
        attrs[UBUS_ATTR_STATUS] != NULL ? blob_get_int32(attrs[UBUS_ATTR_STATUS]) : UBUS_STATUS_UNKNOWN_ERROR;
    request->status_msg = true;
}

static void take_data(struct ubus_request *request, struct blob_attr *body) {
    struct blob_attr *attrs[UBUS_ATTR_MAX];
    if (request->raw_data_cb != NULL) {
        request->raw_data_cb(request, UBUS_MSG_DATA, body);
        return;
    }
    blob_parse(body, attrs, ATTRIBUTES, UBUS_ATTR_MAX);
    if (request->data_cb != NULL && attrs[UBUS_ATTR_DATA] != NULL) {
        request->data_cb(request, UBUS_MSG_DATA, attrs[UBUS_ATTR_DATA]);
    }
}

static void dispatch(struct ubus_context *ctx, const struct message *message) {
    struct ubus_request *request = find_request(ctx, message->seq);
    if (request == NULL || request->status_msg) {
        return;
    }
    if (message->type == UBUS_MSG_STATUS) {
        take_status(request, message->body);
    } else if (message->type == UBUS_MSG_DATA) {
        take_data(request, message->body);
    }
}

static int exchange(struct ubus_request *request, uint8_t type, struct blob_attr *body, int fd,
                    const struct deadline *deadline) {
    const struct message out = {.type = type, .seq = request->seq, .peer = request->peer, .body = body};
    int status = ubus_send_message(request->ctx, &out, fd, deadline);

    while (status == UBUS_STATUS_OK && !request->status_msg) {
        struct message in;
        status = ubus_receive_message(request->ctx, &in, deadline);
        if (status == UBUS_STATUS_OK) {
            dispatch(request->ctx, &in);
            free(in.body);
        }
    }
    return status == UBUS_STATUS_OK ? request->status_code : status;
}

/* A callback may make calls of its own on the context, whence the chain of requests. */
static int run_request(struct ubus_request *request, uint8_t type, struct blob_attr *body, int fd, int timeout_ms) {
    struct ubus_context *ctx = request->ctx;
    const struct deadline deadline = deadline_in(timeout_ms);

    if (ctx->sock.eof) {
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    if (blob_raw_len(body) > UBUS_MAX_MSGLEN) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    request->seq = ++ctx->request_seq;
    request->outer = ctx->requests;
    ctx->requests = request;
    const int status = exchange(request, type, body, fd, &deadline);
    ctx->requests = request->outer;
    return status;
}

static bool put_invocation(struct blob_buf *buf, uint32_t obj, const char *method, struct blob_attr *msg) {
    return blob_buf_init(buf, 0) == 0 && blob_put_int32(buf, UBUS_ATTR_OBJID, obj) != NULL &&
           blob_put_string(buf, UBUS_ATTR_METHOD, method) != NULL &&
           (msg == NULL || blob_put(buf, UBUS_ATTR_DATA, blob_data(msg), (unsigned int)blob_len(msg)) != NULL);
}

int ubus_invoke_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout_ms, int fd) {
    struct ubus_request request = {.ctx = ctx, .peer = obj, .data_cb = cb, .priv = priv};
    struct blob_buf buf = {.head = NULL};
    int status = UBUS_STATUS_INVALID_ARGUMENT;

    if (put_invocation(&buf, obj, method, msg)) {
        status = run_request(&request, UBUS_MSG_INVOKE, buf.head, fd, timeout_ms);
    }
    blob_buf_free(&buf);
    if (fd >= 0) {
        close(fd);
    }
    return status;
}

struct lookup {
    ubus_lookup_handler_t handler;
    void *priv;
};

static void take_object(struct ubus_request *request, int type, struct blob_attr *body) {
    const struct lookup *lookup = request->priv;
    struct blob_attr *attrs[UBUS_ATTR_MAX];
    (void)type;

    blob_parse(body, attrs, ATTRIBUTES, UBUS_ATTR_MAX);
    if (attrs[UBUS_ATTR_OBJID] == NULL || attrs[UBUS_ATTR_OBJPATH] == NULL) {
        return;
    }
    struct ubus_object_data object = {
        .id = blob_get_u32(attrs[UBUS_ATTR_OBJID]),
        .type_id = attrs[UBUS_ATTR_OBJTYPE] != NULL ? blob_get_u32(attrs[UBUS_ATTR_OBJTYPE]) : 0,
        .path = blob_get_string(attrs[UBUS_ATTR_OBJPATH]),
        .signature = attrs[UBUS_ATTR_SIGNATURE],
    };
    lookup->handler(request->ctx, &object, lookup->priv);
}

int ubus_lookup(struct ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv) {
    struct lookup lookup = {.handler = cb, .priv = priv};
    struct ubus_request request = {.ctx = ctx, .raw_data_cb = take_object, .priv = &lookup};
    struct blob_buf buf = {.head = NULL};
    int status = UBUS_STATUS_INVALID_ARGUMENT;

    if (blob_buf_init(&buf, 0) == 0 && (path == NULL || blob_put_string(&buf, UBUS_ATTR_OBJPATH, path) != NULL)) {
        status = run_request(&request, UBUS_MSG_LOOKUP, buf.head, -1, DAEMON_TIMEOUT_MS);
    }
    blob_buf_free(&buf);
    return status;
}

struct found_id {
    bool found;
    uint32_t id;
};

static void keep_id(struct ubus_context *ctx, struct ubus_object_data *object, void *priv) {
    struct found_id *found = priv;
    (void)ctx;
    found->found = true;
    found->id = object->id;
}

int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id) {
    struct found_id found = {.found = false};
    const int status = ubus_lookup(ctx, path, keep_id, &found);
    if (status != UBUS_STATUS_OK) {
        return status;
    }
    if (!found.found) {
        return UBUS_STATUS_NOT_FOUND;
    }
    *id = found.id;
    return UBUS_STATUS_OK;
}
