// The registry without memory, the reference count when its lock fails, and the spin locks for C
// libraries that have none, built here under names of their own.
#include "vnlib/check_lock.h"

#include <cerrno>
#include <functional>
#include <thread>

#include "support/capture.h"
#include "support/checked_child.h"
#include "support/fault_alloc.h"
#include "vnlib/memcheck.h"

extern "C" {
int mutex_spin_init(void **lock, int pshared);
int mutex_spin_destroy(void **lock);
int mutex_spin_lock(void **lock);
int mutex_spin_trylock(void **lock);
int mutex_spin_unlock(void **lock);

int __real_pthread_spin_init(pthread_spinlock_t *lock, int pshared);
int __real_pthread_spin_destroy(pthread_spinlock_t *lock);
int __real_pthread_spin_lock(pthread_spinlock_t *lock);
int __real_pthread_spin_unlock(pthread_spinlock_t *lock);
int __wrap_pthread_spin_init(pthread_spinlock_t *lock, int pshared);
int __wrap_pthread_spin_destroy(pthread_spinlock_t *lock);
int __wrap_pthread_spin_lock(pthread_spinlock_t *lock);
int __wrap_pthread_spin_unlock(pthread_spinlock_t *lock);
int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __real_pthread_mutex_destroy(pthread_mutex_t *mutex);
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes);
int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex);
void *__real_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
void __real_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site);
void *__wrap_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
void __wrap_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site);
}

