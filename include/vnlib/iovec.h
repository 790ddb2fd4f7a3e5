/*
 * iovec.h - scatter-gather vectors: size, position, copies to and from flat memory, sub-ranges.
 *
 * A vector is the system's array of `struct iovec` with its element count. No function here copies
 * or owns an element's bytes unless it says so. All sizes and offsets are bytes. Every function may
 * be called from several threads at once as long as nobody changes the vector meanwhile.
 */
#ifndef VNLIB_IOVEC_H
#define VNLIB_IOVEC_H

#include <sys/uio.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/* The sum of all `iov_len` of the `count` elements; 0 for a `count` below 1. */
VN_API size_t size_iovec(const struct iovec *vec, int count);

/*
 * Normalises a position in a vector: while `*offset` does not lie inside element `*index`, takes
 * that element's length off `*offset` and goes on to the next. Elements of length 0 are always
 * stepped over. Afterwards either `*offset` is smaller than the length of element `*index`, or
 * `*index` is `count`, the end of the vector, and `*offset` says how far beyond it.
 */
VN_API void check_end_of_iov(const struct iovec *vec, int count, size_t *offset, int *index);

/*
 * Gathers the vector's bytes, in order, into `buf`, at most `max` of them. What does not fit is
 * left out; what the vector does not fill of `buf` stays as it was. The buffers must not overlap.
 */
VN_API void linearise_iovec(const struct iovec *vec, unsigned count, uint8_t *buf, size_t max);

/*
 * Scatters the `len` bytes of `buf` over the vector's buffers, filling each in turn. Bytes for
 * which the vector has no room are left out. The buffers must not overlap. A `count` below 1 copies
 * nothing.
 */
VN_API void delinearise_to_iovec(const struct iovec *vec, int count, const uint8_t *buf,
                                 size_t len);

/*
 * Describes the bytes `offset` to `offset` + `length` of `vec` as a vector of their own, which
 * points into the same buffers.
 *
 * The result goes to the caller's array `spare` if its `spare_count` elements suffice, otherwise to
 * an array from calloc(). `*out` is set to the array used and `*out_count` to its element count;
 * the caller releases `*out` with free() when it is not `spare`. `spare` may be null if
 * `spare_count` is 0.
 *
 * Beware of an `offset` that falls exactly on the end of an element: the result then starts with
 * the next element, but is shorter than `length` by the length of the element that ended there, and
 * a `length` which that leaves nothing of is refused. Callers who mean the next element's first
 * byte drop the elements before it from the vector (see check_end_of_iov).
 *
 * Returns 0, or -1: for a range that is not inside the vector, with the message "Failed to get IO
 * Vector section" logged at level 3 and `*out` and `*out_count` untouched; or, without a message,
 * when there is no memory, with `*out` set to null.
 */
VN_API int fill_iovec_subset(struct iovec **out, unsigned *out_count, size_t length, size_t offset,
                             struct iovec *spare, unsigned spare_count, const struct iovec *vec,
                             unsigned count);

VN_END_DECLS

#endif
