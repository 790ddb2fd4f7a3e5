/*
 * base32.h - base32 with Crockford's alphabet, least significant bit first, optional check symbol.
 *
 * The alphabet is "0123456789ABCDEFGHJKMNPQRSTVWXYZ" (Douglas Crockford, Base32). Unlike RFC 4648
 * the bits are taken from the low end: symbol k stands for bits 5k to 5k + 4 of the data, counted
 * from bit 0 of the first byte, and the last symbol is filled up with zero bits. There is no
 * padding.
 *
 * Both functions only touch the caller's buffers and may run in any number of threads.
 */
#ifndef VNLIB_BASE32_H
#define VNLIB_BASE32_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

/*
 * Modes of both functions; any other value is a plain conversion.
 *   1  a dry run: zero bytes are written in place of symbols or data
 *   3  with a check symbol: the sum of all symbol values, modulo 32, as one more symbol
 */

/*
 * Writes the `len` bytes at `in` as symbols and a NUL to `out`, which has room for `out_size`
 * bytes.
 *
 * Needs ceil(len * 8 / 5) + 2 bytes of room in every mode. With less, only the first `out_size` - 2
 * symbols are written; a check symbol then covers just those. With room for one byte that is the
 * NUL; with no room nothing is written.
 *
 * Returns the number of characters before the final NUL, the check symbol of mode 3 included.
 */
VN_API unsigned base32_encode(const uint8_t *in, unsigned len, char *out, unsigned out_size,
                              int mode);

/*
 * Decodes the NUL-terminated text `in` to `out`. The last character of the text is never data: it
 * is the check symbol in mode 3 and is dropped in the others. Small letters count as capitals,
 * I and L as 1, O as 0, U as V; a character that is no letter or digit counts as 0.
 *
 * With n characters before the last one, the data are floor(n * 5 / 8) bytes, but all bits that the
 * symbols hold are stored, so `out` must have room for ceil(n * 5 / 8) bytes, and for one at least.
 *
 * Returns 7, or -1 when the check symbol of mode 3 is not that of the data; the data have been
 * stored by then. The number of bytes is the caller's to compute, as above.
 */
VN_API int base32_decode(const char *in, uint8_t *out, int mode);

VN_END_DECLS

#endif
