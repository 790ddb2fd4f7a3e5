// check_lock.cpp - lock-use registry and reference counts.
#include "vnlib/check_lock.h"

#include <cerrno>

extern "C" int vn_reference_prep(struct vn_reference *ref, void (*release)(void *), void *arg)
{
    ref->count = 0;
    ref->release = release;
    ref->arg = arg;
    const int result = pthread_spin_init(&ref->lock, PTHREAD_PROCESS_PRIVATE);
    if (result == 0) return 0;
    errno = result;
    return -1;
}
