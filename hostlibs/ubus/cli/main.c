/*
 * The `ubus` command: call a method of an object on the bus, or list the objects.
 *
 * Exits with the status code of what failed, 255 where it did not come to a call.
 */
#include <libubox/blobmsg_json.h>
#include <libubus.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

enum { DEFAULT_TIMEOUT_S = 30, FAILED = 255 };

struct options {
    const char *socket;
    int timeout_ms;
    bool compact;
};

static int usage(const char *program) {
    fprintf(stderr,
            "Usage: %s [-s SOCKET] [-t SECONDS] [-S] COMMAND\n"
            "  call OBJECT METHOD [JSON]   call a method and print its reply\n"
            "  list [PATTERN]              print the paths of the objects; PATTERN may end with *\n"
            "  -s SOCKET   the daemon's socket\n"
            "  -t SECONDS  how long to wait for the reply (default %d, 0: for ever)\n"
            "  -S          print the reply on one line\n",
            program, DEFAULT_TIMEOUT_S);
    return FAILED;
}

static void print_reply(struct ubus_request *request, int type, struct blob_attr *msg) {
    const struct options *options = request->priv;
    char *text = blobmsg_format_json_indent(msg, true, options->compact ? -1 : 0);
    (void)type;
    if (text != NULL) {
        printf("%s\n", text);
    }
    free(text);
}

static int call(struct ubus_context *ctx, struct options *options, int argc, char **argv) {
    struct blob_buf args = {.head = NULL};
    uint32_t id = 0;

    int status = ubus_lookup_id(ctx, argv[0], &id);
    if (status == UBUS_STATUS_OK) {
        if (blob_buf_init(&args, 0) == 0 && (argc < 3 || blobmsg_add_json_from_string(&args, argv[2]))) {
            status = ubus_invoke(ctx, id, argv[1], args.head, print_reply, options, options->timeout_ms);
        } else {
            fprintf(stderr, "Failed to parse message data\n");
            status = -1;
        }
    }
    blob_buf_free(&args);
    return status;
}

static void print_path(struct ubus_context *ctx, struct ubus_object_data *object, void *priv) {
    (void)ctx;
    (void)priv;
    printf("%s\n", object->path);
}

static int list(struct ubus_context *ctx, struct options *options, int argc, char **argv) {
    (void)options;
    return ubus_lookup(ctx, argc > 0 ? argv[0] : NULL, print_path, NULL);
}

static const struct command {
    const char *name;
    int min_args;
    int max_args;
    int (*run)(struct ubus_context *ctx, struct options *options, int argc, char **argv);
} COMMANDS[] = {
    {"call", 2, 3, call},
    {"list", 0, 1, list},
};

static const struct command *find_command(const char *name, int args) {
    for (size_t i = 0; name != NULL && i < sizeof(COMMANDS) / sizeof(COMMANDS[0]); i++) {
        if (strcmp(COMMANDS[i].name, name) == 0 && args >= COMMANDS[i].min_args && args <= COMMANDS[i].max_args) {
            return &COMMANDS[i];
        }
    }
    return NULL;
}

/* Seconds to milliseconds, at most what an int holds; -1 where the text is no such number. */
static int parse_timeout(const char *text) {
    char *end;
    const long seconds = strtol(text, &end, 10);
    if (end == text || *end != '\0' || seconds < 0) {
        return -1;
    }
    return seconds > INT_MAX / 1000 ? INT_MAX : (int)seconds * 1000;
}

static bool read_options(int argc, char **argv, struct options *options) {
    for (int option; (option = getopt(argc, argv, "+s:t:S")) != -1;) {
        switch (option) {
        case 's':
            options->socket = optarg;
            break;
        case 't':
            options->timeout_ms = parse_timeout(optarg);
            break;
        case 'S':
            options->compact = true;
            break;
        default:
            return false;
        }
    }
    return options->timeout_ms >= 0;
}

int main(int argc, char **argv) {
    struct options options = {.timeout_ms = DEFAULT_TIMEOUT_S * 1000};
    if (!read_options(argc, argv, &options)) {
        return usage(argv[0]);
    }
    const int args = argc - optind - 1;
    const struct command *command = find_command(argv[optind], args);
    if (command == NULL) {
        return usage(argv[0]);
    }

    struct ubus_context *ctx = ubus_connect(options.socket);
    if (ctx == NULL) {
        fprintf(stderr, "Failed to connect to ubus\n");
        return FAILED;
    }
    const int status = command->run(ctx, &options, args, argv + optind + 1);
    ubus_free(ctx);
    if (status > UBUS_STATUS_OK) {
        fprintf(stderr, "Command failed: %s\n", ubus_strerror(status));
    }
    return status < 0 || status > FAILED ? FAILED : status;
}
