/*
 * check_lock.h - lock-use registry and reference counts
 *
 * Where the C library has no POSIX spin locks, the library also defines pthread_spin_init(),
 * pthread_spin_destroy(), pthread_spin_lock(), pthread_spin_trylock() and pthread_spin_unlock()
 * with their standard signatures, weakly and built on a mutex.
 */
#ifndef VNLIB_CHECK_LOCK_H
#define VNLIB_CHECK_LOCK_H

#include <pthread.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/*
 * POSIX's spin lock type. A strictly standard C compilation (-std=c99) makes glibc hide the name
 * from the program, though not from the library, so say there what the name stands for.
 */
#if defined(__GLIBC__) && !defined(__USE_XOPEN2K)
typedef volatile int vn_spinlock_t;
#else
typedef pthread_spinlock_t vn_spinlock_t;
#endif

/*
 * A reference count, embedded in the caller's object. The callback runs once, without a lock held,
 * when the last reference is released; it may release the object itself.
 *
 * The creator of an object prepares the count, which then stands at 0, and acquires a reference of
 * its own. After the last release the count must be prepared again before any other use. Acquiring
 * and releasing may happen in any thread that holds a reference.
 */
struct vn_reference {
    int count;
    vn_spinlock_t lock;
    void (*release)(void *); /* may be null */
    void *arg;
};

/* Returns 0, or -1 with errno set when `ref` is null or its lock cannot be initialised. */
VN_API int vn_reference_prep(struct vn_reference *ref, void (*release)(void *), void *arg);

/* Adds a reference. Returns 0, or -1 with errno EINVAL for a null `ref`. */
VN_API int vn_reference_acquire(struct vn_reference *ref);

/*
 * Gives a reference back. Returns 1 while others remain, and 0 when it was the last one: the
 * callback has run. Returns -1 with errno EPERM when there was none to give back (the callback does
 * not run), EINVAL for a null `ref`, or the error of destroying the lock.
 */
VN_API int vn_reference_release(struct vn_reference *ref);

/*
 * The registry: a debugging aid that lock wrappers drive. It keeps, for each source location, how
 * many locks it holds, and prints its findings on the C library's standard output stream. There is
 * one registry in a process; all calls may come from any thread. While it is not running, adding
 * and removing do nothing. Its cost does not grow with the number of locks held.
 */

/* Starts with an empty registry. Returns 0. */
VN_API int check_lock_init(void);

/*
 * Records that `lock` was taken at `file`:`line`. The lock is known by its address alone and never
 * touched; the file name is copied; `tag` is kept with a new location and not used.
 *
 * Prints "Multiple references found <file>:<line>" for a lock that is recorded already, and then
 * only raises the count of the location. When the count has become a multiple of ten, the table is
 * printed as by check_lock_dump(). Without memory nothing is recorded.
 */
VN_API void check_lock_add(const char *file, size_t line, const void *lock, uint32_t tag);

/*
 * Records that `lock` was released. Prints "Could not find reference to remove" for a lock that is
 * not recorded. A location whose count falls to 0 leaves the table.
 */
VN_API void check_lock_remove(const void *lock);

/* Prints "<file>:<line> count=<n>" for each location, the one that came last first. */
VN_API void check_lock_dump(void);

/* Ends the registry and releases all that it holds. */
VN_API void check_lock_exit(void);

VN_END_DECLS

#endif
