// polite_mutex.h - a lock whose holder can see that others wait.
//
// The checker holds the registry for long stretches, and everybody else for an instant. It leaves
// as soon as somebody waits; therefore waiting awake for a moment is nearly always enough, and
// costs far less than being put to sleep and woken up. Who still waits then naps and tries again,
// so that nobody needs waking and giving the lock back is a single store.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>
#include <unistd.h>

#include "support/errno_guard.h"
#include "support/mutex.h"
#include "support/not_cancelled.h"

namespace vn::memcheck {

class VN_CAPABILITY("mutex") PoliteMutex {
public:
    void lock() VN_ACQUIRE()
    {
        if (!try_lock()) [[unlikely]]
            wait();
    }
    void unlock() VN_RELEASE()
    {
        if (!is_kept_.load(std::memory_order_relaxed))
            is_locked_.store(false, std::memory_order_release);
    }
    [[nodiscard]] bool wanted() const { return waiting_.load(std::memory_order_relaxed) != 0; }

    // From now on the lock stays with this thread, for which locking and unlocking do nothing.
    void keep() VN_REQUIRES(this)
    {
        keeper_ = pthread_self();
        is_kept_.store(true, std::memory_order_release);
    }

    // In the child of a fork, where the threads that wait do not exist.
    void forget_waiting() { waiting_.store(0, std::memory_order_relaxed); }

private:
    // Some microseconds, as long as the checker takes at least. Who gave up sooner and napped would
    // wake up together with the checker, which naps as long, and meet it again and again.
    static constexpr int kTries = 5000;

    bool try_lock()
    {
        return !is_locked_.load(std::memory_order_relaxed) &&
               !is_locked_.exchange(true, std::memory_order_acquire);
    }
    [[gnu::noinline]] void wait()
    {
        if (is_kept_.load(std::memory_order_acquire) && keeper_ == pthread_self()) return;
        const ErrnoGuard keep;
        const NotCancelled locked;
        waiting_.fetch_add(1, std::memory_order_relaxed);
        for (int tries = 0; !try_lock(); ++tries)
            if (tries >= kTries) usleep(1);
        waiting_.fetch_sub(1, std::memory_order_relaxed);
    }

    std::atomic<bool> is_locked_ = false;
    std::atomic<bool> is_kept_ = false;
    std::atomic<uint32_t> waiting_ = 0;
    pthread_t keeper_{}; // written once, before is_kept_
};

class VN_SCOPED_CAPABILITY PoliteLock {
public:
    explicit PoliteLock(PoliteMutex &mutex) VN_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~PoliteLock() VN_RELEASE() { mutex_.unlock(); }
    PoliteLock(const PoliteLock &) = delete;
    PoliteLock &operator=(const PoliteLock &) = delete;

private:
    PoliteMutex &mutex_;
};

} // namespace vn::memcheck
