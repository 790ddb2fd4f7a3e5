// memcheck_fault_test.cpp - the tracker without memory, without its thread, and on a difficult
// terminal; and, as without the thread nothing else draws, the exact bytes of everything it draws.
#include "vnlib/memcheck.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <random>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>
#include <utility>

#include "memcheck/registry.h"
#include "memcheck/ring.h"
#include "memcheck/screen.h"
#include "memcheck/walk.h"
#include "support/checked_child.h"
#include "support/fault_alloc.h"
#include "support/terminal.h"

using test::checked_child;
using test::ChildResult;
using test::run_in_child;
using test::Terminal;

extern "C" const char *__tsan_default_options();
extern "C" const char *__tsan_default_options()
{
    return "atexit_sleep_ms=0"; // many children here exit
}

namespace {

// What the library's system calls are to do, and what they were asked.
struct {
    bool record = false;
    std::vector<std::string> calls; // "write <bytes>", "fflush", "poll"
    size_t longest_write = SIZE_MAX;
    std::vector<int> write_errors; // the next writes fail with these
    int create_error = EAGAIN;     // of pthread_create; 0 lets it through
    std::function<void()> nap;     // what to do instead of sleeping
} sys;

void note(const std::string &call)
{
    if (sys.record) sys.calls.push_back(call);
}

} // namespace

extern "C" {
long __wrap_syscall(long number, ...);
int __real_fflush(FILE *stream);
int __wrap_fflush(FILE *stream);
int __real_poll(pollfd *fds, nfds_t count, int timeout);
int __wrap_poll(pollfd *fds, nfds_t count, int timeout);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument);
int __real_usleep(useconds_t duration);
int __wrap_usleep(useconds_t duration);
}

// The library makes one system call by its number.
long __wrap_syscall(long number, ...)
{
    if (number != SYS_write) abort();
    va_list args;
    va_start(args, number);
    const int fd = va_arg(args, int);
    const void *const bytes = va_arg(args, const void *);
    size_t count = va_arg(args, size_t);
    va_end(args);
    if (!sys.write_errors.empty()) {
        errno = sys.write_errors.front();
        sys.write_errors.erase(sys.write_errors.begin());
        return errno == 0 ? 0 : -1;
    }
    count = std::min(count, sys.longest_write);
    if (sys.record) note("write " + std::string(static_cast<const char *>(bytes), count));
    return write(fd, bytes, count);
}

int __wrap_fflush(FILE *stream)
{
    note("fflush");
    return __real_fflush(stream);
}

int __wrap_poll(pollfd *fds, nfds_t count, int timeout)
{
    if (!(count == 1 && fds->fd == 1)) return __real_poll(fds, count, timeout);
    EXPECT_EQ(fds->events, POLLOUT);
    note("poll");
    return 1;
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument)
{
    if (sys.create_error != 0) return sys.create_error;
    return __real_pthread_create(thread, attributes, body, argument);
}

// How long the checker works between two naps, and so keeps the registry at most, in seconds of its
// own processor time: what else runs on the machine does not count.
namespace {

struct {
    std::atomic<bool> record = false;
    std::atomic<unsigned> naps = 0;
    std::atomic<double> longest = 0;
} checker_work;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr double kLongestHold = 0.02; // everything takes longer
constexpr unsigned kManyBlocks = 100'000;
#else
constexpr double kLongestHold = 0.002;
constexpr unsigned kManyBlocks = 1'000'000;
#endif

const pthread_t main_thread = pthread_self();

double processor_time()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void note_nap(bool begins)
{
    thread_local double woke_up = 0;
    if (!begins)
        woke_up = processor_time();
    else if (checker_work.record &&
             checker_work.naps++ != 0) // the first ends what was not recorded
        checker_work.longest = std::max(checker_work.longest.load(), processor_time() - woke_up);
}

} // namespace

int __wrap_usleep(useconds_t duration)
{
    if (sys.nap) {
        sys.nap();
        return 0;
    }
    const bool is_checker = pthread_equal(pthread_self(), main_thread) == 0;
    if (is_checker) note_nap(true);
    const int result = __real_usleep(duration);
    if (is_checker) note_nap(false);
    return result;
}

