/*
 * crc32c.h - the CRC-32C checksum of buffers and scatter-gather vectors.
 *
 * CRC-32C is the checksum of iSCSI digests (RFC 3720, section 12.1): Castagnoli's polynomial, bits
 * reflected, initial value and final complement all ones. The result is handed out byte-swapped: on
 * a little-endian processor its four bytes in memory are the checksum in big-endian order, ready to
 * be stored. Of the text "123456789", whose CRC-32C is E3069283h, the functions return 839206E3h.
 *
 * Both functions only read the caller's buffers and may run in any number of threads.
 */
#ifndef VNLIB_CRC32C_H
#define VNLIB_CRC32C_H

#include <sys/uio.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/* The checksum of the `len` bytes at `data`; 0 for no bytes, when `data` may be null. */
VN_API uint32_t crc32c(const uint8_t *data, unsigned len);

/*
 * The checksum of the bytes of all `count` elements in order, as if they lay in one buffer; 0 for
 * no elements or no bytes. Elements of length 0 may have any address.
 */
VN_API uint32_t crc32cv(const struct iovec *vec, unsigned count);

VN_END_DECLS

#endif
