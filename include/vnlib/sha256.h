/*
 * sha256.h - the SHA-256 message digest (FIPS 180-4).
 *
 * A context is the caller's plain record; nothing is allocated and nothing needs to be released.
 * Different contexts may be used in different threads at once.
 */
#ifndef VNLIB_SHA256_H
#define VNLIB_SHA256_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

typedef struct sha256_ctx {
    uint32_t state[8]; /* the chaining words H0 to H7 */
    uint32_t bytes[2]; /* message length so far in bytes, low word first */
    uint32_t pending;  /* how many bytes wait in `block` */
    uint8_t block[64]; /* bytes that wait for their block to fill up */
} sha256_ctx;

/* Prepares `ctx` for a new message. */
VN_API void sha256_init(sha256_ctx *ctx);

/* Takes the next `len` bytes of the message in. With `len` 0 does nothing; `data` may be null. */
VN_API void sha256_append(sha256_ctx *ctx, const uint8_t *data, unsigned len);

/*
 * Ends the message and stores its digest, 32 bytes. The context is neither cleared nor ready for
 * more: begin the next message with sha256_init().
 */
VN_API void sha256_finish(sha256_ctx *ctx, uint8_t digest[32]);

/* The digest of the `len` bytes at `data` in one call. */
VN_API void sha256_single(const uint8_t *data, unsigned len, uint8_t digest[32]);

VN_END_DECLS

#endif
