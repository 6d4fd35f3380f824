/*
 * The changes that a program makes: checked, carried out in memory, and recorded in the package until they are saved
 * or committed. A call that changes nothing records nothing.
 */
#include "internal.h"

#include <stdlib.h>
#include <string.h>

/* Brings `ptr` up to date with what the change has made or taken away. */
static void refresh(struct uci_ptr *ptr, const char *section, const char *option) {
    ptr->s = uci_section_find(ptr->p, section);
    ptr->o = ptr->s && option ? uci_option_find(ptr->s, option) : NULL;
    ptr->last = ptr->o ? &ptr->o->e : ptr->s ? &ptr->s->e : &ptr->p->e;
    unsigned flags = (unsigned)ptr->flags & ~(unsigned)UCI_LOOKUP_COMPLETE;
    if (ptr->s && (ptr->o || !option))
        flags |= UCI_LOOKUP_COMPLETE;
    memcpy(&ptr->flags, &flags, sizeof ptr->flags);
}

static int carry_out(struct uci_ptr *ptr, enum uci_change_kind kind, const char *value) {
    struct uci_change *change = uci_change_new(kind, ptr->s ? ptr->s->e.name : ptr->section, ptr->option, value);
    if (!change)
        return UCI_ERR_MEM;
    int err = uci_change_apply(ptr->p, change);
    if (err) {
        free(change);
        return err;
    }
    uci_list_append(&ptr->p->delta, &change->list);
    refresh(ptr, change->section, change->option);
    return UCI_OK;
}

int uci_set(struct uci_context *ctx, struct uci_ptr *ptr) {
    int err = uci_resolve(ctx, ptr);
    if (err)
        return err;
    if (!ptr->value || !ptr->section || (ptr->option && (!ptr->s || !uci_valid_name(ptr->option))))
        return UCI_ERR_INVAL;
    if (!*ptr->value)
        return ptr->flags & UCI_LOOKUP_COMPLETE ? uci_delete(ctx, ptr) : UCI_OK;
    if (ptr->option) {
        if (ptr->o && ptr->o->type == UCI_TYPE_STRING && !strcmp(ptr->o->v.string, ptr->value))
            return UCI_OK;
    } else {
        if (ptr->s && !strcmp(ptr->s->type, ptr->value))
            return UCI_OK;
        if (!uci_valid_type(ptr->value) || (!ptr->s && !uci_valid_name(ptr->section)))
            return UCI_ERR_INVAL;
    }
    return carry_out(ptr, UCI_CHANGE_SET, ptr->value);
}

int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr) {
    int err = uci_resolve(ctx, ptr);
    if (err)
        return err;
    if (!ptr->value || !ptr->s || !uci_valid_name(ptr->option))
        return UCI_ERR_INVAL;
    return carry_out(ptr, UCI_CHANGE_ADD_LIST, ptr->value);
}

int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr) {
    int err = uci_resolve(ctx, ptr);
    if (err)
        return err;
    /* A value would be meant to pick one item of a list, and must not delete all of it. */
    if (!ptr->section || (ptr->value && *ptr->value))
        return UCI_ERR_INVAL;
    if (!(ptr->flags & UCI_LOOKUP_COMPLETE))
        return UCI_ERR_NOTFOUND;
    return carry_out(ptr, UCI_CHANGE_DELETE, NULL);
}
