// The stand-in for every program of the router that is not under test, and for /bin/sh.
//
// Installed under many names. As any of them it appends one line {"kind":"program","argv":[...]} to the router's
// event file and then gives the answer that a test prepared for that name, if any. As "sh" it appends the text after
// -c as {"kind":"shell","command":...} and becomes the real shell, so commands are recorded exactly, and in order.

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#define EVENTS  "/run/sim/events.jsonl"
#define ANSWERS "/run/sim/answers"
#define SHELL   "/bin/dash"

// Growing text of one event, so that it reaches the file in a single write: lines of two processes never mix.
struct line {
    char *text;
    size_t length;
    size_t room;
};

static void append(struct line *line, const char *text, size_t length) {
    if (line->length + length > line->room) {
        size_t room = (line->length + length) * 2;
        char *grown = realloc(line->text, room);
        if (grown == NULL)
            exit(125);
        line->text = grown;
        line->room = room;
    }
    memcpy(line->text + line->length, text, length);
    line->length += length;
}

static void append_text(struct line *line, const char *text) {
    append(line, text, strlen(text));
}

// Length of the valid UTF-8 sequence at text (shortest form, no surrogates, at most U+10FFFF), 0 when there is none.
// The terminating NUL is no continuation byte, so a sequence cut by the end of the text is not read past it.
static size_t utf8_length(const unsigned char *text) {
    static const struct {
        unsigned char first_low, first_high, second_low, second_high, length;
    } forms[] = {
        {0x01, 0x7f, 0x00, 0x00, 1}, {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
        {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
        {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
    };
    for (size_t i = 0; i < sizeof forms / sizeof forms[0]; i++) {
        if (text[0] < forms[i].first_low || text[0] > forms[i].first_high)
            continue;
        if (forms[i].length > 1 && (text[1] < forms[i].second_low || text[1] > forms[i].second_high))
            return 0;
        for (size_t k = 2; k < forms[i].length; k++)
            if (text[k] < 0x80 || text[k] > 0xbf)
                return 0;
        return forms[i].length;
    }
    return 0;
}

// A JSON string that gives back the very bytes in Python: an invalid byte XX becomes the lone surrogate \udcXX, which
// is what errors="surrogateescape" makes of it.
static void append_json(struct line *line, const char *value) {
    char escaped[8];
    const unsigned char *at = (const unsigned char *)value;
    append_text(line, "\"");
    while (*at != 0) {
        size_t length = utf8_length(at);
        if (length == 0) {
            snprintf(escaped, sizeof escaped, "\\udc%02x", *at);
            append_text(line, escaped);
            at++;
            continue;
        }
        if (*at < 0x20 || *at == 0x7f) {
            snprintf(escaped, sizeof escaped, "\\u%04x", *at);
            append_text(line, escaped);
        } else {
            if (*at == '"' || *at == '\\')
                append_text(line, "\\");
            append(line, (const char *)at, length);
        }
        at += length;
    }
    append_text(line, "\"");
}

static void write_event(struct line *line) {
    append_text(line, "}\n");
    int fd = open(EVENTS, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0 || write(fd, line->text, line->length) != (ssize_t)line->length) {
        perror("recorder: " EVENTS);
        exit(125);
    }
    close(fd);
    free(line->text);
}

static const char *base_name(const char *path) {
    const char *slash = strrchr(path, '/');
    return slash == NULL ? path : slash + 1;
}

// The command text of "sh -c CMD", "sh -ec CMD" or "sh -c -- CMD"; NULL for a script file or an interactive shell.
static const char *shell_command(char **argv) {
    int wanted = 0;
    for (int i = 1; argv[i] != NULL; i++) {
        if (strcmp(argv[i], "--") == 0)
            return wanted ? argv[i + 1] : NULL;
        if (argv[i][0] != '-' && argv[i][0] != '+')
            return wanted ? argv[i] : NULL;
        if (argv[i][0] == '-' && strchr(argv[i], 'c') != NULL)
            wanted = 1;
    }
    return NULL;
}

static int act_as_shell(char **argv) {
    const char *command = shell_command(argv);
    if (command != NULL) {
        struct line line = {0};
        append_text(&line, "{\"kind\":\"shell\",\"command\":");
        append_json(&line, command);
        write_event(&line);
    }
    execv(SHELL, argv);
    perror("recorder: " SHELL);
    return 127;
}

// An executable answer is run with the same arguments, any other file is printed.
static int answer(const char *name, char **argv) {
    char path[512];
    struct stat status;
    if (snprintf(path, sizeof path, "%s/%s", ANSWERS, name) >= (int)sizeof path || stat(path, &status) != 0)
        return 0;
    if ((status.st_mode & S_IXUSR) != 0) {
        execv(path, argv);
        perror(path);
        return 126;
    }
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return 126;
    char buffer[4096];
    ssize_t count;
    while ((count = read(fd, buffer, sizeof buffer)) > 0)
        for (ssize_t sent = 0; sent < count;) {
            ssize_t now = write(STDOUT_FILENO, buffer + sent, (size_t)(count - sent));
            if (now < 0)
                return 1;
            sent += now;
        }
    close(fd);
    return 0;
}

int main(int argc, char **argv) {
    if (argc < 1)
        return 125;
    const char *name = base_name(argv[0][0] == '-' ? argv[0] + 1 : argv[0]);
    if (strcmp(name, "sh") == 0)
        return act_as_shell(argv);

    struct line line = {0};
    append_text(&line, "{\"kind\":\"program\",\"argv\":[");
    for (int i = 0; i < argc; i++) {
        if (i > 0)
            append_text(&line, ",");
        append_json(&line, argv[i]);
    }
    append_text(&line, "]");
    write_event(&line);
    return answer(name, argv);
}
