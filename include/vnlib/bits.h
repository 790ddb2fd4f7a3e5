/*
 * bits.h - counting zero bits, integer logarithms, and a modular comparison of 64-bit numbers.
 *
 * Pure functions: no state, no errors, errno untouched, safe from any thread and signal handler.
 */
#ifndef VNLIB_BITS_H
#define VNLIB_BITS_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

/* The number of zero bits above the highest set bit of `value`: 0 to 31, and 32 for the value 0. */
VN_API unsigned clz(uint32_t value);

/* The number of zero bits below the lowest set bit of `value`: 0 to 31, and 32 for the value 0. */
VN_API unsigned ctz(uint32_t value);

/* The base-2 logarithm of `value`, rounded down: 0 to 31. 0 as well as 1 answer 0. */
VN_API unsigned vn_ilog2(uint32_t value);

/* The base-2 logarithm of `value`, rounded down: 0 to 63. 0 as well as 1 answer 0. */
VN_API unsigned vn_ilog2_64(uint64_t value);

/*
 * Compares two 64-bit counters that may have wrapped, in the manner of serial number arithmetic
 * (RFC 1982): what counts is the difference d = *a - *b modulo 2^64, read as a signed number.
 *
 *     d < 0         -1    *a is behind *b
 *     d is 0 or 1    0    equal, or *a is the direct successor of *b
 *     d > 1          1    *a is ahead of *b by at least two
 *
 * The tolerance is one-sided on purpose: the successor counts as equal, the predecessor as smaller.
 * So the comparison is neither symmetric nor transitive and must not be used for sorting. Numbers
 * exactly 2^63 apart answer -1 in both directions.
 *
 * `a` and `b` point to 8 bytes each, at any alignment, least significant byte first (the order of
 * the machines this library runs on). Neither may be null.
 */
VN_API int cmpnumle64(const uint64_t *a, const uint64_t *b);

/* The same comparison of numbers that are stored most significant byte first. */
VN_API int cmpnumbe64(const uint64_t *a, const uint64_t *b);

VN_END_DECLS

#endif
