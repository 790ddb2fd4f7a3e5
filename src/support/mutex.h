// mutex.h - a POSIX mutex whose holder is a scope, and the annotations that let clang check
// (-Wthread-safety) that data is touched only under the lock that guards it.
#pragma once

#include <pthread.h>

#if defined(__clang__)
#define VN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VN_THREAD_ANNOTATION(x)
#endif

#define VN_CAPABILITY(name) VN_THREAD_ANNOTATION(capability(name))
#define VN_SCOPED_CAPABILITY VN_THREAD_ANNOTATION(scoped_lockable)
#define VN_GUARDED_BY(mutex) VN_THREAD_ANNOTATION(guarded_by(mutex))
#define VN_PT_GUARDED_BY(mutex) VN_THREAD_ANNOTATION(pt_guarded_by(mutex))
#define VN_REQUIRES(...) VN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VN_ACQUIRE(...) VN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VN_RELEASE(...) VN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define VN_RETURN_CAPABILITY(mutex) VN_THREAD_ANNOTATION(lock_returned(mutex))
#define VN_EXCLUDES(...) VN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// For what the checker cannot follow; a comment there says how the locks go.
#define VN_NO_THREAD_ANALYSIS VN_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace vn {

// Resource: lives where the data it guards lives. The constructor is constexpr, so a mutex with
// static storage needs no start-up code.
class VN_CAPABILITY("mutex") Mutex {
public:
    constexpr Mutex() = default;
    ~Mutex() = default; // a POSIX mutex of static storage is never destroyed; see destroy()
    Mutex(const Mutex &) = delete;
    Mutex &operator=(const Mutex &) = delete;

    void lock() VN_ACQUIRE() { pthread_mutex_lock(&native_); }
    void unlock() VN_RELEASE() { pthread_mutex_unlock(&native_); }
    void destroy() { pthread_mutex_destroy(&native_); }

private:
    pthread_mutex_t native_ = PTHREAD_MUTEX_INITIALIZER;
};

class VN_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex &mutex) VN_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() VN_RELEASE() { mutex_.unlock(); }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

private:
    Mutex &mutex_;
};

} // namespace vn