namespace {

const std::string kStarted =
    "Staring memory debug\nvn_memory_start - unable to start vn memcheck 11\n";

// The bytes that `body` puts on the screen with the tracker on and no checker.
std::string drawn_by(const std::function<void()> &body)
{
    const ChildResult child = checked_child([&] {
        EXPECT_EQ(vn_memcheck_start(), 0);
        body();
    });
    EXPECT_TRUE(child.out.starts_with(kStarted)) << child.out;
    return child.out.substr(std::min(kStarted.size(), child.out.size()));
}

// A display line as it must be drawn.
std::string line(int number, const std::string &text)
{
    return "\x1b[H\x1b[" + std::to_string(number + 3) + "B\r\x1b[K" + text + "\x1b[" +
           std::to_string(45 - number) + "B\r";
}

std::string panel(const std::vector<std::string> &sites)
{
    std::string bytes = "\x1b[H" + line(-3, "=== Vornel Memory Debugger ===");
    for (size_t i = 0; i < 30; ++i)
        bytes += line(static_cast<int>(i), i < sites.size() ? sites[i] : "");
    return bytes + line(33, "------------------------------------DEBUG"
                            "------------------------------------");
}

std::string pane(const std::vector<std::string> &lines)
{
    std::string bytes;
    for (size_t i = 0; i < 11; ++i) bytes += line(34 + static_cast<int>(i), lines[i]);
    return bytes;
}

void *alloc(size_t size, const char *site)
{
    return vn_memcheck_malloc(malloc, size, site, 1);
}

} // namespace

// --- the bytes ---------------------------------------------------------------------------------

TEST(ScreenBytes, OfALine)
{
    EXPECT_EQ(drawn_by([] { EXPECT_EQ(gotoline(5, "text"), 0); }),
              "\x1b[H\x1b[8B\r\x1b[Ktext\x1b[40B\r");
    EXPECT_EQ(drawn_by([] { gotoline(-3, ""); }), "\x1b[H\x1b[0B\r\x1b[K\x1b[48B\r");
    EXPECT_EQ(drawn_by([] { gotoline(0, nullptr); }), "\x1b[H\x1b[3B\x1b[45B\r");
}

TEST(ScreenBytes, OfLinesFarAway)
{
    EXPECT_EQ(drawn_by([] { gotoline(50, "x"); }), "\x1b[H\x1b[53B\r\x1b[Kx\x1b[-5B\r");
    EXPECT_EQ(drawn_by([] { gotoline(-100, "x"); }), "\x1b[H\x1b[-97B\r\x1b[Kx\x1b[145B\r");
    EXPECT_EQ(drawn_by([] { gotoline(INT_MAX - 3, nullptr); }),
              "\x1b[H\x1b[2147483647B\x1b[-2147483599B\r");
    EXPECT_EQ(drawn_by([] { gotoline(INT_MIN, nullptr); }),
              "\x1b[H\x1b[-2147483645B\x1b[-2147483603B\r");
    EXPECT_EQ(drawn_by([] { gotoline(INT_MAX, nullptr); }),
              "\x1b[H\x1b[-2147483646B\x1b[-2147483602B\r");
}

TEST(ScreenBytes, OfTheLongestText)
{
    const std::string fits(251, 'x');
    EXPECT_EQ(drawn_by([&] { gotoline(1, fits.c_str()); }), line(1, fits));
    EXPECT_EQ(drawn_by([&] { gotoline(1, (fits + "y").c_str()); }), line(1, fits));
}

TEST(ScreenBytes, OfTheCountLine)
{
    EXPECT_EQ(drawn_by([] {
                  vn_memcheck_free(free, alloc(5, "f"), "t");
                  vn_memcheck_free(free, vn_dmacheck_malloc(malloc, 5, "f"), "t");
              }),
              line(-1, "Total Allocations: 00001") + line(-1, "Total Allocations: 00000") +
                  line(-1, "Total Allocations: -00001"));
}

