/*
 * list_sort.h - merge sort of intrusive circular lists
 *
 * A list is a ring of links with a sentinel, the head. The links are embedded in the caller's own
 * items; an empty list is a head whose two links lead to itself.
 */
#ifndef VNLIB_LIST_SORT_H
#define VNLIB_LIST_SORT_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

struct list_link {
    struct list_link *next, *prev;
};

/*
 * Sorts the `count` items linked to `head` so that compare(earlier, later) is positive or zero for
 * each two neighbours. Items that compare equal change places: of two, the later one comes first.
 * `count` must be the true number of items; a count below 2 leaves the list untouched.
 *
 * `compare` is given one link of each half being merged, the one of the earlier half first; it must
 * not change the list, nor follow its links, which are being rearranged. Its positive result puts
 * `a` first.
 *
 * A top-down merge sort (Knuth, The Art of Computer Programming 3, section 5.2.4) of the halves
 * count / 2 and count - count / 2: at most count * log2(count) comparisons, no heap, a stack depth
 * of log2(count). Moves links only. Not locked: the list belongs to the caller's thread.
 */
VN_API void __list_sort(struct list_link *head, int count,
                        int (*compare)(struct list_link *a, struct list_link *b));

VN_END_DECLS

#endif
