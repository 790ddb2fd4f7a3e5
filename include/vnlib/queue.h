/*
 * queue.h - a keyed queue with indexed lists.
 *
 *     slots[]   0: item   1: null   2: item ...     at most one item each; slot = key % slot_count
 *     lists[]   0: head <-> item <-> item <-> head  any number of items, in order of arrival
 *               1: head <-> head
 *
 * A queue object holds pointers to the caller's data, never the data itself. Items enter a slot or
 * a list and move from a slot to a list (q_q2l) and from list to list (q_l2l). All searching,
 * cleaning and deleting is decided by callbacks, given once to q_init().
 *
 * Memory: the object, its list heads and one element per item come from malloc() and go back to
 * free() (24 bytes an element on 64 bits, 12 on 32 bits).
 * Threads: nothing is locked. Callers that share an object serialise their calls.
 * Callbacks: a callback may use the queue it is called for. It may take the element that it is
 * called with out of its place, by moving it or by deleting it, but no other element of the list
 * being walked. Having deleted it, it must not answer that the element be freed. It must not call
 * q_exit().
 * Failures: null pointers, missing callbacks and indexes out of range are refused with the failure
 * result that each function states, and with errno EINVAL where that is null or -1. When memory
 * runs out errno is ENOMEM. An empty or an occupied slot, a filter's refusal and a search without a
 * match leave errno alone.
 */
#ifndef VNLIB_QUEUE_H
#define VNLIB_QUEUE_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

struct q_queue;
struct q_element;

/* --- callbacks that belong to a queue ------------------------------------------------------- */

/* Non-zero when the item is the one that `key` means. */
typedef int (*q_match_fn)(void *data, uintptr_t key);

/*
 * Asked by the deleting functions and by q_exit(): may the item go? The callback releases the data
 * itself; its result decides what becomes of the element (see q_release_result). In q_exit() the
 * elements of slots are freed whatever it says.
 */
typedef int (*q_release_fn)(void *data, void *arg);
enum q_release_result {
    Q_RELEASE_FREE = 1,  /* free the element, and stop */
    Q_RELEASE_GO_ON = 3, /* keep the element, and go on */
    /* any other value: keep the element, stop, and return the value */
};

/*
 * Asked by the cleaning functions, for slots with the element itself (null for an empty slot: cast
 * to struct q_element *), for lists with the item's data. Negative: stop and return this value.
 * Q_CLEAN_STOP: stop and return the count so far. Otherwise the result is added to the count and
 * the element is freed (in a list only when the result is not 0).
 */
typedef int (*q_clean_fn)(void *item, void *arg);
enum { Q_CLEAN_STOP = 2 };

/* Non-zero refuses a new item. `list` is the list's index, UINT_MAX for a slot. */
typedef int (*q_filter_fn)(void *data, void *arg, unsigned list);

/* --- callbacks that belong to a call -------------------------------------------------------- */

/* Called with the element or null (struct q_element *) for slots, with the data for lists. */
typedef int (*q_work_fn)(struct q_queue *queue, void *item, void *arg);

/* Non-zero selects the item for deletion. */
typedef int (*q_select_fn)(void *data, void *arg);

/* `label` is "Elm:" with the slot's index in hexadecimal, at least four digits; it lives for the
 * call. */
typedef void (*q_dump_queue_fn)(void *data, void *arg, const char *label,
                                struct q_element *element);

/* `label` is "List " with the list's index in hexadecimal; it lives for the call. */
typedef void (*q_dump_list_fn)(void *data, void *arg, const char *label);

/* --- records -------------------------------------------------------------------------------- */

/* One item. Both links are null in a slot; in a list they lead around a circle through the head. */
struct q_element {
    struct q_element *next;
    struct q_element *prev;
    void *data;
};

/* The object, in one block with its slots. Read it freely; change it through the functions only. */
__extension__ struct q_queue {
    uint32_t list_count;
    struct q_element *lists; /* list_count heads; null when there are none */
    q_release_fn release;
    q_match_fn match;
    q_clean_fn clean;
    q_filter_fn filter;
    uint32_t slot_count;
    struct q_element *slots[]; /* slot_count elements or nulls */
};

/* --- life of a queue ------------------------------------------------------------------------ */

/*
 * Makes a queue with `slots` slots (at least 1) and `lists` lists (0 for none). `match` must be
 * given, and at least one of `release` and `clean`; `filter` may be null. Returns null when an
 * argument is refused or memory runs out. Release the queue with q_exit().
 */
VN_API struct q_queue *q_init(unsigned slots, unsigned lists, q_match_fn match,
                              q_release_fn release, q_clean_fn clean, q_filter_fn filter);

/*
 * Ends the queue: the release callback, if any, sees every item as release(data, arg), slots first,
 * then the lists in order, each front to back. Elements in slots are freed. Elements in lists are
 * freed when the callback answers 1, or when there is no callback; the others now belong to the
 * caller, who gives each to free(): they stay linked to the other ones kept of the same list, in
 * order, with null links at both ends.
 * Returns 0, or -1 for a null queue.
 */
VN_API int q_exit(struct q_queue *queue, void *arg);

/* --- adding and moving ---------------------------------------------------------------------- */

/*
 * Puts `data` into the slot of `key`. Returns the new element, or null for a null queue, for an
 * occupied slot, when the filter (asked with `arg`) refuses, or when memory runs out.
 */
VN_API struct q_element *q_add_queue(struct q_queue *queue, void *data, uintptr_t key, void *arg);

/*
 * Appends `data` to the list with index `list`. Returns the new element, or null for a null queue,
 * an index out of range, when the filter (asked with `arg`) refuses, or when memory runs out.
 */
