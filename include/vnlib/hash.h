/*
 * hash.h - FNV-1a hashes of buffers and strings, 32 and 64 bits wide
 *
 * The hash is the one published as RFC 9923 (The FNV Non-Cryptographic Hash Algorithm): good for
 * tables and site keys, no protection against anyone who chooses the input. Nothing here allocates,
 * locks or sets errno; every function may be called from any thread.
 */
#ifndef VNLIB_HASH_H
#define VNLIB_HASH_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

/*
 * Returns the FNV-1a hash of the `length` bytes at `buffer`. The hash of nothing is the offset
 * basis, 0x811C9DC5 or 0xCBF29CE484222325; it is also returned for a null buffer and for a range
 * that would run past the end of the address space.
 */
VN_API uint32_t hash_buf(const void *buffer, uint32_t length);
VN_API uint64_t hash_buf_64(const void *buffer, uint32_t length);

/*
 * Returns the FNV-1a hash of the bytes of `text` before its NUL; the offset basis for an empty text
 * and for a null pointer.
 */
VN_API uint32_t hash_str(const char *text);
VN_API uint64_t hash_str_64(const char *text);

VN_END_DECLS

#endif
