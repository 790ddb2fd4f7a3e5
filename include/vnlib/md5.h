/*
 * md5.h - the MD5 message digest (RFC 1321).
 *
 * For checksums of old formats only: MD5 protects against nobody who wants to forge a message.
 * A context is the caller's plain record; nothing is allocated and nothing needs to be released.
 * Different contexts may be used in different threads at once.
 */
#ifndef VNLIB_MD5_H
#define VNLIB_MD5_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

typedef struct md5_ctx {
    uint32_t bits[2];  /* message length so far in bits, low word first */
    uint32_t state[4]; /* the chaining words A, B, C, D */
    uint8_t block[64]; /* bytes that wait for their block to fill up: (bits / 8) % 64 of them */
} md5_ctx;

/* Prepares `ctx` for a new message. */
VN_API void md5_init(md5_ctx *ctx);

/*
 * Takes the next `len` bytes of the message in. A `len` below 1 does nothing, so `data` may then be
 * null. The message may have any total length; its length in bits counts modulo 2^64.
 */
VN_API void md5_append(md5_ctx *ctx, const uint8_t *data, int len);

/*
 * Ends the message and stores its digest, 16 bytes. The context is neither cleared nor ready for
 * more: begin the next message with md5_init().
 */
VN_API void md5_finish(md5_ctx *ctx, uint8_t digest[16]);

/* The digest of the `len` bytes at `data` in one call. A `len` below 1 stands for no bytes. */
VN_API void md5_single(const uint8_t *data, int len, uint8_t digest[16]);

VN_END_DECLS

#endif