namespace {

int spin_error = 0;
int mutex_error = 0;
int spin_locks_held = 0;
std::function<void()> behind_the_lock = [] {}; // what another thread does before we get the lock
std::function<int()> at_the_unlock = [] { return 0; };
std::vector<std::string> tracked;
void *tracked_block = nullptr;

const char locks[33] = {}; // that many addresses to tell apart
const void *const kLock = &locks[0];

std::string table()
{
    return test::capture_fd(1, check_lock_dump);
}

// The tracker draws its screen, so it runs in a child, whose output is kept.
void with_tracker(const std::function<void()> &body)
{
    test::checked_child([&] {
        ASSERT_EQ(vn_memcheck_start(), 0);
        check_lock_init();
        body();
        check_lock_exit();
        vn_memcheck_stop();
    });
}

TEST(CheckLockFaults, ChargesItsTextToAFixedSiteAndReleasesItTheSameWay)
{
    with_tracker([] {
        tracked.clear();
        check_lock_add("a.c", 12, kLock, 0);
        ASSERT_EQ(tracked.size(), 2u);
        EXPECT_EQ(tracked[0], "malloc 7 check_lock_add:110");
        EXPECT_EQ(tracked[1].substr(0, 16), "free check_lock:");
    });
}

TEST(CheckLockFaults, RecordsNothingWithoutMemoryForTheTextThatTheTrackerSees)
{
    with_tracker([] {
        {
            const fault::FailAllocations plan(1);
            check_lock_add("a.c", 12, kLock, 0);
            EXPECT_EQ(plan.failed(), 1u);
        }
        EXPECT_EQ(table(), "");
    });
}

TEST(CheckLockFaults, FindsALocationAgainWhenTheTrackerStarts)
{
    test::checked_child([] {
        check_lock_init();
        check_lock_add("a.c", 12, kLock, 0);
        ASSERT_EQ(vn_memcheck_start(), 0);
        check_lock_add("a.c", 12, &locks[1], 0);
        EXPECT_EQ(table(), "a.c:12 count=2\n");
        check_lock_exit();
        vn_memcheck_stop();
    });
}

TEST(CheckLockFaults, RecordsNothingWithoutMemory)
{
    check_lock_init();
    const std::string text = test::capture_fd(1, [] {
        const size_t failures =
            fault::for_each_failing_allocation([] { check_lock_add("a.c", 12, kLock, 0); });
        EXPECT_EQ(failures, 2u); // the location, the reference
    });
    EXPECT_EQ(text, "");
    EXPECT_EQ(table(), "a.c:12 count=1\n"); // of the attempt that succeeded
    check_lock_remove(kLock);
    EXPECT_EQ(table(), "");
    check_lock_exit();
}

TEST(CheckLockFaults, KeepsTheCountWhenALaterReferenceFails)
{
    check_lock_init();
    check_lock_add("a.c", 12, kLock, 0);
    {
        const fault::FailAllocations plan(1); // the location is there
        check_lock_add("a.c", 12, &locks[1], 0);
        EXPECT_EQ(plan.failed(), 1u);
    }
    EXPECT_EQ(table(), "a.c:12 count=1\n");
    check_lock_exit();
}

TEST(CheckLockFaults, WorksOnWithAnIndexThatCannotGrow)
{
    check_lock_init();
    for (size_t i = 0; i < 32; ++i) check_lock_add("a.c", i, &locks[i], 0);
    {
        const fault::FailAllocations plan(2); // the location's index wants to double
        check_lock_add("a.c", 32, &locks[32], 0);
        EXPECT_EQ(plan.failed(), 1u);
    }
    for (const char &lock : locks) check_lock_remove(&lock);
    EXPECT_EQ(table(), "");
    check_lock_exit();
}

TEST(VnReferenceFaults, ReportsALockThatCannotBeInitialised)
{
    vn_reference reference;
    spin_error = EAGAIN;
    errno = 0;
    EXPECT_EQ(vn_reference_prep(&reference, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EAGAIN);
    spin_error = 0;
}

TEST(VnReferenceFaults, DoesNotCallBackWhenTheLockCannotBeDestroyed)
{
    vn_reference reference;
    int called = 0;
    ASSERT_EQ(vn_reference_prep(
                  &reference, [](void *count) { ++*static_cast<int *>(count); }, &called),
              0);
    vn_reference_acquire(&reference);
    spin_error = EBUSY;
    errno = 0;
    EXPECT_EQ(vn_reference_release(&reference), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(called, 0);
    spin_error = 0;
    pthread_spin_destroy(&reference.lock);
}

TEST(VnReferenceFaults, CountsUnderItsLockAndCallsBackWithoutIt)
{
    vn_reference reference;
    int held = -1, count = -1;
    const auto note = [](void *now) { *static_cast<int *>(now) = spin_locks_held; };
    ASSERT_EQ(vn_reference_prep(&reference, note, &held), 0);
    at_the_unlock = [&] {
        count = reference.count;
        return 0;
    };
    behind_the_lock = [&] { reference.count += 2; };
    EXPECT_EQ(vn_reference_acquire(&reference), 0);
    EXPECT_EQ(count, 3);
    behind_the_lock = [&] { reference.count -= 1; };
    EXPECT_EQ(vn_reference_release(&reference), 1);
    EXPECT_EQ(count, 1);
    behind_the_lock = [&] { reference.count -= 1; }; // with ours, one too many
    EXPECT_EQ(vn_reference_release(&reference), -1);
    EXPECT_EQ(held, -1);
    behind_the_lock = [&] { reference.count += 1; };
    EXPECT_EQ(vn_reference_release(&reference), 0);
    EXPECT_EQ(held, 0);
    behind_the_lock = [] {};
    at_the_unlock = [] { return 0; };
}

TEST(VnReferenceFaults, AnswersAnAcquireWithTheResultOfTheUnlock)
{
    vn_reference reference;
    ASSERT_EQ(vn_reference_prep(&reference, nullptr, nullptr), 0);
    at_the_unlock = [] { return EPERM; };
    EXPECT_EQ(vn_reference_acquire(&reference), EPERM);
    at_the_unlock = [] { return 0; };
    EXPECT_EQ(vn_reference_release(&reference), 0);
}

TEST(MutexSpin, ExcludesOthersWhileHeld)
{
    void *lock = nullptr;
    ASSERT_EQ(mutex_spin_init(&lock, PTHREAD_PROCESS_PRIVATE), 0);
    EXPECT_NE(lock, nullptr);
    EXPECT_EQ(mutex_spin_lock(&lock), 0);
    EXPECT_EQ(mutex_spin_trylock(&lock), EBUSY);
    EXPECT_EQ(mutex_spin_unlock(&lock), 0);
    EXPECT_EQ(mutex_spin_trylock(&lock), 0);
    EXPECT_EQ(mutex_spin_unlock(&lock), 0);
    EXPECT_EQ(mutex_spin_destroy(&lock), 0);
    EXPECT_EQ(lock, nullptr);
}

TEST(MutexSpin, IgnoresTheSharingAskedFor)
{
    void *lock = nullptr;
    EXPECT_EQ(mutex_spin_init(&lock, PTHREAD_PROCESS_SHARED), 0);
    EXPECT_EQ(mutex_spin_destroy(&lock), 0);
}

TEST(MutexSpin, AnswersEagainAndHoldsNothingWithoutMemory)
{
    void *lock = &lock;
    {
        const fault::FailAllocations plan(1);
        EXPECT_EQ(mutex_spin_init(&lock, PTHREAD_PROCESS_PRIVATE), EAGAIN);
    }
    EXPECT_EQ(EAGAIN, 11);
    EXPECT_EQ(lock, nullptr);
    EXPECT_EQ(mutex_spin_lock(&lock), EINVAL);
    EXPECT_EQ(mutex_spin_trylock(&lock), EINVAL);
    EXPECT_EQ(mutex_spin_unlock(&lock), EINVAL);
    EXPECT_EQ(mutex_spin_destroy(&lock), EINVAL);
}

TEST(MutexSpin, AnswersWithTheResultsOfItsMutexAndReleasesItAllTheSame)
{
    void *lock = nullptr;
    mutex_error = ENOMEM;
    EXPECT_EQ(mutex_spin_init(&lock, PTHREAD_PROCESS_PRIVATE), ENOMEM);
    mutex_error = EBUSY;
    EXPECT_EQ(mutex_spin_destroy(&lock), EBUSY);
    EXPECT_EQ(lock, nullptr);
    mutex_error = 0;
}

TEST(MutexSpin, CountsRightUnderManyThreads)
{
    void *lock = nullptr;
    ASSERT_EQ(mutex_spin_init(&lock, PTHREAD_PROCESS_PRIVATE), 0);
    int counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5000; ++i) {
                mutex_spin_lock(&lock);
                ++counter;
                mutex_spin_unlock(&lock);
            }
        });
    for (std::thread &thread : threads) thread.join();
    EXPECT_EQ(counter, 20000);
    EXPECT_EQ(mutex_spin_destroy(&lock), 0);
}

} // namespace

