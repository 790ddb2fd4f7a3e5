#include "vnlib/check_lock.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <unordered_map>

#include "support/capture.h"
#include "vnlib/memcheck.h"

namespace {

using test::capture_fd;

const void *lock_number(size_t number)
{
    return reinterpret_cast<const void *>(0x1000 + number * 8);
}

std::string printed(const std::function<void()> &body)
{
    return capture_fd(1, body);
}

std::string table()
{
    return printed(check_lock_dump);
}

class CheckLock : public testing::Test {
protected:
    CheckLock() { EXPECT_EQ(check_lock_init(), 0); }
    ~CheckLock() override { check_lock_exit(); }
};

TEST_F(CheckLock, StartsEmpty)
{
    EXPECT_EQ(table(), "");
}

TEST_F(CheckLock, CountsTheLocksOfEachLocationNewestLocationFirst)
{
    EXPECT_EQ(printed([] {
                  check_lock_add("a.c", 12, lock_number(1), 0);
                  check_lock_add("b.c", 40, lock_number(2), 0);
                  check_lock_add("a.c", 12, lock_number(3), 0);
                  check_lock_add("a.c", 13, lock_number(4), 0);
              }),
              "");
    EXPECT_EQ(table(), "a.c:13 count=1\nb.c:40 count=1\na.c:12 count=2\n");
}

TEST_F(CheckLock, DropsALocationWithItsLastLock)
{
    check_lock_add("a.c", 1, lock_number(1), 0);
    check_lock_add("b.c", 2, lock_number(2), 0);
    check_lock_add("b.c", 2, lock_number(3), 0);
    check_lock_remove(lock_number(2));
    EXPECT_EQ(table(), "b.c:2 count=1\na.c:1 count=1\n");
    check_lock_remove(lock_number(3));
    EXPECT_EQ(table(), "a.c:1 count=1\n");
    check_lock_remove(lock_number(1));
    EXPECT_EQ(table(), "");
}

TEST_F(CheckLock, PutsALocationThatComesBackFirst)
{
    check_lock_add("a.c", 1, lock_number(1), 0);
    check_lock_add("b.c", 2, lock_number(2), 0);
    check_lock_remove(lock_number(1));
    check_lock_add("a.c", 1, lock_number(1), 0);
    EXPECT_EQ(table(), "a.c:1 count=1\nb.c:2 count=1\n");
}

TEST_F(CheckLock, DropsLocationsFromTheMiddleAndTheEnd)
{
    for (size_t i = 0; i < 5; ++i) check_lock_add("f.c", i, lock_number(i), 0);
    check_lock_remove(lock_number(2));
    EXPECT_EQ(table(), "f.c:4 count=1\nf.c:3 count=1\nf.c:1 count=1\nf.c:0 count=1\n");
    check_lock_remove(lock_number(0));
    check_lock_remove(lock_number(4));
    EXPECT_EQ(table(), "f.c:3 count=1\nf.c:1 count=1\n");
}

TEST_F(CheckLock, ReportsALockTakenTwiceAndCountsTheAttempt)
{
    check_lock_add("a.c", 5, lock_number(1), 0);
    EXPECT_EQ(printed([] { check_lock_add("a.c", 5, lock_number(1), 0); }),
              "Multiple references found a.c:5\n");
    EXPECT_EQ(table(), "a.c:5 count=2\n");
    EXPECT_EQ(printed([] { check_lock_remove(lock_number(1)); }), "");
    EXPECT_EQ(table(), "a.c:5 count=1\n");
    EXPECT_EQ(printed([] { check_lock_remove(lock_number(1)); }),
              "Could not find reference to remove\n");
    EXPECT_EQ(table(), "a.c:5 count=1\n");
}

TEST_F(CheckLock, ReportsTheLocationOfTheSecondTakerNotOfTheFirst)
{
    check_lock_add("a.c", 5, lock_number(1), 0);
    EXPECT_EQ(printed([] { check_lock_add("b.c", 6, lock_number(1), 0); }),
              "Multiple references found b.c:6\n");
    EXPECT_EQ(table(), "b.c:6 count=1\na.c:5 count=1\n");
    check_lock_remove(lock_number(1)); // of a.c:5, which recorded it
    EXPECT_EQ(table(), "b.c:6 count=1\n");
}

TEST_F(CheckLock, ReportsTheReleaseOfAnUnknownLock)
{
    check_lock_add("a.c", 5, lock_number(1), 0);
    EXPECT_EQ(printed([] { check_lock_remove(lock_number(2)); }),
              "Could not find reference to remove\n");
    EXPECT_EQ(table(), "a.c:5 count=1\n");
}

TEST_F(CheckLock, PrintsTheTableAtEveryTenthLockOfALocation)
{
    check_lock_add("other.c", 1, lock_number(1000), 0);
    for (size_t i = 1; i <= 30; ++i) {
        const std::string expected =
            i % 10 == 0 ? "a.c:7 count=" + std::to_string(i) + "\nother.c:1 count=1\n" : "";
        EXPECT_EQ(printed([i] { check_lock_add("a.c", 7, lock_number(i), 0); }), expected) << i;
    }
}

TEST_F(CheckLock, PrintsTheTableAgainWhenTheCountComesBackToTen)
{
    printed([] {
        for (size_t i = 1; i <= 10; ++i) check_lock_add("a.c", 7, lock_number(i), 0);
    });
    check_lock_remove(lock_number(3));
    EXPECT_EQ(printed([] { check_lock_add("a.c", 7, lock_number(3), 0); }), "a.c:7 count=10\n");
}

TEST_F(CheckLock, PrintsNoTableForATenthAttemptThatIsADuplicate)
{
    for (size_t i = 1; i <= 9; ++i) check_lock_add("a.c", 7, lock_number(i), 0);
    EXPECT_EQ(printed([] { check_lock_add("a.c", 7, lock_number(9), 0); }),
              "Multiple references found a.c:7\n");
    EXPECT_EQ(table(), "a.c:7 count=10\n");
}

TEST_F(CheckLock, KeepsItsOwnCopyOfTheFileName)
{
    char name[] = "short-lived.c";
    check_lock_add(name, 3, lock_number(1), 0);
    memset(name, 'x', strlen(name));
    EXPECT_EQ(table(), "short-lived.c:3 count=1\n");
}

TEST_F(CheckLock, TakesAMissingFileNameAndANullLock)
{
    check_lock_add(nullptr, 3, nullptr, 0);
    EXPECT_EQ(table(), "(null):3 count=1\n");
    EXPECT_EQ(printed([] { check_lock_remove(nullptr); }), "");
}

TEST_F(CheckLock, PrintsLargeLineNumbers)
{
    check_lock_add("a.c", SIZE_MAX, lock_number(1), 0);
    EXPECT_EQ(table(), "a.c:" + std::to_string(SIZE_MAX) + " count=1\n");
}

TEST_F(CheckLock, TakesLocationsWhoseTextsHashAlikeForOne)
{
    // A known pair of texts with the same 64-bit FNV-1a hash, 4EAC'0C95'5408'67E4h.
    check_lock_add("8yn0iYCKYHlIj4-BwPqk", 7, lock_number(1), 0);
    check_lock_add("GReLUrM4wMqfg9yzV3KQ", 7, lock_number(2), 0);
    EXPECT_EQ(table(), "8yn0iYCKYHlIj4-BwPqk:7 count=2\n");
    check_lock_remove(lock_number(1));
    EXPECT_EQ(table(), "8yn0iYCKYHlIj4-BwPqk:7 count=1\n");
}

TEST_F(CheckLock, StartsEmptyAgain)
{
    check_lock_add("a.c", 1, lock_number(1), 0);
    EXPECT_EQ(check_lock_init(), 0);
    EXPECT_EQ(table(), "");
    check_lock_exit();
    EXPECT_EQ(check_lock_init(), 0);
    EXPECT_EQ(printed([] { check_lock_remove(lock_number(1)); }),
              "Could not find reference to remove\n");
}

TEST_F(CheckLock, ForgetsEveryLockAtItsEnd)
{
    for (size_t round = 0; round < 20;
         ++round) { // few locks each time, in other places of the index
        const size_t first = round * 30;
        for (size_t i = first; i < first + 30; ++i) check_lock_add("a.c", i, lock_number(i), 0);
        check_lock_exit();
        EXPECT_EQ(check_lock_init(), 0);
        for (size_t i = first; i < first + 30; ++i) {
            EXPECT_EQ(printed([i] { check_lock_remove(lock_number(i)); }),
                      "Could not find reference to remove\n");
        }
    }
}

TEST_F(CheckLock, EndsQuietlyWithLocksAndDuplicatesHeld)
{
    EXPECT_EQ(printed([] {
                  check_lock_add("a.c", 1, lock_number(1), 0);
                  check_lock_add("a.c", 2, lock_number(2), 0);
                  check_lock_exit();
              }),
              "");
    EXPECT_EQ(table(), "");
    EXPECT_EQ(check_lock_init(), 0);
    printed([] {
        check_lock_add("a.c", 1, lock_number(1), 0);
        check_lock_add("a.c", 1, lock_number(1), 0);
    });
    check_lock_exit();
}

TEST(CheckLockStopped, IgnoresEveryCall)
{
    EXPECT_EQ(printed([] {
                  check_lock_add("a.c", 1, lock_number(1), 0);
                  check_lock_remove(lock_number(1));
                  check_lock_dump();
                  check_lock_exit();
                  check_lock_exit();
              }),
              "");
}

TEST(CheckLockUnderTheDebugger, ReleasesItsTextsAsTheyWereMade)
{
    const test::ChildResult result = test::run_in_child([] {
        vn_memcheck_start();
        check_lock_init();
        check_lock_add("a.c", 1, lock_number(1), 0);
        check_lock_remove(lock_number(1));
        check_lock_exit();
        vn_memcheck_stop();
    });
    EXPECT_TRUE(result.exited_with(0)) << result.out;
    EXPECT_EQ(result.out.find("check_lock_add"), std::string::npos) << result.out;
}

// The registry as two lists that are searched from their heads.
class PlainRegistry {
public:
    void add(const std::string &site, size_t lock)
    {
        auto found = find(site);
        if (found == sites_.end()) found = sites_.insert(sites_.begin(), {site, 0});
        ++found->second;
        if (locks_.count(lock) != 0) {
            text += "Multiple references found " + site + "\n";
            return;
        }
        locks_[lock] = site;
        if (found->second % 10 == 0) dump();
    }
    void remove(size_t lock)
    {
        const auto held = locks_.find(lock);
        if (held == locks_.end()) {
            text += "Could not find reference to remove\n";
            return;
        }
        const auto site = find(held->second);
        if (--site->second == 0) sites_.erase(site);
        locks_.erase(held);
    }
    void dump()
    {
        for (const auto &[site, count] : sites_)
            text += site + " count=" + std::to_string(count) + "\n";
    }
    std::string text;

private:
    using Sites = std::vector<std::pair<std::string, size_t>>;
    Sites::iterator find(const std::string &site)
    {
        auto at = sites_.begin();
        while (at != sites_.end() && at->first != site) ++at;
        return at;
    }
    Sites sites_;
    std::unordered_map<size_t, std::string> locks_;
};

TEST_F(CheckLock, PrintsWhatAPlainWalkOfTheListsPrints)
{
    PlainRegistry plain;
    const std::string text = printed([&plain] {
        std::mt19937 random(42);
        for (int step = 0; step < 20000; ++step) {
            const size_t lock = random() % 400, line = random() % 150;
            if (random() % 2 == 0) {
                check_lock_add("f.c", line, lock_number(lock), 0);
                plain.add("f.c:" + std::to_string(line), lock);
            } else {
                check_lock_remove(lock_number(lock));
                plain.remove(lock);
            }
        }
        check_lock_dump();
        plain.dump();
    });
    EXPECT_EQ(text, plain.text);
}

TEST_F(CheckLock, HoldsManyLocksFromManyPlaces)
{
    constexpr size_t kLocks = 20000; // quadratic searches would take minutes
    for (size_t i = 0; i < kLocks; ++i) check_lock_add("f.c", i, lock_number(i), 0);
    const std::string text = table();
    EXPECT_EQ(text.substr(0, text.find('\n')), "f.c:19999 count=1");
    for (size_t i = 0; i < kLocks; ++i) check_lock_remove(lock_number(i));
    EXPECT_EQ(table(), "");
}

TEST_F(CheckLock, ServesManyThreads)
{
    const std::string text = printed([] {
        std::vector<std::thread> threads;
        for (size_t t = 0; t < 4; ++t)
            threads.emplace_back([t] {
                for (size_t i = 0; i < 2000; ++i) {
                    const size_t lock = t * 10 + i % 9;
                    check_lock_add("thread.c", i % 50, lock_number(lock), 0);
                    check_lock_remove(lock_number(lock));
                }
            });
        for (std::thread &thread : threads) thread.join();
    });
    EXPECT_EQ(text, "");
    EXPECT_EQ(table(), "");
}

// ---- reference counts -------------------------------------------------------------------------

int callbacks = 0;

void count_callback(void *argument)
{
    ++callbacks;
    if (argument != nullptr) ++*static_cast<int *>(argument);
}

TEST(VnReference, RunsTheCallbackOnTheLastRelease)
{
    vn_reference reference;
    int argument = 0;
    callbacks = 0;
    ASSERT_EQ(vn_reference_prep(&reference, count_callback, &argument), 0);
    EXPECT_EQ(reference.count, 0);
    EXPECT_EQ(vn_reference_acquire(&reference), 0);
    EXPECT_EQ(vn_reference_acquire(&reference), 0);
    EXPECT_EQ(reference.count, 2);
    EXPECT_EQ(vn_reference_release(&reference), 1);
    EXPECT_EQ(callbacks, 0);
    EXPECT_EQ(vn_reference_release(&reference), 0);
    EXPECT_EQ(callbacks, 1);
    EXPECT_EQ(argument, 1);
}

TEST(VnReference, RefusesToReleaseWhatNobodyHolds)
{
    vn_reference reference;
    callbacks = 0;
    ASSERT_EQ(vn_reference_prep(&reference, count_callback, nullptr), 0);
    errno = 0;
    EXPECT_EQ(vn_reference_release(&reference), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(reference.count, 0);
    EXPECT_EQ(callbacks, 0);
    EXPECT_EQ(vn_reference_acquire(&reference), 0); // still usable
    EXPECT_EQ(vn_reference_release(&reference), 0);
    EXPECT_EQ(callbacks, 1);
}

TEST(VnReference, ClearsErrnoOnTheLastRelease)
{
    vn_reference reference;
    ASSERT_EQ(vn_reference_prep(&reference, nullptr, nullptr), 0);
    vn_reference_acquire(&reference);
    errno = EBUSY;
    EXPECT_EQ(vn_reference_release(&reference), 0);
    EXPECT_EQ(errno, 0);
}

TEST(VnReference, WorksWithoutACallback)
{
    vn_reference reference;
    ASSERT_EQ(vn_reference_prep(&reference, nullptr, nullptr), 0);
    vn_reference_acquire(&reference);
    EXPECT_EQ(vn_reference_release(&reference), 0);
}

TEST(VnReference, CanBePreparedAgain)
{
    vn_reference reference;
    callbacks = 0;
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(vn_reference_prep(&reference, count_callback, nullptr), 0);
        vn_reference_acquire(&reference);
        EXPECT_EQ(vn_reference_release(&reference), 0);
    }
    EXPECT_EQ(callbacks, 3);
}

TEST(VnReference, LetsTheCallbackReleaseTheObjectItself)
{
    auto *const reference = new vn_reference;
    ASSERT_EQ(
        vn_reference_prep(
            reference, [](void *object) { delete static_cast<vn_reference *>(object); }, reference),
        0);
    vn_reference_acquire(reference);
    EXPECT_EQ(vn_reference_release(reference), 0);
}

TEST(VnReference, RefusesANullReference)
{
    errno = 0;
    EXPECT_EQ(vn_reference_prep(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(vn_reference_acquire(nullptr), -1);
    EXPECT_EQ(vn_reference_release(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(VnReference, RunsTheCallbackOnceWhenManyThreadsRelease)
{
    struct Shared {
        vn_reference reference;
        int written_by_holders[4] = {};
        int seen = 0;
    } shared;
    for (int round = 0; round < 200; ++round) {
        ASSERT_EQ(vn_reference_prep(
                      &shared.reference,
                      [](void *object) { // sees what every holder wrote before letting go
                          auto *const all = static_cast<Shared *>(object);
                          for (const int value : all->written_by_holders) all->seen += value;
                      },
                      &shared),
                  0);
        shared.seen = 0;
        for (int i = 0; i < 4; ++i) vn_reference_acquire(&shared.reference);
        std::vector<std::thread> holders;
        for (int i = 0; i < 4; ++i)
            holders.emplace_back([&shared, i] {
                vn_reference_acquire(&shared.reference);
                vn_reference_release(&shared.reference);
                shared.written_by_holders[i] = 1;
                vn_reference_release(&shared.reference);
            });
        for (std::thread &holder : holders) holder.join();
        ASSERT_EQ(shared.seen, 4);
    }
}

} // namespace
