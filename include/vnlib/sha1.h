/*
 * sha1.h - the SHA-1 message digest (FIPS 180-4).
 *
 * A context is the caller's plain record; nothing is allocated and nothing needs to be released.
 * Different contexts may be used in different threads at once.
 */
#ifndef VNLIB_SHA1_H
#define VNLIB_SHA1_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

typedef struct sha1_ctx {
    uint32_t state[5]; /* the chaining words H0 to H4 */
    uint32_t pending;  /* how many bytes wait in `block` */
    uint64_t total;    /* message length so far in bytes */
    uint8_t block[64]; /* bytes that wait for their block to fill up */
} sha1_ctx;

/* Clears `ctx` and prepares it for a new message. */
VN_API void sha1_init(sha1_ctx *ctx);

/* Takes the next `len` bytes of the message in. With `len` 0, `data` may be null. */
VN_API void sha1_append(sha1_ctx *ctx, const uint8_t *data, unsigned len);

/*
 * Ends the message and stores its digest, 20 bytes. The context is neither cleared nor ready for
 * more: begin the next message with sha1_init().
 */
VN_API void sha1_finish(sha1_ctx *ctx, uint8_t digest[20]);

/* The digest of the `len` bytes at `data` in one call. */
VN_API void sha1_single(const uint8_t *data, unsigned len, uint8_t digest[20]);

VN_END_DECLS

#endif
