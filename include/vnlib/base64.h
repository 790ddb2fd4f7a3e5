/*
 * base64.h - base64 as in RFC 4648, section 4, with optional line feeds.
 *
 * Both functions only touch the caller's buffers, which must not overlap, and may run in any number
 * of threads. Neither writes a terminating NUL.
 */
#ifndef VNLIB_BASE64_H
#define VNLIB_BASE64_H

#include <stdbool.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/*
 * Writes the `len` bytes at `in` as base64, padded with "=", to `out`. With `wrap`, a line feed
 * follows every 64 characters, the last of a full last line included.
 *
 * `out` needs room for c = ceil(len / 3) * 4 characters, and with `wrap` for c / 64 more.
 * Returns the number of characters written, line feeds included.
 */
VN_API unsigned base64_encode(const uint8_t *in, char *out, unsigned len, bool wrap);

/*
 * Decodes the `len` characters at `in` to `out`. Characters that are neither of the alphabet nor
 * "=" (line feeds, blanks, bytes above 127) are skipped wherever they stand.
 *
 * Input that is padded to a multiple of four symbols, as base64_encode() makes it, decodes exactly.
 * Other input is not refused:
 *  - At its end, one or two left-over symbols give nothing. Three are completed with the character
 *    at in[len], which must therefore be readable, and give three bytes; of a NUL there, or of any
 *    other character outside the alphabet, the last byte gets the six bits 3Eh.
 *  - "=" as third or fourth symbol of a group leaves its byte out, whatever follows. As any other
 *    value it stands for 127, of which the bits that do not fit are lost.
 *
 * `out` needs room for three bytes for every four symbols begun. Returns the number of bytes
 * written.
 */
VN_API unsigned base64_decode(const char *in, uint8_t *out, unsigned len);

VN_END_DECLS

#endif
