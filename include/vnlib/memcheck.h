/*
 * memcheck.h - tracked allocation and the live memory debugger
 *
 * Every allocation of the library, and any of a program that wants it, goes through the calls here.
 * They name the allocator and the place in the source:
 *
 *     text = vn_memcheck_malloc(malloc, 100, "read_config", 57);
 *     text = vn_memcheck_realloc(text, 200, "read_config", 61);
 *     vn_memcheck_free(free, text, "config:80");
 *
 * The tracker is off until vn_memcheck_start(): the calls then go straight to the named allocator
 * or free function and cost one test more than it. With the tracker on,
 *   - each block lies between two marker words, which a thread checks all the time; the first
 *     damaged one ends the process with a message that names the block's site;
 *   - releasing or resizing an address that is no live block ends the process likewise;
 *   - a screen on standard output shows the sites with most live blocks, a count of allocations and
 *     the debug messages. See docs/memory-debugger.md for its layout.
 *
 * Rules for callers:
 *   - A block is released in the mode that made it. Start the tracker before the first tracked
 *     allocation of the process, after the process has become a daemon, and stop it, if at all, at
 *     the very end.
 *   - What a tracked call allocated, a tracked call releases; blocks for device transfer have their
 *     own pair of calls.
 *   - A site is a text that stays where it is as long as blocks are recorded under it: the tracker
 *     keeps the pointer. String literals are meant. By convention an allocation gives the name of
 *     its function (with the line beside it), a release "file:line".
 *   - With the tracker on a block starts four bytes after an address that the allocator chose, so
 *     it is aligned to four bytes, not to max_align_t.
 *
 * All calls may be made from any thread at any time, except that start and stop are for one thread.
 * They may be called again from within an allocator or a free function. On success errno is left
 * alone. The thread of the checker takes no signals. After fork the child tracks on, without a
 * checker.
 */
#ifndef VNLIB_MEMCHECK_H
#define VNLIB_MEMCHECK_H

#include <stdarg.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/* An allocator: returns `size` bytes, or null. malloc and vn_malloc are such. */
typedef void *(*vn_alloc_fn)(size_t size);

/* The release that belongs to it, as free and vn_free. */
typedef void (*vn_free_fn)(void *ptr);

/* Releases memory for device transfer; wants the length in bytes too, as munmap does. */
typedef int (*vn_dma_free_fn)(void *ptr, size_t length);

/*
 * Allocates `size` bytes, all zero, from the C library; never tracked by itself. The caller
 * releases the block with vn_free or free. Null with errno ENOMEM when there is no memory.
 */
VN_API void *vn_malloc(size_t size);

/* Releases a block of vn_malloc or of the C library; null is ignored. */
VN_API void vn_free(void *ptr);

/*
 * Allocates `size` bytes with `alloc` and records them under `site` and `line`.
 *
 * Tracker on: `alloc` is asked for size + 8 bytes, the marker 0xDEADBEAF (in the processor's byte
 * order) is stored in the first four and right behind the last byte of the caller's, and the
 * display counts one allocation more. Sites are told apart by their text. With a null site the
 * allocation is counted, but the block is neither recorded nor handed out: the result is null.
 *
 * Result: the caller's bytes, to be released with vn_memcheck_free; null when there is no memory
 * (nothing is recorded or counted then) or with a null site and the tracker on.
 */
VN_API void *vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);

/*
 * Releases a block of vn_memcheck_malloc or vn_memcheck_realloc with `release`, which must suit the
 * allocator that made it (the C library's, once the block was resized). The display counts one
 * allocation less.
 *
 * Tracker on: when `ptr` is no live block, and null is none, the process ends with exit(-1) and
 * "Could not find the allocation to free (<site>)" on the display.
 */
VN_API void vn_memcheck_free(vn_free_fn release, void *ptr, const char *site);

/*
 * Resizes a block to `size` bytes with the C library's realloc, whatever allocator made it; it may
 * move. Its record moves to this call's `site` and `line`; the allocation count stays as it is.
 *
 * A null `ptr` makes this vn_memcheck_malloc(vn_malloc, size, site, line). Else a zero `size` makes
 * it vn_memcheck_free(vn_free, ptr, site), and the result is null.
 *
 * Result: the block with its old contents up to the smaller size. Null when there is no memory: the
 * old block is then as it was. With the tracker on and a null site the block is gone and the result
 * null.
 *
 * Tracker on: when `ptr` is no live block the process ends with exit(-1) and
 * "Could not find the allocation to realloc (<site>:<line>)" on the display. A block for device
 * transfer has no markers that could be resized with it; the checker takes it for damaged.
 */
VN_API void *vn_memcheck_realloc(void *ptr, size_t size, const char *site, unsigned line);

/*
 * Allocates exactly `size` bytes for device transfer with `alloc` and records them under `site`:
 * without markers and without being counted among the allocations. With a null site the block is
 * handed out unrecorded, and vn_dma_free will not know it.
 *
 * Result: the block, to be released with vn_dma_free; null when there is no memory.
 */
VN_API void *vn_dmacheck_malloc(vn_alloc_fn alloc, size_t size, const char *site);

/*
 * Releases a block of vn_dmacheck_malloc: calls `release` with the block and `length` (bytes,
 * passed on unchecked) and returns its result. Tracker on: an unknown `ptr` ends the process as in
 * vn_memcheck_free.
 */
VN_API int vn_dma_free(vn_dma_free_fn release, void *ptr, size_t length, const char *site);

/*
 * Starts tracking, clears the screen and starts the checker thread. A second start begins with
 * fresh books: blocks recorded before are unknown to it. When the thread cannot be created, a line
 * on standard output says so, and blocks are tracked without being checked or shown.
 *
 * Result: 0, or -1 when there is no memory (the tracker is off then).
 */
VN_API int vn_memcheck_start(void);

/*
 * Draws the panel for the last time, stops tracking and waits for the checker thread. Live blocks
 * stay allocated, and must not be released any more: without the tracker nobody knows where they
 * start.
 *
 * Result: 0, or -1 when the tracker is not running.
 */
VN_API int vn_memcheck_stop(void);

/*
 * Replaces what stands on display line `line` by `text`, or only moves there and back when `text`
 * is null. Line -3 is the top row of the terminal, lines 0 to 29 are the panel, 34 to 44 the debug
 * pane. What the program has printed to stdout meanwhile is flushed right behind the text. Of a
 * text longer than 251 bytes the rest is not shown.
 *
 * Result: 0, or -1 when the tracker was never started (nothing is written then).
 */
VN_API int gotoline(int line, const char *text);

/*
 * Shows a formatted message of up to 255 bytes in the debug pane; a longer one is cut.
 *
 * The pane scrolls by as many lines as the format has newlines. A format that ends without one
 * leaves its line open, and the next message continues it. When the tracker was never started the
 * message goes to standard output as it is.
 *
 * memdbg_printf always returns 0.
 */
VN_API int memdbg_printf(const char *format, ...) VN_PRINTF(1, 2);
VN_API void memdbg_vprintf(const char *format, va_list args) VN_PRINTF(1, 0);

VN_END_DECLS

#endif
