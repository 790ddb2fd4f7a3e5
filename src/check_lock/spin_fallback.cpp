// spin_fallback.cpp - spin locks for a C library whose headers declare them but which has none.
//
// The lock's word holds the address of a mutex: a thread that has to wait sleeps instead of
// spinning, which on one processor is the better choice anyway. The definitions are weak, so that
// those of a thread library that has them are taken where both meet.
#include <cerrno>
#include <cstdlib>
#include <pthread.h>

#include "vnlib/base.h"

#define VN_WEAK __attribute__((weak))

#ifdef VNLIB_SPIN_FALLBACK
#define VN_SPIN(operation) pthread_spin_##operation
using SpinLock = pthread_spinlock_t;
#else // the C library has spin locks; the tests build this file nevertheless, under other names
#define VN_SPIN(operation) mutex_spin_##operation
using SpinLock = void *;
#endif

namespace {

static_assert(sizeof(SpinLock) >= sizeof(pthread_mutex_t *), "the lock must hold an address");

using MutexWord __attribute__((may_alias)) = pthread_mutex_t *;

MutexWord &mutex_of(SpinLock *lock)
{
    return *const_cast<MutexWord *>(reinterpret_cast<volatile MutexWord *>(lock));
}

// A lock that could not be initialised, or was destroyed, holds no mutex.
int apply(int (*operation)(pthread_mutex_t *), SpinLock *lock)
{
    pthread_mutex_t *const mutex = mutex_of(lock);
    return mutex == nullptr ? EINVAL : operation(mutex);
}

} // namespace

extern "C" {

VN_API VN_WEAK int VN_SPIN(init)(SpinLock *lock, int)
{
    void *const mutex = calloc(1, sizeof(pthread_mutex_t));
    mutex_of(lock) = static_cast<pthread_mutex_t *>(mutex);
    return mutex == nullptr ? EAGAIN : pthread_mutex_init(mutex_of(lock), nullptr);
}

VN_API VN_WEAK int VN_SPIN(destroy)(SpinLock *lock)
{
    const int result = apply(pthread_mutex_destroy, lock);
    free(mutex_of(lock));
    mutex_of(lock) = nullptr;
    return result;
}

VN_API VN_WEAK int VN_SPIN(lock)(SpinLock *lock)
{
    return apply(pthread_mutex_lock, lock);
}

VN_API VN_WEAK int VN_SPIN(trylock)(SpinLock *lock)
{
    return apply(pthread_mutex_trylock, lock);
}

VN_API VN_WEAK int VN_SPIN(unlock)(SpinLock *lock)
{
    return apply(pthread_mutex_unlock, lock);
}
}
