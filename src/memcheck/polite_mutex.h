// polite_mutex.h - a mutex whose holder can see that others wait.
//
// The checker holds the registry for long stretches, and everybody else for an instant. It leaves
// as soon as somebody waits; therefore waiting awake for a moment is nearly always enough, and
// costs far less than being put to sleep and woken up.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/mutex.h"

namespace vn::memcheck {

class VN_CAPABILITY("mutex") PoliteMutex {
public:
    void lock() VN_ACQUIRE() VN_NO_THREAD_ANALYSIS // ends with mutex_ locked, one way or another
    {
        if (mutex_.try_lock()) return;
        waiting_.fetch_add(1, std::memory_order_relaxed);
        if (!lock_soon()) mutex_.lock();
        waiting_.fetch_sub(1, std::memory_order_relaxed);
    }
    void unlock() VN_RELEASE() { mutex_.unlock(); }
    [[nodiscard]] bool wanted() const { return waiting_.load(std::memory_order_relaxed) != 0; }
    void make_recursive() { mutex_.make_recursive(); }

private:
    static constexpr int kTries = 200; // some microseconds

    bool lock_soon() VN_NO_THREAD_ANALYSIS
    {
        for (int tries = 0; tries < kTries; ++tries)
            if (mutex_.try_lock()) return true;
        return false;
    }

    Mutex mutex_;
    std::atomic<uint32_t> waiting_ = 0;
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