// Its digits are turned one by one, but written anew when there are more or less of them.
TEST(ScreenBytes, OfTheCountLineAsTheFigureGrowsAndFalls)
{
    std::string expected;
    const ChildResult child = checked_child([] {
        vn::memcheck::CountLine far, around_zero;
        for (int i = 0; i < 100'003; ++i) far.add(1);
        for (int i = 0; i < 13; ++i) far.add(-1);
        for (int i = 0; i < 13; ++i) around_zero.add(-1);
        for (int i = 0; i < 26; ++i) around_zero.add(1);
    });
    int figure = 0;
    const auto expect_to = [&](int last) {
        const int step = last > figure ? 1 : -1;
        while (figure != last) {
            char text[64];
            snprintf(text, sizeof text, "Total Allocations: %.5d", figure += step);
            expected += line(-1, text);
        }
    };
    expect_to(100'003);
    expect_to(99'990);
    figure = 0;
    expect_to(-13);
    expect_to(13);
    EXPECT_TRUE(child.out == expected);
}

TEST(ScreenBytes, OfStop)
{
    EXPECT_EQ(drawn_by([] {
                  vn_dmacheck_malloc(malloc, 10, "b");
                  vn_dmacheck_malloc(malloc, 5, "b");
                  vn_dmacheck_malloc(malloc, 3, "a");
                  EXPECT_EQ(vn_memcheck_stop(), 0);
              }),
              line(0, "=============== MemDebug  Top ===============") +
                  panel({"Count 2 \tAve Size:7\t:b", "Count 1 \tAve Size:3\t:a"}) +
                  line(29, "============= MemDebug Complete ============="));
}

TEST(ScreenBytes, OfAFullPanel)
{
    std::vector<std::string> tags, lines;
    for (int i = 0; i < 31; ++i) tags.push_back("site" + std::to_string(i));
    for (int i = 0; i < 30; ++i) lines.push_back("Count 1 \tAve Size:8\t:site" + std::to_string(i));
    EXPECT_EQ(drawn_by([&] {
                  for (const std::string &tag : tags) vn_dmacheck_malloc(malloc, 8, tag.c_str());
                  vn_memcheck_stop();
              }),
              line(0, "=============== MemDebug  Top ===============") + panel(lines) +
                  line(29, "============= MemDebug Complete ============="));
}

TEST(ScreenBytes, OfTheDebugPane)
{
    EXPECT_EQ(drawn_by([] {
                  memdbg_printf("one");
                  memdbg_printf(" two\nthree\n");
              }),
              pane({"", "", "", "", "", "", "", "", "", "", "one"}) +
                  pane({"", "", "", "", "", "", "", "", "", "one two", "three"}));
}

TEST(ScreenBytes, OfTheLastWords)
{
    const ChildResult child = run_in_child([] {
        vn_memcheck_start();
        vn_memcheck_free(free, &sys, "where:1");
    });
    EXPECT_TRUE(child.exited_with(255));
    EXPECT_EQ(child.out, kStarted + line(-2, "Could not find the allocation to free (where:1)"));
}

// --- stdio and the terminal --------------------------------------------------------------------

TEST(ScreenWrites, ALineIsOneWrite)
{
    drawn_by([] {
        sys.record = true;
        gotoline(5, "text");
        gotoline(5, nullptr);
        sys.record = false;
        EXPECT_EQ(sys.calls, (std::vector<std::string>{"write " + line(5, "text"),
                                                       "write \x1b[H\x1b[8B\x1b[40B\r"}));
    });
}

TEST(ScreenWrites, WhatTheProgramPrintedIsFlushedBehindTheText)
{
    const auto print_and_draw = [](const char *text) {
        setvbuf(stdout, nullptr, _IOFBF, 4096);
        printf("printed");
        sys.record = true;
        gotoline(5, text);
        sys.record = false;
    };
    EXPECT_EQ(drawn_by([&] {
                  print_and_draw("text");
                  EXPECT_EQ(sys.calls, (std::vector<std::string>{"write \x1b[H\x1b[8B\r\x1b[Ktext",
                                                                 "fflush", "write \x1b[40B\r"}));
              }),
              "\x1b[H\x1b[8B\r\x1b[Ktextprinted\x1b[40B\r");
    EXPECT_EQ(drawn_by([&] { print_and_draw(nullptr); }), "\x1b[H\x1b[8B\x1b[40B\rprinted")
        << "without text nothing is flushed";
}

TEST(ScreenWrites, GoOnAfterShortAndInterruptedWrites)
{
    EXPECT_EQ(drawn_by([] {
                  sys.longest_write = 3;
                  sys.write_errors = {EINTR, EINTR};
                  gotoline(5, "some text");
              }),
              line(5, "some text"));
}

TEST(ScreenWrites, WaitForANonblockingTerminal)
{
    EXPECT_EQ(drawn_by([] {
                  sys.record = true;
                  sys.write_errors = {EAGAIN};
                  gotoline(5, "text");
                  EXPECT_EQ(sys.calls.front(), "poll");
              }),
              line(5, "text"));
}

TEST(ScreenWrites, GiveUpOnATerminalThatIsGone)
{
    EXPECT_EQ(drawn_by([] {
                  for (const int error : {EIO, EBADF, 0}) {
                      sys.write_errors = {error};
                      errno = EDOM;
                      EXPECT_EQ(gotoline(5, "text"), 0);
                      EXPECT_EQ(errno, EDOM);
                  }
              }),
              "");
}

// --- without memory ----------------------------------------------------------------------------

TEST(MemcheckFaults, VnMallocGivesNull)
{
    const fault::FailAllocations plan(1);
    EXPECT_EQ(vn_malloc(10), nullptr);
}

TEST(MemcheckFaults, StartFailsWithoutMemoryAndTracksNothing)
{
    checked_child([] {
        {
            const fault::FailAllocations plan(1);
            EXPECT_EQ(vn_memcheck_start(), -1);
        }
        EXPECT_EQ(gotoline(1, "x"), -1);
        EXPECT_EQ(vn_memcheck_stop(), -1);
        vn_memcheck_free(free, malloc(5), "f");
    });
}

TEST(MemcheckFaults, ASecondStartWithoutMemoryTurnsTheTrackerOff)
{
    checked_child([] {
        sys.create_error = 0;
        EXPECT_EQ(vn_memcheck_start(), 0);
        {
            const fault::FailAllocations plan(1);
            EXPECT_EQ(vn_memcheck_start(), -1);
        }
        EXPECT_EQ(vn_memcheck_stop(), -1);
        vn_memcheck_free(free, malloc(5), "f");
    });
}

TEST(MemcheckFaults, WithoutACheckerBlocksAreTrackedAllTheSame)
{
    drawn_by([] {
        auto *const block = static_cast<char *>(alloc(5, "f"));
        block[5] = 0; // nobody looks
        usleep(20000);
        vn_memcheck_free(free, block, "t");
        EXPECT_EQ(vn_memcheck_stop(), 0);
    });
}

TEST(MemcheckFaults, AnAllocationThatFailsAnywhereLeavesNothingBehind)
{
    const std::string bytes = drawn_by([] {
        {
            const fault::FailAllocations plan(2); // the record of the site
            EXPECT_EQ(alloc(5, "f"), nullptr);
        }
        size_t failures = fault::for_each_failing_allocation([] {
            if (void *const block = alloc(5, "f")) vn_memcheck_free(free, block, "t");
        });
        EXPECT_EQ(failures, 4u); // the record, the site with its run, and the block
        const auto allocate_for_device = [] {
            if (void *const block = vn_dmacheck_malloc(malloc, 5, "f"))
                vn_memcheck_free(free, block, "t");
        };
        failures = fault::for_each_failing_allocation(allocate_for_device);
        EXPECT_EQ(failures, 1u); // the block; the records of the last one were kept
        vn_memcheck_stop();
    });
    // One count up and one down for each of the two runs that succeeded.
    EXPECT_EQ(bytes, line(-1, "Total Allocations: 00001") + line(-1, "Total Allocations: 00000") +
                         line(-1, "Total Allocations: -00001") +
                         line(0, "=============== MemDebug  Top ===============") + panel({}) +
                         line(29, "============= MemDebug Complete ============="));
}

// Nobody could release what it makes, so it is not called before there is memory for the records.
TEST(MemcheckFaults, AnotherAllocatorIsNotCalledInVain)
{
    static size_t made = 0;
    const vn_alloc_fn other = [](size_t size) {
        void *const block = malloc(size);
        if (block != nullptr) ++made;
        return block;
    };
    checked_child([&] {
        vn_memcheck_start();
        size_t failures = fault::for_each_failing_allocation([&] {
            if (void *const block = vn_memcheck_malloc(other, 5, "f", 1))
                vn_memcheck_free(free, block, "t");
        });
        EXPECT_EQ(failures, 4u); // the record, the site with its run, and the block
        EXPECT_EQ(made, 1u);
        failures = fault::for_each_failing_allocation([&] {
            if (void *const block = vn_dmacheck_malloc(other, 5, "g"))
                vn_memcheck_free(free, block, "t");
        });
        EXPECT_EQ(failures, 4u);
        EXPECT_EQ(made, 2u);
    });
}

TEST(MemcheckFaults, AResizeThatFailsAnywhereChangesNothing)
{
    const std::string bytes = drawn_by([] {
        vn_dmacheck_malloc(malloc, 1, "front");
        auto *block = static_cast<char *>(alloc(4, "f"));
        strcpy(block, "abc");
        vn_dmacheck_malloc(malloc, 1, "back");
        const size_t failures = fault::for_each_failing_allocation([&] {
            void *const resized = vn_memcheck_realloc(block, 4000, "g", 2);
            if (resized != nullptr) block = static_cast<char *>(resized);
            EXPECT_STREQ(block, "abc");
        });
        EXPECT_EQ(failures, 3u); // the site, its run and the block
        {
            const fault::FailAllocations plan(1);
            EXPECT_EQ(vn_memcheck_realloc(block, 5000, "h", 2), nullptr);
        }
        vn_memcheck_stop();
    });
    EXPECT_TRUE(
        bytes.ends_with(panel({"Count 1 \tAve Size:1\t:front", "Count 1 \tAve Size:1\t:back",
                               "Count 1 \tAve Size:4000\t:g"}) +
                        line(29, "============= MemDebug Complete =============")));
}

TEST(MemcheckFaults, WithoutMemoryForTheIndexBlocksAreStillFound)
{
    checked_child([] {
        vn_memcheck_start();
        std::vector<void *> blocks;
        for (int i = 0; i < 2; ++i) blocks.push_back(vn_dmacheck_malloc(malloc, 8, "f"));
        size_t refused = 0;
        for (int i = 0; i < 2000; ++i) {
            // From now on a call makes two allocations; a third is for a table that wants to grow.
            const fault::FailAllocations plan(3, 1000);
            blocks.push_back(vn_dmacheck_malloc(malloc, 8, "f"));
            refused += plan.failed();
        }
        EXPECT_GT(refused, 0u);
        for (void *block : blocks)
            vn_dma_free([](void *ptr, size_t) { return free(ptr), 0; }, block, 8, "t");
    });
}

TEST(MemcheckFaults, StoppingWithoutACheckerJoinsNobody)
{
    checked_child([] {
        vn_memcheck_start();
        EXPECT_EQ(vn_memcheck_stop(), 0);
        EXPECT_EQ(vn_memcheck_stop(), -1);
        EXPECT_EQ(vn_memcheck_start(), 0);
    });
}

// --- the checker's way --------------------------------------------------------------------------

namespace {

using vn::memcheck::Block;
using vn::memcheck::Site;

// Three sites with one, two and three blocks, and a walk over them.
class WalkTest : public ::testing::Test {
protected:
    WalkTest()
    {
        for (size_t i = 0; i < 3; ++i) {
            make_empty(sites[i].blocks);
            sites[i].run = &runs[i];
            order.add(sites[i]);
            for (size_t extra = 0; extra < i; ++extra) order.raise(sites[i]);
            for (size_t j = 0; j <= i; ++j) link_after(sites[i].blocks, blocks[i][j]);
        }
        walk.begin();
    }

    // The next `most` blocks of the pass, or those left in it.
    std::vector<Block *> visit(size_t most)
    {
        std::vector<Block *> visited;
        Block *block = nullptr;
        while (visited.size() < most && walk.step(&block))
            if (block != nullptr) visited.push_back(block);
        return visited;
    }

    Site sites[3] = {};
    vn::memcheck::Run runs[3] = {};
    Block blocks[3][3] = {};
    vn::memcheck::SiteOrder order;
    vn::memcheck::Walk walk{order};
};

} // namespace

TEST_F(WalkTest, GoesFromTheQuietestSiteAndTheNewestBlock)
{
    EXPECT_EQ(visit(99), (std::vector{&blocks[0][0], &blocks[1][1], &blocks[1][0], &blocks[2][2],
                                      &blocks[2][1], &blocks[2][0]}));
    EXPECT_FALSE(walk.under_way());
}

TEST_F(WalkTest, ComesBackForASiteThatSlippedBehind)
{
    visit(3); // sites 0 and 1 are done
    walk.block_leaves(blocks[2][0]);
    unlink(blocks[2][0]);
    for (int i = 0; i < 3; ++i) order.raise(sites[1]);
    order.lower(sites[2]);
    order.lower(sites[2]); // one block on the count now: it stands before site 1
    EXPECT_EQ(visit(99), (std::vector{&blocks[2][2], &blocks[2][1]}));
    EXPECT_FALSE(walk.under_way());
}

TEST_F(WalkTest, FinishesASiteThatMovesUnderItsFeet)
{
    EXPECT_EQ(visit(2), (std::vector{&blocks[0][0], &blocks[1][1]}));
    for (int i = 0; i < 5; ++i) order.raise(sites[1]);
    EXPECT_EQ(visit(99), (std::vector{&blocks[1][0], &blocks[2][2], &blocks[2][1], &blocks[2][0]}));
}

TEST_F(WalkTest, GoesOnFromABlockAndASiteThatLeave)
{
    EXPECT_EQ(visit(1), std::vector{&blocks[0][0]});
    walk.block_leaves(blocks[1][1]);
    unlink(blocks[1][1]);
    order.lower(sites[1]);
    walk.site_leaves(sites[0]);
    order.lower(sites[0]);
    EXPECT_EQ(visit(99), (std::vector{&blocks[1][0], &blocks[2][2], &blocks[2][1], &blocks[2][0]}));
}

TEST_F(WalkTest, GoesPastTheNextBlockWhenThatLeaves)
{
    EXPECT_EQ(visit(4).back(), &blocks[2][2]);
    walk.block_leaves(blocks[2][1]);
    unlink(blocks[2][1]);
    order.lower(sites[2]);
    EXPECT_EQ(visit(99), std::vector{&blocks[2][0]});
}

TEST_F(WalkTest, LeavesANewSiteToTheNextPass)
{
    visit(1);
    vn::memcheck::Run run{};
    Site fresh{};
    fresh.run = &run;
    make_empty(fresh.blocks);
    order.add(fresh);
    walk.site_appears(fresh);
    EXPECT_EQ(visit(99).size(), 5u);
    walk.begin();
    EXPECT_EQ(visit(99).size(), 6u);
    EXPECT_FALSE(walk.under_way());
}

// --- the registry's lock ------------------------------------------------------------------------

TEST(RegistryLock, IsWaitedForWithoutBeingCancelledAndWithoutTouchingErrno)
{
    struct Shared {
        vn::memcheck::PoliteMutex mutex;
        int error = 0;
    } shared;
    shared.mutex.lock();
    EXPECT_FALSE(shared.mutex.wanted());
    pthread_t waiting{};
    sys.create_error = 0;
    const int created = pthread_create(
        &waiting, nullptr,
        [](void *argument) -> void * {
            auto &mine = *static_cast<Shared *>(argument);
            errno = ENOTTY;
            mine.mutex.lock();
            mine.error = errno;
            mine.mutex.unlock();
            return argument;
        },
        &shared);
    if (created != 0) {
        shared.mutex.unlock();
        FAIL() << strerror(created);
    }
    while (!shared.mutex.wanted()) usleep(100);
    usleep(2000); // it naps by now
    pthread_cancel(waiting);
    usleep(2000);
    EXPECT_EQ(shared.error, 0) << "the lock is held here";
    shared.mutex.unlock();
    void *result = nullptr;
    pthread_join(waiting, &result);
    EXPECT_EQ(result, &shared);
    EXPECT_EQ(shared.error, ENOTTY);
    EXPECT_FALSE(shared.mutex.wanted());
}

// --- the checker beside a program at work -------------------------------------------------------

namespace {

using vn::memcheck::Registry;

// Many blocks of many sites, which change place when all blocks of one go over to another.
class Crowd {
public:
    static constexpr size_t kSites = 40, kBlocksEach = 75;

    explicit Crowd(unsigned seed) : random_(seed)
    {
        for (size_t site = 0; site < kSites; ++site) {
            tags_[site] = "s" + std::to_string(site);
            for (size_t i = 0; i < kBlocksEach; ++i) add(site);
        }
    }
    // One that stays where it is.
    unsigned char *take_out_any()
    {
        std::vector<unsigned char *> &blocks = blocks_[any(kSites)];
        std::swap(blocks[any(blocks.size())], blocks.back());
        unsigned char *const taken = blocks.back();
        blocks.pop_back();
        return taken;
    }
    void move()
    {
        const size_t to = any(kSites);
        for (unsigned char *const block : std::exchange(blocks_[any(kSites)], {})) {
            free(registry.remove(block));
            add(to);
        }
    }
    Registry registry;

private:
    size_t any(size_t bound) { return random_() % bound; }
    void add(size_t site)
    {
        auto *const raw = static_cast<unsigned char *>(malloc(4 + 8 + 4));
        vn::memcheck::write_marker(raw);
        vn::memcheck::write_marker(raw + 4 + 8);
        blocks_[site].push_back(raw + 4);
        registry.add({raw, vn::memcheck::Kind::kGuarded, 8, 0}, tags_[site].c_str(), {});
    }

    std::mt19937 random_;
    std::array<std::string, kSites> tags_;
    std::array<std::vector<unsigned char *>, kSites> blocks_;
};

} // namespace

TEST(CheckerAtWork, FindsDamageInOnePassWhileBlocksComeAndGo)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        const ChildResult child = run_in_child([seed] {
            Crowd crowd(seed);
            crowd.take_out_any()[8] = 0;
            sys.nap = [&crowd] { // between two stretches of the pass
                for (int i = 0; i < 3; ++i) crowd.move();
            };
            crowd.registry.check_all();
            puts("not found");
        });
        EXPECT_TRUE(child.exited_with(255)) << "seed " << seed << ": " << child.err;
        EXPECT_NE(child.out.find("Size:8 PostMarker:deadbe00"), std::string::npos) << child.out;
    }
}

// An allocation waits for the checker at most as long as that keeps the registry, since it sleeps
// before it takes the registry again.
TEST(CheckerAtWork, NeverKeepsTheRegistryForLongWithAMillionBlocks)
{
    checked_child([] {
        alarm(100); // blocks take their time on a busy machine
        sys.create_error = 0;
        dup2(open("/dev/null", O_WRONLY), 1);
        EXPECT_EQ(vn_memcheck_start(), 0);
        for (unsigned i = 0; i < kManyBlocks; ++i) alloc(8, i % 2 == 0 ? "even" : "odd");
        checker_work.record = true;
        while (checker_work.naps < 2 * kManyBlocks / 512) usleep(1000);
        for (int i = 0; i < 10'000; ++i) vn_memcheck_free(free, alloc(8, "guest"), "t");
        EXPECT_LT(checker_work.longest, kLongestHold);
    });
}

TEST(CheckerAtWork, DrawsThePanelEvery1001Passes)
{
    static unsigned naps = 0;
    const ChildResult child = run_in_child([] {
        sys.create_error = 0;
        sys.nap = [] { // one a pass, as there is nothing to check
            if (++naps == 2002) _exit(0);
            dprintf(1, ".");
        };
        vn_memcheck_start();
        for (;;) pause();
    });
    EXPECT_TRUE(child.exited_with(0));
    const std::string passes = child.out.substr(std::min(child.out.find('.'), child.out.size()));
    EXPECT_EQ(passes, std::string(1000, '.') + panel({}) + std::string(1001, '.') + panel({}));
}