int __wrap_pthread_spin_init(pthread_spinlock_t *lock, int pshared)
{
    return spin_error != 0 ? spin_error : __real_pthread_spin_init(lock, pshared);
}
int __wrap_pthread_spin_destroy(pthread_spinlock_t *lock)
{
    return spin_error != 0 ? spin_error : __real_pthread_spin_destroy(lock);
}
int __wrap_pthread_spin_lock(pthread_spinlock_t *lock)
{
    const int result = __real_pthread_spin_lock(lock);
    ++spin_locks_held;
    behind_the_lock();
    return result;
}
int __wrap_pthread_spin_unlock(pthread_spinlock_t *lock)
{
    --spin_locks_held;
    const int result = __real_pthread_spin_unlock(lock);
    const int answer = at_the_unlock();
    return result != 0 ? result : answer;
}
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attributes)
{
    return mutex_error != 0 ? mutex_error : __real_pthread_mutex_init(mutex, attributes);
}
int __wrap_pthread_mutex_destroy(pthread_mutex_t *mutex)
{
    return mutex_error != 0 ? mutex_error : __real_pthread_mutex_destroy(mutex);
}
void *__wrap_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line)
{
    tracked.push_back("malloc " + std::to_string(size) + " " + site + ":" + std::to_string(line));
    tracked_block = __real_vn_memcheck_malloc(alloc, size, site, line);
    return tracked_block;
}
void __wrap_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site)
{
    EXPECT_EQ(ptr, tracked_block);
    tracked.push_back(std::string("free ") + site);
    __real_vn_memcheck_free(release, ptr, site);
}
