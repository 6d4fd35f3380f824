/*
 * What blobmsg's writer needs of blob's beyond the public functions.
 */
#ifndef HOSTLIBS_BLOB_PRIVATE_H
#define HOSTLIBS_BLOB_PRIVATE_H

#include <libubox/blob.h>

/* Makes the attribute, the last one of `head`, the one that new attributes go into. Returns blob_nest_end()'s cookie.
 */
void *blob_nest_open(struct blob_buf *buf, struct blob_attr *attr);

#endif
