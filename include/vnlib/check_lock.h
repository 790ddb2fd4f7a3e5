/*
 * check_lock.h - lock-use registry and reference counts
 */
#ifndef VNLIB_CHECK_LOCK_H
#define VNLIB_CHECK_LOCK_H

#include <pthread.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

struct vn_reference {
    int count;
    pthread_spinlock_t lock;
    void (*release)(void *);
    void *arg;
};

VN_API int vn_reference_prep(struct vn_reference *ref, void (*release)(void *), void *arg);
VN_API int vn_reference_acquire(struct vn_reference *ref);
VN_API int vn_reference_release(struct vn_reference *ref);

VN_API int check_lock_init(void);
VN_API void check_lock_add(const char *file, size_t line, const void *lock, uint32_t tag);
VN_API void check_lock_remove(const void *lock);
VN_API void check_lock_dump(void);
VN_API void check_lock_exit(void);

VN_END_DECLS

#endif