VN_API struct q_element *q_add_list(struct q_queue *queue, void *data, unsigned list, void *arg);

/*
 * Moves the item in the slot of `key` to the tail of list `list`; match is not asked. Returns 0, or
 * -1 for a null queue, an index out of range or an empty slot.
 */
VN_API int q_q2l(struct q_queue *queue, unsigned list, uintptr_t key);

/*
 * Moves the first item of list `from` that matches `key` to the tail of list `to` (which may be the
 * same). Returns 0, or -1 for a null queue, an index out of range or when no item matches.
 */
VN_API int q_l2l(struct q_queue *queue, unsigned from, unsigned to, uintptr_t key);

/* --- searching ------------------------------------------------------------------------------ */

/* Flags of q_refer_element() and q_refer(), to be combined with |. */
enum q_refer_flag {
    Q_REFER_NO_SLOT = 1,  /* do not look at the slot of the key */
    Q_REFER_NO_LISTS = 2, /* do not look at the lists */
    Q_REFER_UNASKED = 4,  /* take what is in the slot without asking match */
};

/*
 * Finds the item of `key`: first in the key's slot, then in lists 0, 1, ... each front to back.
 * Returns its element, or null when there is none or the queue is null.
 */
VN_API struct q_element *q_refer_element(struct q_queue *queue, uintptr_t key, unsigned flags);

/* As q_refer_element(), but returns the item's data. */
VN_API void *q_refer(struct q_queue *queue, uintptr_t key, unsigned flags);

/*
 * Finds the first item of list `list` that matches `key`. Returns its element, or null when there
 * is none, the queue is null or the index out of range.
 */
VN_API struct q_element *q_refer_list_element(struct q_queue *queue, unsigned list, uintptr_t key);

/* As q_refer_list_element(), but returns the item's data. */
VN_API void *q_refer_list(struct q_queue *queue, unsigned list, uintptr_t key);

/* --- walking -------------------------------------------------------------------------------- */

/*
 * Calls work(queue, element or null, arg) for every slot in order, empty ones included. Returns all
 * results combined with |, or -1 when the queue or `work` is null. No result stops the walk.
 */
VN_API int q_work_queue(struct q_queue *queue, q_work_fn work, void *arg);

/*
 * Calls work(queue, data, arg) for every item of list `list`, front to back. Returns all results
 * combined with |, or -1 when the queue or `work` is null or the index out of range.
 */
VN_API int q_work_list(struct q_queue *queue, unsigned list, q_work_fn work, void *arg);

/* q_work_queue(), then q_work_list() for every list in order; their results combined with |. */
VN_API int q_work_all(struct q_queue *queue, q_work_fn work, void *arg);

/* The number of items in list `list`; 0 for a null queue or an index out of range. Counts them. */
VN_API unsigned q_listcount(struct q_queue *queue, unsigned list);

/* The number of occupied slots; 0 for a null queue. Looks at every slot. */
VN_API unsigned q_queuecount(struct q_queue *queue);

/* Calls dump(data, arg, label, element) for every occupied slot in order. */
VN_API void q_dump_queue(struct q_queue *queue, q_dump_queue_fn dump, void *arg);

/* Calls dump(data, arg, label) for every item of list `list`, front to back. */
VN_API void q_dump_list(struct q_queue *queue, unsigned list, q_dump_list_fn dump, void *arg);

/* --- deleting one item ---------------------------------------------------------------------- */

/*
 * Offers the occupied slots' items in order to select(data, select_arg) and those selected to the
 * release callback as release(data, release_arg), until that answers anything but Q_RELEASE_GO_ON.
 * With Q_RELEASE_FREE the element is freed and its slot emptied.
 * Returns the callback's last answer when it stopped the walk, 0 after the last slot, or -1 when
 * the queue, `select` or the release callback is null.
 */
VN_API int q_delete_queue(struct q_queue *queue, q_select_fn select, void *select_arg,
                          void *release_arg);

/*
 * The same for list `list`, front to back, except for the end: after the last item the result is
 * the release callback's last answer (Q_RELEASE_GO_ON), 0 only when it was not asked at all. This
 * tells "none selected" from "none given up". -1 also for an index out of range.
 */
VN_API int q_delete_list(struct q_queue *queue, unsigned list, q_select_fn select, void *select_arg,
                         void *release_arg);

/*
 * q_delete_queue(), and as long as the result is 0, q_delete_list() for lists 0, 1, ... Returns the
 * last result.
 */
VN_API int q_delete(struct q_queue *queue, q_select_fn select, void *select_arg, void *release_arg);

/* --- cleaning ------------------------------------------------------------------------------- */

/*
 * Asks the clean callback for every slot in order, empty ones included; unless it stops the walk,
 * its result is added to the count and the slot emptied, its element freed.
 * Returns the count; a negative result of the callback; -1 when the queue or the callback is null.
 */
VN_API int q_clean_queue(struct q_queue *queue, void *arg);

/*
 * Asks the clean callback for every item of list `list`, from the tail to the front; a positive
 * result is added to the count and the element freed, 0 keeps it.
 * Returns 0 after the last item (not the count: only an interrupted cleaning reports one); the
 * count so far when the callback answers Q_CLEAN_STOP; a negative result of the callback; -1 when
 * the queue or the callback is null or the index out of range.
 */
VN_API int q_clean_list(struct q_queue *queue, unsigned list, void *arg);

/*
 * q_clean_queue(), then q_clean_list() for lists 0, 1, ... Returns the sum of their results. Ends
 * early with the slots' result when that is negative or 2, with the sum before it when a list's
 * result is 2, and with a list's result when that is negative.
 */
VN_API int q_clean(struct q_queue *queue, void *arg);

VN_END_DECLS

#endif
