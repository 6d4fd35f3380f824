/*
 * The delta file of a package holds the changes that are staged and not committed, a record each:
 *     network.lan.proto='dhcp'    -network.lan.mtu    |network.lan.dns='1.1.1.1'
 * The character in front says what is done, see the table. Values are quoted as in the configuration file, so a
 * record may be several lines. Other processes append at any time, so the file is only touched under its lock.
 */
#include "internal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

enum target { SECTION = 1, OPTION = 2, EITHER = SECTION | OPTION };

static const struct record_kind {
    char prefix; /* 0: none */
    bool has_value;
    enum uci_change_kind kind;
    enum target target;
} record_kinds[] = {
    /* The row without a prefix is the last: it takes what no other row does. */
    {'-', false, UCI_CHANGE_DELETE, EITHER},        /* -network.lan.mtu */
    {'|', true, UCI_CHANGE_ADD_LIST, OPTION},       /* |network.lan.dns='1.1.1.1' */
    {'~', true, UCI_CHANGE_DELETE_ITEM, OPTION},    /* ~network.lan.dns='1.1.1.1' */
    {'+', true, UCI_CHANGE_ADD_ANONYMOUS, SECTION}, /* +firewall.cfg0592bd='rule' */
    {'@', true, UCI_CHANGE_RENAME, EITHER},         /* @network.lan='home' */
    {'^', true, UCI_CHANGE_REORDER, SECTION},       /* ^firewall.cfg0592bd='2' */
    {0, true, UCI_CHANGE_SET, EITHER},              /* network.lan.proto='dhcp', network.lan='interface' */
};

static void append_record(struct uci_text *text, const char *package, const struct uci_change *change) {
    const struct record_kind *kind = record_kinds;
    while (kind->kind != change->kind)
        kind++;
    if (kind->prefix)
        uci_text_append(text, &kind->prefix, 1);
    uci_text_append_string(text, package);
    uci_text_append_string(text, ".");
    uci_text_append_string(text, change->section);
    if (change->option) {
        uci_text_append_string(text, ".");
        uci_text_append_string(text, change->option);
    }
    if (kind->has_value) {
        uci_text_append_string(text, "=");
        uci_text_append_quoted(text, change->value);
    }
    uci_text_append_string(text, "\n");
}

/* Cuts a record in place; false when it is none or belongs to another package. */
static bool parse_record(char *record, const char *package, struct uci_change *change) {
    const struct record_kind *kind = record_kinds;
    while (kind->prefix && kind->prefix != record[0])
        kind++;
    struct uci_ptr path;
    uci_split_path(kind->prefix ? record + 1 : record, &path);
    *change =
        (struct uci_change){.kind = kind->kind, .section = path.section, .option = path.option, .value = path.value};
    const enum target target = path.option ? OPTION : SECTION;
    return path.package && !strcmp(path.package, package) && uci_valid_name(path.section) &&
           (!path.option || uci_valid_name(path.option)) && (kind->target & target) &&
           kind->has_value == (path.value != NULL);
}

/*
 * Reads one record. A last record without its newline was cut short when its writer was killed; it does not count,
 * since "-network.lan.mtu" must not turn into "-network.lan". `change` has no section where the record is not one of
 * ours. UCI_ERR_NOTFOUND at the end.
 */
static int next_record(struct uci_words *words, const char *package, struct uci_change *change) {
    change->section = NULL;
    int err = uci_words_next(words);
    if (err == UCI_ERR_PARSE) {
        if (words->position == words->end)
            return UCI_ERR_NOTFOUND;
        uci_words_skip_line(words);
        return UCI_OK;
    }
    if (err)
        return err;
    if (words->position == words->end && !words->terminated)
        return UCI_ERR_NOTFOUND;
    if (words->count != 1 || !parse_record(words->word[0].data, package, change))
        change->section = NULL;
    return UCI_OK;
}

int uci_delta_read(const char *package, const struct uci_text *text, uci_delta_each_t each, void *priv) {
    struct uci_words words;
    uci_words_init(&words, text->data, text->length);
    int err;
    struct uci_change change;
    while (!(err = next_record(&words, package, &change)))
        if (change.section && (err = each(&change, priv)))
            break;
    uci_words_free(&words);
    return err == UCI_ERR_NOTFOUND ? UCI_OK : err;
}

static int apply_record(const struct uci_change *change, void *package) {
    int err = uci_change_apply(package, change);
    return err == UCI_ERR_MEM ? err : UCI_OK;
}

int uci_delta_apply(struct uci_package *package, const struct uci_text *text) {
    return uci_delta_read(package->e.name, text, apply_record, package);
}

int uci_delta_open(const struct uci_context *ctx, const char *package, bool create, int open_flags, int *fd) {
    char *path = uci_path_join(ctx->savedir, package);
    if (!path)
        return UCI_ERR_MEM;
    /* Only the opening that follows tells whether the directory is usable. */
    if (create) {
        open_flags |= O_CREAT;
        (void)mkdir(ctx->savedir, 0700);
    }
    int lock = (open_flags & O_ACCMODE) == O_RDONLY ? LOCK_SH : LOCK_EX;
    int err = uci_file_open_locked(path, open_flags, lock, fd);
    free(path);
    return create && err == UCI_ERR_NOTFOUND ? UCI_ERR_IO : err;
}

/* Where the complete records end: behind them may be one that was cut short, see next_record(). */
static int complete_length(const struct uci_text *text, size_t *length) {
    struct uci_words words;
    uci_words_init(&words, text->data, text->length);
    *length = 0;
    int err;
    struct uci_change unused;
    while (!(err = next_record(&words, "", &unused)))
        *length = (size_t)(words.position - text->data);
    uci_words_free(&words);
    return err == UCI_ERR_NOTFOUND ? UCI_OK : err;
}

/* Writes at `offset` and leaves nothing behind it; on an error the file ends at `offset`. */
static int write_tail(int fd, size_t offset, const struct uci_text *tail) {
    if (ftruncate(fd, (off_t)offset) || lseek(fd, (off_t)offset, SEEK_SET) < 0)
        return UCI_ERR_IO;
    int err = uci_file_write(fd, tail->data, tail->length);
    if (err && ftruncate(fd, (off_t)offset))
        err = UCI_ERR_IO;
    return err;
}

int uci_delta_append(int fd, struct uci_package *package) {
    struct uci_text present = {0}, added = {0};
    size_t offset = 0;
    int err = uci_file_read(fd, &present);
    if (!err)
        err = complete_length(&present, &offset);
    for (struct uci_list *link = package->delta.next; link != &package->delta; link = link->next)
        append_record(&added, package->e.name, (const struct uci_change *)link);
    if (!err && added.failed)
        err = UCI_ERR_MEM;
    if (!err)
        err = write_tail(fd, offset, &added);
    if (!err)
        uci_change_list_free(&package->delta);
    uci_text_free(&present);
    uci_text_free(&added);
    return err;
}

int uci_delta_load(const struct uci_context *ctx, const char *package, struct uci_text *text) {
    int fd;
    int err = uci_delta_open(ctx, package, false, O_RDONLY, &fd);
    /* The delta directory is root's alone; others see the configuration as it is committed. */
    if (err == UCI_ERR_NOTFOUND || err == UCI_ERR_IO)
        return UCI_OK;
    if (err)
        return err;
    err = uci_file_read(fd, text);
    close(fd);
    return err;
}
