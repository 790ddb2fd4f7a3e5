// memcheck_test.cpp - the tracker as its callers see it: blocks, the screen, the end of the
// process.
//
// Once started the tracker stays with its process, so everything that starts it runs in a child.
#include "vnlib/memcheck.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <list>
#include <memory>
#include <random>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include "support/checked_child.h"
#include "support/terminal.h"

using test::capture_fd;
using test::checked_child;
using test::ChildResult;
using test::run_in_child;
using test::Terminal;

// Sanitizers end a process that asks for too much; the C library gives it null, as is tested here.
extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}
extern "C" const char *__tsan_default_options();
extern "C" const char *__tsan_default_options()
{
    return "allocator_may_return_null=1 atexit_sleep_ms=0"; // many children here exit
}

namespace {

constexpr uint32_t kMarker = 0xDEADBEAF;

// Writes where nobody is meant to. Not instrumented: the checker reads there, that is the point.
__attribute__((no_sanitize("thread", "address"))) void damage(void *at, unsigned char value)
{
    *static_cast<volatile unsigned char *>(at) = value;
}

uint32_t word_at(const void *at)
{
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

void *alloc(size_t size, const char *site)
{
    return vn_memcheck_malloc(vn_malloc, size, site, 1);
}

void release(void *ptr)
{
    vn_memcheck_free(vn_free, ptr, "test:1");
}

// What the child that runs `body` with the tracker on leaves on the screen.
Terminal screen_after(const std::function<void()> &body)
{
    return Terminal(checked_child([&] {
                        EXPECT_EQ(vn_memcheck_start(), 0);
                        body();
                    }).out);
}

Terminal screen_after_stop(const std::function<void()> &body)
{
    return screen_after([&] {
        body();
        EXPECT_EQ(vn_memcheck_stop(), 0);
    });
}

// What the child prints that runs `body` with the tracker on and must not survive it.
ChildResult last_output(const std::function<void()> &body)
{
    return run_in_child([&] {
        vn_memcheck_start();
        body();
        for (;;) pause(); // the checker ends it
    });
}

// "s0", "s1", ...: must outlive the blocks recorded under them.
std::vector<std::string> numbered_tags(size_t count)
{
    std::vector<std::string> tags;
    for (size_t i = 0; i < count; ++i) tags.push_back("s" + std::to_string(i));
    return tags;
}

// An allocator that remembers its last call, and a free function that remembers its own.
struct {
    size_t asked;
    unsigned char *given;
    void *released;
    size_t released_length;
} seen;

void *spying_alloc(size_t size)
{
    seen.asked = size;
    seen.given = static_cast<unsigned char *>(malloc(size));
    memset(seen.given, 0x55, size);
    return seen.given;
}

void spying_free(void *ptr)
{
    seen.released = ptr;
    free(ptr);
}

int spying_dma_free(void *ptr, size_t length)
{
    seen.released = ptr;
    seen.released_length = length;
    free(ptr);
    return 42;
}

void *failing_alloc(size_t)
{
    return nullptr;
}

} // namespace

// --- the plain pair ----------------------------------------------------------------------------

TEST(VnMalloc, FillsTheBlockWithZeroes)
{
    for (const size_t size : {1u, 10u, 1000u, 100000u}) {
        auto *const block = static_cast<unsigned char *>(vn_malloc(size));
        ASSERT_NE(block, nullptr);
        for (size_t i = 0; i < size; ++i) ASSERT_EQ(block[i], 0) << i;
        memset(block, 0xFF, size);
        vn_free(block);
    }
}

TEST(VnMalloc, GivesNullWhenTheCLibraryFails)
{
    volatile size_t too_much = SIZE_MAX - 4096; // a 32-bit process can have the half
    EXPECT_EQ(vn_malloc(too_much), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

TEST(VnFree, IgnoresNull)
{
    vn_free(nullptr);
}

// --- never started -----------------------------------------------------------------------------

TEST(MemcheckOff, MallocPassesThroughToTheAllocator)
{
    auto *const zeroed = static_cast<unsigned char *>(vn_memcheck_malloc(vn_malloc, 10, "f", 1));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(zeroed[i], 0);
    vn_memcheck_free(vn_free, zeroed, "test:1");

    void *const block = vn_memcheck_malloc(spying_alloc, 10, nullptr, 1);
    EXPECT_EQ(seen.asked, 10u);
    EXPECT_EQ(block, seen.given);
    vn_memcheck_free(spying_free, block, nullptr);
    EXPECT_EQ(seen.released, block);
    EXPECT_EQ(vn_memcheck_malloc(failing_alloc, 10, "f", 1), nullptr);
}

TEST(MemcheckOff, ReallocOfNullGivesZeroes)
{
    auto *const block = static_cast<unsigned char *>(vn_memcheck_realloc(nullptr, 100, "f", 1));
    for (int i = 0; i < 100; ++i) EXPECT_EQ(block[i], 0);
    free(block);
}

TEST(MemcheckOff, ReallocToZeroReleasesAndGivesNull)
{
    EXPECT_EQ(vn_memcheck_realloc(malloc(10), 0, "f", 1), nullptr);
    void *const both = vn_memcheck_realloc(nullptr, 0, "f", 1); // null comes first: an allocation
    vn_free(both);
}

TEST(MemcheckOff, ReallocKeepsTheContents)
{
    void *block = malloc(4);
    memcpy(block, "abc", 4);
    block = vn_memcheck_realloc(block, 100000, "f", 1);
    EXPECT_STREQ(static_cast<char *>(block), "abc");
    free(block);
}

TEST(MemcheckOff, DeviceBlocksPassThrough)
{
    void *const block = vn_dmacheck_malloc(spying_alloc, 33, "f");
    EXPECT_EQ(seen.asked, 33u);
    EXPECT_EQ(block, seen.given);
    EXPECT_EQ(vn_dma_free(spying_dma_free, block, 77, "f"), 42);
    EXPECT_EQ(seen.released, block);
    EXPECT_EQ(seen.released_length, 77u);
}

TEST(MemcheckOff, GotolineRefusesAndWritesNothing)
{
    EXPECT_EQ(capture_fd(1, [] { EXPECT_EQ(gotoline(3, "text"), -1); }), "");
}

TEST(MemcheckOff, StopRefuses)
{
    EXPECT_EQ(capture_fd(1, [] { EXPECT_EQ(vn_memcheck_stop(), -1); }), "");
}

TEST(MemcheckOff, DebugMessagesArePlainText)
{
    EXPECT_EQ(capture_fd(1, [] { EXPECT_EQ(memdbg_printf("%d %s\nnext", 7, "100%s"), 0); }),
              "7 100%s\nnext");
}

TEST(MemcheckOff, DebugMessagesAreCutAt255Bytes)
{
    const std::string longest(255, 'x');
    EXPECT_EQ(capture_fd(1, [&] { memdbg_printf("%s", longest.c_str()); }), longest);
    EXPECT_EQ(capture_fd(1, [&] { memdbg_printf("%s|", longest.c_str()); }), longest);
    EXPECT_EQ(capture_fd(1, [&] { memdbg_printf("%10000d", 1); }), std::string(255, ' '));
}

// --- blocks ------------------------------------------------------------------------------------

TEST(GuardedBlock, LiesBetweenTwoMarkersWithoutPadding)
{
    screen_after([] {
        for (const size_t size : {size_t{5}, size_t{0}, size_t{1}, size_t{8}, size_t{4096}}) {
            auto *const block =
                static_cast<unsigned char *>(vn_memcheck_malloc(spying_alloc, size, "f", 1));
            EXPECT_EQ(seen.asked, size + 8);
            EXPECT_EQ(block, seen.given + 4);
            EXPECT_EQ(word_at(seen.given), kMarker);
            EXPECT_EQ(word_at(seen.given + 4 + size), kMarker);
            for (size_t i = 0; i < size; ++i) EXPECT_EQ(block[i], 0x55) << "caller's byte " << i;
            vn_memcheck_free(spying_free, block, "test:1");
            EXPECT_EQ(seen.released, seen.given) << "the raw block is released";
        }
    });
}

TEST(GuardedBlock, MarkersAreInTheProcessorsByteOrder)
{
    screen_after([] {
        auto *const block = static_cast<unsigned char *>(alloc(3, "f"));
        const uint32_t marker = kMarker;
        EXPECT_EQ(memcmp(block - 4, &marker, 4), 0);
        EXPECT_EQ(memcmp(block + 3, &marker, 4), 0);
    });
}

TEST(GuardedBlock, WithoutASiteIsCountedButNotHandedOut)
{
    const Terminal screen = screen_after_stop([] {
        EXPECT_EQ(vn_memcheck_malloc(spying_alloc, 5, nullptr, 1), nullptr);
        EXPECT_EQ(seen.asked, 13u);
        free(seen.given);
        EXPECT_EQ(vn_memcheck_malloc(vn_malloc, 5, nullptr, 1), nullptr);
        EXPECT_EQ(vn_memcheck_malloc(malloc, 5, nullptr, 1), nullptr);
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00003");
    EXPECT_EQ(screen.line(0), "");
}

TEST(GuardedBlock, TooLargeForItsMarkersIsRefused)
{
    const Terminal screen = screen_after_stop([] {
        seen.asked = 0;
        for (const size_t size : {SIZE_MAX, SIZE_MAX - 3, SIZE_MAX - 7}) {
            errno = 0;
            EXPECT_EQ(vn_memcheck_malloc(spying_alloc, size, "f", 1), nullptr);
            EXPECT_EQ(errno, ENOMEM);
        }
        EXPECT_EQ(seen.asked, 0u);
    });
    EXPECT_EQ(screen.line(0), "");
}

TEST(GuardedBlock, IsNeitherCountedNorListedWhenTheAllocatorFails)
{
    const Terminal screen = screen_after_stop([] {
        EXPECT_EQ(vn_memcheck_malloc(failing_alloc, 5, "f", 1), nullptr);
        EXPECT_EQ(vn_dmacheck_malloc(failing_alloc, 5, "f"), nullptr);
        release(alloc(1, "g"));
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00000");
    EXPECT_EQ(screen.line(0), "");
}

TEST(GuardedBlock, AnAllocatorMayUseTheTrackerItself)
{
    const Terminal screen = screen_after_stop([] {
        static void *inner;
        void *const outer = vn_memcheck_malloc(
            [](size_t size) {
                inner = alloc(7, "inner");
                return malloc(size);
            },
            5, "outer", 1);
        vn_memcheck_free(
            [](void *ptr) {
                release(inner);
                free(ptr);
            },
            outer, "test:1");
        inner = alloc(7, "inner");
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00001");
    EXPECT_EQ(screen.line(0), "Count 1         Ave Size:7      :inner");
}

TEST(TrackedCalls, LeaveErrnoAlone)
{
    screen_after([] {
        errno = EDOM;
        void *const block = vn_memcheck_realloc(alloc(5, "f"), 50, "g", 2);
        gotoline(20, "text");
        memdbg_printf("text\n");
        release(block);
        EXPECT_EQ(errno, EDOM);
    });
}

TEST(TrackedCalls, AreNoPlaceToBeCancelled)
{
    const Terminal screen = screen_after([] {
        setvbuf(stdout, nullptr, _IOFBF, 4096);
        std::thread cancelled([] {
            pthread_cancel(pthread_self());
            release(alloc(5, "f"));
            printf("printed");
            alloc(5, "f");
            pthread_testcancel();
        });
        cancelled.join();
        alloc(5, "f");
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00002");
}

// --- the count line ----------------------------------------------------------------------------

TEST(CountLine, CountsAllocationsAndReleases)
{
    const Terminal screen = screen_after([] {
        void *const block = alloc(5, "f");
        alloc(5, "f");
        alloc(5, "g");
        release(block);
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00002");
}

TEST(CountLine, IsDrawnWithEachChangeOnceTheCallersFunctionHasReturned)
{
    const ChildResult child = checked_child([] {
        vn_memcheck_start();
        const auto allocate = [](size_t size) {
            dprintf(1, "<allocate>");
            return malloc(size);
        };
        const auto give_back = [](void *ptr) {
            dprintf(1, "<give back>");
            free(ptr);
        };
        vn_memcheck_free(give_back, vn_memcheck_malloc(allocate, 5, "f", 1), "test:1");
    });
    size_t at = 0;
    for (const char *const piece : {"<allocate>", "\r\x1b[KTotal Allocations: 00001\x1b[46B\r",
                                    "<give back>", "\r\x1b[KTotal Allocations: 00000\x1b[46B\r"}) {
        at = child.out.find(piece, at);
        ASSERT_NE(at, std::string::npos) << piece;
    }
}

TEST(CountLine, IsLeftAloneByAResizeProper)
{
    const Terminal screen = screen_after([] { vn_memcheck_realloc(alloc(5, "f"), 50, "f", 2); });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00001");
}

TEST(CountLine, CountsTheResizesThatAreAllocationsOrReleases)
{
    const Terminal screen = screen_after([] {
        vn_memcheck_realloc(nullptr, 10, "f", 1);
        void *const block = vn_memcheck_realloc(nullptr, 10, "f", 1);
        EXPECT_EQ(vn_memcheck_realloc(block, 0, "f", 1), nullptr);
        EXPECT_NE(vn_memcheck_realloc(nullptr, 0, "f", 1), nullptr); // an allocation of nothing
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00002");
}

TEST(CountLine, KnowsNothingOfDeviceBlocks)
{
    const Terminal screen = screen_after([] {
        alloc(5, "f");
        vn_dmacheck_malloc(malloc, 5, "f");
        vn_dma_free(spying_dma_free, vn_dmacheck_malloc(malloc, 5, "f"), 5, "test:1");
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00001");
}

TEST(CountLine, GoesBelowZeroWhenDeviceBlocksAreReleasedAsOthers)
{
    const Terminal screen = screen_after([] { release(vn_dmacheck_malloc(malloc, 5, "f")); });
    EXPECT_EQ(screen.line(-1), "Total Allocations: -00001");
}

TEST(CountLine, HasFiveDigitsOrMore)
{
    const Terminal screen = screen_after([] {
        for (int i = 0; i < 100001; ++i) alloc(1, "f");
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 100001");
}

// --- resizing ----------------------------------------------------------------------------------

TEST(Realloc, MovesTheMarkersWithTheBlock)
{
    screen_after([] {
        auto *block = static_cast<unsigned char *>(vn_memcheck_malloc(malloc, 5, "f", 1));
        memcpy(block, "abcd", 5);
        for (const size_t size : {size_t{100000}, size_t{6}, size_t{5}, size_t{1}}) {
            block = static_cast<unsigned char *>(vn_memcheck_realloc(block, size, "f", 1));
            EXPECT_EQ(word_at(block - 4), kMarker);
            EXPECT_EQ(word_at(block + size), kMarker);
            EXPECT_EQ(block[0], 'a');
        }
        release(block);
    });
}

TEST(Realloc, OfNullFillsTheBlockWithZeroes)
{
    screen_after([] {
        auto *const block = static_cast<unsigned char *>(vn_memcheck_realloc(nullptr, 50, "f", 1));
        for (int i = 0; i < 50; ++i) EXPECT_EQ(block[i], 0);
        EXPECT_EQ(word_at(block + 50), kMarker);
    });
}

TEST(Realloc, ListsTheBlockUnderTheResizingSite)
{
    const Terminal screen = screen_after_stop([] {
        vn_memcheck_realloc(alloc(5, "maker"), 50, "resizer", 2);
        vn_memcheck_realloc(alloc(5, "keeper"), 60, "keeper", 2);
        alloc(70, "keeper");
    });
    EXPECT_EQ(screen.line(0), "Count 2         Ave Size:65     :keeper");
    EXPECT_EQ(screen.line(1), "Count 1         Ave Size:50     :resizer");
    EXPECT_EQ(screen.line(2), "");
}

TEST(Realloc, WithoutASiteTakesTheBlockOffTheBooks)
{
    const ChildResult child = last_output([] {
        void *const block = alloc(5, "f");
        if (vn_memcheck_realloc(block, 50, nullptr, 2) == nullptr) release(block);
    });
    EXPECT_TRUE(child.exited_with(-1));
    EXPECT_EQ(Terminal(child.out).line(-2), "Could not find the allocation to free (test:1)");
}

TEST(Realloc, LeavesTheBlockAsItWasWhenItCannotBeResized)
{
    const Terminal screen = screen_after_stop([] {
        alloc(1, "front");
        void *const block = alloc(5, "f");
        memcpy(block, "abcd", 5);
        for (const size_t size : {SIZE_MAX, SIZE_MAX / 2}) {
            errno = 0;
            EXPECT_EQ(vn_memcheck_realloc(block, size, "g", 1), nullptr);
            EXPECT_EQ(errno, ENOMEM);
        }
        EXPECT_STREQ(static_cast<char *>(block), "abcd");
        release(vn_memcheck_realloc(block, 5, "f", 1));
        alloc(5, "f");
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00002");
    EXPECT_EQ(screen.line(0), "Count 1         Ave Size:1      :front");
    EXPECT_EQ(screen.line(1), "Count 1         Ave Size:5      :f");
}

// --- device blocks -----------------------------------------------------------------------------

TEST(DeviceBlock, HasExactlyItsSizeAndNoMarkers)
{
    const Terminal screen = screen_after_stop([] {
        auto *const block =
            static_cast<unsigned char *>(vn_dmacheck_malloc(spying_alloc, 64, "dma"));
        EXPECT_EQ(seen.asked, 64u);
        EXPECT_EQ(block, seen.given);
        for (int i = 0; i < 64; ++i) EXPECT_EQ(block[i], 0x55);
        usleep(20000); // it has nothing to check
    });
    EXPECT_EQ(screen.line(0), "Count 1         Ave Size:64     :dma");
}

TEST(DeviceBlock, IsReleasedWithTheCallersLength)
{
    const Terminal screen = screen_after_stop([] {
        void *const block = vn_dmacheck_malloc(malloc, 64, "dma");
        EXPECT_EQ(vn_dma_free(spying_dma_free, block, 99, "test:1"), 42);
        EXPECT_EQ(seen.released, block);
        EXPECT_EQ(seen.released_length, 99u);
    });
    EXPECT_EQ(screen.line(0), "");
}

TEST(DeviceBlock, WithoutASiteIsHandedOutUnrecorded)
{
    const ChildResult child = last_output([] {
        void *const block = vn_dmacheck_malloc(spying_alloc, 64, nullptr);
        if (block == seen.given) vn_dma_free(spying_dma_free, block, 64, "dma:9");
    });
    EXPECT_TRUE(child.exited_with(-1));
    EXPECT_EQ(Terminal(child.out).line(-2), "Could not find the allocation to free (dma:9)");
}

TEST(DeviceBlock, PassesTheRawBlockOfAGuardedOneToItsFreeFunction)
{
    screen_after([] {
        void *const block = vn_memcheck_malloc(spying_alloc, 5, "f", 1);
        vn_dma_free(spying_dma_free, block, 5, "test:1");
        EXPECT_EQ(seen.released, seen.given);
    });
}

TEST(DeviceBlock, IsTakenForDamagedOnceResized)
{
    const ChildResult child = last_output([] {
        void *const block = vn_dmacheck_malloc(vn_malloc, 16, "dma");
        vn_memcheck_realloc(block, 20, "f", 3);
    });
    EXPECT_TRUE(child.exited_with(-1));
    EXPECT_EQ(Terminal(child.out).line(-2), "f LINE:3, Size:20 PreMarker:0");
}

// --- the end of the process --------------------------------------------------------------------

namespace {

struct Damage {
    const char *name;
    size_t size;
    ptrdiff_t at; // from the caller's first byte
    unsigned char value;
    const char *message;
};

std::string last_words_after(const Damage &damaged)
{
    const ChildResult child = last_output([&] {
        alloc(100, "bystander");
        auto *const block = static_cast<unsigned char *>(
            vn_memcheck_malloc(vn_malloc, damaged.size, "culprit", 321));
        damage(block + damaged.at, damaged.value);
    });
    EXPECT_TRUE(child.exited_with(255)) << child.status;
    return Terminal(child.out).line(-2);
}

} // namespace

TEST(Checker, EndsTheProcessAtADamagedMarker)
{
    const Damage kinds[] = {
        {"one byte past the end", 5, 5, 0x01, "culprit LINE:321, Size:5 PostMarker:deadbe01"},
        {"the last marker byte", 5, 8, 0x00, "culprit LINE:321, Size:5 PostMarker:adbeaf"},
        {"past an empty block", 0, 0, 0x00, "culprit LINE:321, Size:0 PostMarker:deadbe00"},
        {"one byte before the start", 5, -1, 0x12, "culprit LINE:321, Size:5 PreMarker:12adbeaf"},
        {"the first marker byte", 7, -4, 0xAA, "culprit LINE:321, Size:7 PreMarker:deadbeaa"},
    };
    for (const Damage &kind : kinds) EXPECT_EQ(last_words_after(kind), kind.message) << kind.name;
}

TEST(Checker, SeesDamageAfterAResize)
{
    const ChildResult child = last_output([] {
        auto *const block =
            static_cast<unsigned char *>(vn_memcheck_realloc(alloc(5, "f"), 6, "g", 77));
        damage(block + 6, 0);
    });
    EXPECT_TRUE(child.exited_with(255));
    EXPECT_EQ(Terminal(child.out).line(-2), "g LINE:77, Size:6 PostMarker:deadbe00");
}

TEST(Checker, ShowsTheLineAsASignedNumber)
{
    const ChildResult child = last_output([] {
        damage(static_cast<char *>(vn_memcheck_malloc(malloc, 1, "f", 4294967295u)) + 1, 0);
    });
    EXPECT_EQ(Terminal(child.out).line(-2), "f LINE:-1, Size:1 PostMarker:deadbe00");
}

#if SIZE_MAX > UINT32_MAX
TEST(Checker, FindsDamageBehindABlockWhoseSizeTheLineCannotShow)
{
    const ChildResult child = last_output([] {
        const size_t size = size_t{5} << 30;
        const auto map = [](size_t length) {
            return mmap(nullptr, length, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        };
        damage(static_cast<char *>(vn_memcheck_malloc(map, size, "f", 1)) + size, 0);
    });
    EXPECT_EQ(Terminal(child.out).line(-2), "f LINE:1, Size:1073741824 PostMarker:deadbe00");
}
#endif

TEST(Checker, CutsATagThatDoesNotFitTheLine)
{
    const std::string tag(1000, 't');
    const ChildResult child =
        last_output([&] { damage(static_cast<char *>(alloc(1, tag.c_str())) + 1, 0); });
    EXPECT_TRUE(child.exited_with(255));
    EXPECT_EQ(Terminal(child.out).line(-2), tag.substr(0, 251));
}

TEST(Checker, FindsDamageAmongManyBlocksAndSites)
{
    const std::vector<std::string> tags = numbered_tags(3000);
    const ChildResult child = last_output([&tags] {
        std::vector<char *> blocks;
        for (size_t i = 0; i < 9000; ++i)
            blocks.push_back(static_cast<char *>(alloc(10, tags[i % tags.size()].c_str())));
        usleep(20000);
        damage(blocks[4567] + 10, 0);
    });
    EXPECT_TRUE(child.exited_with(255)) << child.status;
    EXPECT_EQ(Terminal(child.out).line(-2), "s1567 LINE:1, Size:10 PostMarker:deadbe00");
}

TEST(Checker, FindsDamageWhileAllSitesAreOnTheMove)
{
    // Sites change places all the time, so that some slip behind the checker's back in every pass.
    const std::vector<std::string> tags = numbered_tags(2000);
    const ChildResult child = last_output([&tags] {
        std::vector<void *> blocks;
        for (const std::string &tag : tags) blocks.push_back(alloc(10, tag.c_str()));
        std::thread mover([&] {
            for (size_t i = 0;; i = (i + 7) % 1000) {
                blocks[i] = vn_memcheck_realloc(blocks[i], 10 + i % 50, tags[i].c_str(), 1);
                release(alloc(5, tags[i + 1].c_str()));
            }
        });
        usleep(50000);
        damage(static_cast<char *>(blocks[1999]) + 10, 0);
        for (;;) pause();
    });
    EXPECT_TRUE(child.exited_with(255)) << child.status;
    EXPECT_EQ(Terminal(child.out).line(-2), "s1999 LINE:1, Size:10 PostMarker:deadbe00");
}

TEST(Checker, LetsWhatRunsOnExitReleaseItsBlocksAndStopTheTracker)
{
    static void *kept;
    const ChildResult child = last_output([] {
        kept = alloc(5, "kept");
        atexit([] {
            release(kept);
            vn_memcheck_stop();
            write(1, "done", 4);
        });
        damage(static_cast<char *>(alloc(1, "f")) + 1, 0);
    });
    EXPECT_TRUE(child.exited_with(255)) << child.status;
    EXPECT_TRUE(child.out.ends_with("done"));
}

TEST(Checker, DoesNotTakeTheProgramsSignals)
{
    checked_child([] {
        vn_memcheck_start();
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        kill(getpid(), SIGTERM); // any thread with SIGTERM unblocked would end the process
        int signal = 0;
        EXPECT_EQ(sigwait(&set, &signal), 0);
        EXPECT_EQ(signal, SIGTERM);
    });
}

TEST(UnknownPointer, EndsTheProcessOnASecondRelease)
{
    const ChildResult child = last_output([] {
        void *const block = alloc(5, "f");
        vn_memcheck_free(vn_free, block, "first:1");
        vn_memcheck_free(vn_free, block, "second:2");
    });
    EXPECT_TRUE(child.exited_with(255));
    EXPECT_EQ(Terminal(child.out).line(-2), "Could not find the allocation to free (second:2)");
}

TEST(UnknownPointer, EndsTheProcessForEveryCallThatLooksForIt)
{
    const std::pair<std::function<void()>, const char *> calls[] = {
        {[] { vn_memcheck_free(vn_free, nullptr, "log:1"); },
         "Could not find the allocation to free (log:1)"},
        {[] { vn_memcheck_free(vn_free, &seen, nullptr); },
         "Could not find the allocation to free ((null))"},
        {[] { vn_dma_free(spying_dma_free, &seen, 1, "dma:2"); },
         "Could not find the allocation to free (dma:2)"},
        {[] { vn_memcheck_realloc(&seen, 1, "grow", 4000000000u); },
         "Could not find the allocation to realloc (grow:4000000000)"},
        {[] { vn_memcheck_realloc(&seen, SIZE_MAX, nullptr, 2); },
         "Could not find the allocation to realloc ((null):2)"},
        {[] { vn_memcheck_realloc(&seen, 0, "shrink", 2); },
         "Could not find the allocation to free (shrink)"},
        {[] { vn_memcheck_free(vn_free, static_cast<char *>(alloc(5, "f")) - 4, "raw:1"); },
         "Could not find the allocation to free (raw:1)"},
    };
    for (const auto &[call, message] : calls) {
        const ChildResult child = last_output(call);
        EXPECT_TRUE(child.exited_with(255)) << message;
        EXPECT_EQ(Terminal(child.out).line(-2), message);
    }
}

TEST(UnknownPointer, StaysOnTheScreenHoweverLongTheExitTakes)
{
    const ChildResult child = last_output([] {
        atexit([] { usleep(500000); }); // several panels' time
        release(&seen);
    });
    EXPECT_EQ(Terminal(child.out).line(-2), "Could not find the allocation to free (test:1)");
}

TEST(UnknownPointer, EndsTheProcessForABlockFromBeforeTheStart)
{
    const ChildResult child = run_in_child([] {
        void *const block = alloc(5, "f");
        vn_memcheck_start();
        release(block);
    });
    EXPECT_TRUE(child.exited_with(255));
    EXPECT_EQ(Terminal(child.out).line(-2), "Could not find the allocation to free (test:1)");
}

TEST(UnknownPointer, EndsTheProcessForABlockFromBeforeASecondStart)
{
    const ChildResult child = last_output([] {
        void *const block = alloc(5, "f");
        vn_memcheck_start();
        release(block);
    });
    EXPECT_TRUE(child.exited_with(255));
    EXPECT_EQ(Terminal(child.out).line(-2), "Could not find the allocation to free (test:1)");
}

// --- the panel ---------------------------------------------------------------------------------

TEST(TopPanel, ShowsOneLineForEachTagText)
{
    const Terminal screen = screen_after_stop([] {
        static const char copy[] = "site";
        alloc(10, "site");
        vn_memcheck_malloc(malloc, 15, copy, 99);
    });
    EXPECT_EQ(screen.line(-3), "=== Vornel Memory Debugger ===");
    EXPECT_EQ(screen.line(0), "Count 2         Ave Size:12     :site");
    EXPECT_EQ(screen.line(1), "");
    EXPECT_EQ(screen.line(33),
              "------------------------------------DEBUG------------------------------------");
}

TEST(TopPanel, FindsASiteByItsTextWhereverThatIs)
{
    const Terminal screen = screen_after_stop([] {
        static const std::vector<std::string> texts(1000, "site"); // each at an address of its own
        std::vector<void *> blocks;
        for (const std::string &text : texts) blocks.push_back(alloc(1, text.c_str()));
        for (void *const block : blocks) release(block); // the site leaves, and is not found again
        for (const std::string &text : texts) alloc(2, text.c_str());
        alloc(3, "other");
    });
    EXPECT_EQ(screen.line(0), "Count 1000      Ave Size:2      :site");
    EXPECT_EQ(screen.line(1), "Count 1         Ave Size:3      :other");
    EXPECT_EQ(screen.line(2), "");
}

TEST(TopPanel, TellsTagsWithTheSameHashApart)
{
    const Terminal screen = screen_after_stop([] { // equal in 32 bits of FNV-1a
        alloc(1, "costarring");
        for (int i = 0; i < 2; ++i) alloc(2, "liquid");
        for (int i = 0; i < 2; ++i) alloc(3, "costarring");
    });
    EXPECT_EQ(screen.line(0), "Count 3         Ave Size:2      :costarring");
    EXPECT_EQ(screen.line(1), "Count 2         Ave Size:2      :liquid");
    EXPECT_EQ(screen.line(2), "");
}

TEST(TopPanel, DropsASiteWithItsLastBlock)
{
    const Terminal screen = screen_after_stop([] {
        alloc(1, "stays");
        release(alloc(1, "goes"));
        release(alloc(1, "goes"));
    });
    EXPECT_EQ(screen.line(0), "Count 1         Ave Size:1      :stays");
    EXPECT_EQ(screen.line(1), "");
}

TEST(TopPanel, ShowsTheBusiestSiteFirstAndTheOldestFirstAmongSinglesOnly)
{
    const Terminal screen = screen_after_stop([] {
        for (const char *site : {"a", "b", "c", "d", "b", "c"}) alloc(1, site);
    });
    // a and d were never re-sorted: the newest stands in front, so last on the display. c gained
    // its second block after b did and so stopped before it.
    EXPECT_EQ(screen.line(0).back(), 'b');
    EXPECT_EQ(screen.line(1).back(), 'c');
    EXPECT_EQ(screen.line(2).back(), 'a');
    EXPECT_EQ(screen.line(3).back(), 'd');
}

TEST(TopPanel, CutsATagThatDoesNotFitTheLine)
{
    const std::string tag(400, 't');
    const Terminal screen = screen_after_stop([&] { alloc(1, tag.c_str()); });
    EXPECT_EQ(screen.line(0).substr(0, 33), "Count 1         Ave Size:1      :");
    EXPECT_EQ(screen.line(0).size(), 33 + 251 - strlen("Count 1 \tAve Size:1\t:"));
}

TEST(TopPanel, CountsBytesIn32Bits)
{
    const Terminal screen = screen_after_stop([] {
        static char nowhere;
        const auto pretend = [](size_t) -> void * { return &nowhere; };
        vn_dmacheck_malloc(pretend, 0xFFFFFFFFu, "dma");
        vn_dmacheck_malloc(pretend, 5, "dma");
    });
    EXPECT_EQ(screen.line(0), "Count 2         Ave Size:2      :dma");
}

TEST(TopPanel, IsRefreshedByTheChecker)
{
    checked_child([] {
        FILE *const file = tmpfile();
        dup2(fileno(file), 1);
        vn_memcheck_start();
        alloc(8, "refreshed");
        std::string seen_so_far(1 << 20, '\0');
        bool shown = false;
        for (int tries = 0; !shown && tries < 1000; ++tries) {
            usleep(10000);
            const ssize_t got = pread(fileno(file), seen_so_far.data(), seen_so_far.size(), 0);
            const Terminal screen(seen_so_far.substr(0, static_cast<size_t>(got)));
            shown = screen.line(0) == "Count 1         Ave Size:8      :refreshed";
        }
        EXPECT_TRUE(shown);
    });
}

// The order of the sites, literally as one would write it without an index: a linked list, walked
// from its front, in which a site with fewer blocks than its predecessor is moved before it.
namespace {

class LiteralOrder {
public:
    struct Site {
        std::string tag;
        int count;
        uint32_t bytes;
    };

    void add(const std::string &tag, uint32_t size)
    {
        for (Site &site : sites_) {
            if (site.tag != tag) continue;
            ++site.count;
            site.bytes += size;
            sort_again();
            return;
        }
        sites_.push_front({tag, 1, size});
    }

    void remove(const std::string &tag, uint32_t size)
    {
        for (Site &site : sites_) {
            if (site.tag != tag) continue;
            --site.count;
            site.bytes -= size;
            break;
        }
        sort_again();
    }

    [[nodiscard]] std::vector<std::string> panel() const
    {
        std::vector<std::string> lines;
        for (auto site = sites_.rbegin(); site != sites_.rend() && lines.size() < 30; ++site)
            lines.push_back("Count " + std::to_string(site->count) + " \tAve Size:" +
                            std::to_string(site->bytes / static_cast<uint32_t>(site->count)) +
                            "\t:" + site->tag);
        return lines;
    }

private:
    void sort_again()
    {
        for (auto site = sites_.begin(); site != sites_.end();) {
            const bool first = site == sites_.begin();
            if (site->count < (first ? 0 : std::prev(site)->count)) {
                if (site->count == 0) {
                    sites_.erase(site);
                    return;
                }
                sites_.splice(std::prev(site), sites_, site);
                site = sites_.begin();
            } else if (site->count == 0) {
                site = sites_.erase(site);
            } else {
                ++site;
            }
        }
    }

    std::list<Site> sites_;
};

struct Operation {
    enum { kAllocate, kAllocateDma, kRelease, kResize } what;
    size_t tag;   // of allocating and resizing
    size_t block; // released or resized: its place among the live ones
    uint32_t size;
};

struct Live {
    void *ptr;
    size_t tag;
    uint32_t size;
    bool dma;
};

unsigned below(std::mt19937 &random, size_t limit)
{
    return static_cast<unsigned>(random() % limit);
}

std::vector<Operation> random_operations(std::mt19937 &random, size_t tags, size_t count)
{
    std::vector<Operation> operations;
    std::vector<bool> live_is_dma;
    const unsigned growth = 30 + below(random, 50);
    while (operations.size() < count) {
        const size_t tag = below(random, tags),
                     block = below(random, std::max<size_t>(1, live_is_dma.size()));
        const uint32_t size = below(random, 300) + 1;
        const unsigned dice = below(random, 100);
        if (dice < growth || live_is_dma.empty()) {
            const bool dma = below(random, 8) == 0;
            operations.push_back(
                {dma ? Operation::kAllocateDma : Operation::kAllocate, tag, 0, size});
            live_is_dma.push_back(dma);
        } else if (dice % 3 == 0 && !live_is_dma[block]) {
            operations.push_back({Operation::kResize, tag, block, size});
        } else {
            operations.push_back({Operation::kRelease, 0, block, 0});
            live_is_dma.erase(live_is_dma.begin() + static_cast<ptrdiff_t>(block));
        }
    }
    return operations;
}

// The same operations on the model and, with `real`, on the library.
std::vector<std::string> play(const std::vector<Operation> &operations,
                              const std::vector<std::string> &tags, bool real)
{
    LiteralOrder order;
    std::vector<Live> live;
    for (const Operation &next : operations) {
        const char *const tag = tags[next.tag].c_str();
        const bool dma = next.what == Operation::kAllocateDma;
        if (next.what == Operation::kAllocate || dma) {
            void *ptr = nullptr;
            if (real)
                ptr = dma ? vn_dmacheck_malloc(malloc, next.size, tag) : alloc(next.size, tag);
            live.push_back({ptr, next.tag, next.size, dma});
            order.add(tag, next.size);
            continue;
        }
        Live &block = live[next.block];
        order.remove(tags[block.tag], block.size);
        if (next.what == Operation::kResize) {
            if (real) block.ptr = vn_memcheck_realloc(block.ptr, next.size, tag, 2);
            block.tag = next.tag;
            block.size = next.size;
            order.add(tag, next.size);
            continue;
        }
        if (real && block.dma) vn_dma_free(spying_dma_free, block.ptr, block.size, "t");
        if (real && !block.dma) release(block.ptr);
        live.erase(live.begin() + static_cast<ptrdiff_t>(next.block));
    }
    return order.panel();
}

// The panel that the last stop drew, before its closing line covers the thirtieth site.
std::vector<std::string> panel_in(const std::string &bytes)
{
    std::vector<std::string> lines;
    size_t at = bytes.rfind("=== Vornel Memory Debugger ===");
    while (lines.size() < 30) {
        at = bytes.find("\r\x1b[K", at) + 4;
        const std::string text = bytes.substr(at, bytes.find('\x1b', at) - at);
        if (text.empty() || text.starts_with("-----")) break;
        lines.push_back(text);
    }
    return lines;
}

} // namespace

TEST(TopPanel, KeepsTheOrderOfTheStepwiseWalkThroughRandomHistories)
{
    constexpr unsigned kHistories = 150;
    std::mt19937 random(20240229);
    for (unsigned history = 0; history < kHistories; ++history) {
        const size_t tag_count = std::array<size_t, 4>{3, 8, 20, 60}[history % 4];
        const std::vector<std::string> tags = numbered_tags(tag_count);
        const auto operations = random_operations(random, tag_count, 1 + below(random, 400));
        const ChildResult child = checked_child([&] {
            vn_memcheck_start();
            play(operations, tags, true);
            vn_memcheck_stop();
        });
        ASSERT_EQ(panel_in(child.out), play(operations, tags, false)) << "history " << history;
    }
}

// --- starting and stopping ---------------------------------------------------------------------

TEST(Start, AnnouncesItselfAndClearsTheScreen)
{
    const ChildResult child = checked_child([] {
        EXPECT_EQ(vn_memcheck_start(), 0);
        usleep(100000);
        EXPECT_EQ(vn_memcheck_stop(), 0);
    });
    EXPECT_TRUE(child.out.starts_with("Staring memory debug\n\x1b[2J\x1b[H\x1b[H\x1b[3B\x1b[45B\r"))
        << child.out;
}

TEST(Start, ASecondTimeBeginsFreshBooks)
{
    const Terminal screen = screen_after_stop([] {
        alloc(5, "first life");
        memdbg_printf("first life\n");
        EXPECT_EQ(vn_memcheck_start(), 0);
        alloc(5, "second life");
        memdbg_printf("\n");
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00001");
    EXPECT_EQ(screen.line(0), "Count 1         Ave Size:5      :second life");
    EXPECT_EQ(screen.line(43), "");
}

TEST(Start, ASecondTimeGoesOnCheckingTheFirstBlocks)
{
    const ChildResult child = last_output([] {
        auto *const block = static_cast<char *>(alloc(5, "first life"));
        vn_memcheck_start();
        damage(block + 5, 0);
    });
    EXPECT_TRUE(child.exited_with(255));
    EXPECT_EQ(Terminal(child.out).line(-2), "first life LINE:1, Size:5 PostMarker:deadbe00");
}

TEST(Stop, DrawsItsHeadersAroundThePanel)
{
    const Terminal empty = screen_after_stop([] {});
    EXPECT_EQ(empty.line(-3), "=== Vornel Memory Debugger ===");
    for (int line = 0; line < 29; ++line) EXPECT_EQ(empty.line(line), "") << line;
    EXPECT_EQ(empty.line(29), "============= MemDebug Complete =============");

    const ChildResult child = checked_child([] {
        vn_memcheck_start();
        vn_memcheck_stop();
    });
    const size_t top = child.out.find(
        "\x1b[H\x1b[3B\r\x1b[K=============== MemDebug  Top ===============\x1b[45B\r"
        "\x1b[H\x1b[H\x1b[0B\r\x1b[K=== Vornel Memory Debugger ===\x1b[48B\r");
    EXPECT_NE(top, std::string::npos) << "the first header, then the panel";
    EXPECT_TRUE(child.out.ends_with(
        "\x1b[H\x1b[36B\r\x1b[K"
        "------------------------------------DEBUG------------------------------------\x1b[12B\r"
        "\x1b[H\x1b[32B\r\x1b[K============= MemDebug Complete =============\x1b[16B\r"));
}

TEST(Stop, ShowsThePanelInPlaceOfTheFirstHeader)
{
    const std::vector<std::string> tags = numbered_tags(40);
    const Terminal screen = screen_after_stop([&tags] {
        for (size_t i = 0; i < tags.size(); ++i) alloc(i, tags[i].c_str());
    });
    EXPECT_EQ(screen.line(0), "Count 1         Ave Size:0      :s0");
    EXPECT_EQ(screen.line(28), "Count 1         Ave Size:28     :s28");
    EXPECT_EQ(screen.line(29), "============= MemDebug Complete =============");
    EXPECT_EQ(screen.line(30), "");
}

TEST(Stop, EndsTrackingAndChecking)
{
    screen_after([] {
        auto *const block = static_cast<char *>(alloc(5, "f"));
        EXPECT_EQ(vn_memcheck_stop(), 0);
        damage(block + 5, 0);
        usleep(20000);
        vn_memcheck_malloc(spying_alloc, 10, "f", 1);
        EXPECT_EQ(seen.asked, 10u);
        vn_memcheck_free(spying_free, seen.given, "f");
        void *const device = vn_dmacheck_malloc(malloc, 5, "f");
        EXPECT_EQ(vn_dma_free(spying_dma_free, device, 5, "f"), 42);
        free(vn_memcheck_realloc(malloc(5), 10, "f", 1));
    });
}

TEST(Stop, IsRefusedASecondTime)
{
    screen_after_stop([] {
        EXPECT_EQ(vn_memcheck_stop(), 0);
        EXPECT_EQ(vn_memcheck_stop(), -1);
        EXPECT_EQ(vn_memcheck_start(), 0);
    });
}

TEST(Stop, MayComeWhileOtherThreadsAllocate)
{
    screen_after([] {
        std::atomic<bool> go_on = true;
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([&] {
                while (go_on) vn_memcheck_malloc(malloc, 3, "worker", 1);
            });
        usleep(5000);
        EXPECT_EQ(vn_memcheck_stop(), 0);
        go_on = false;
        for (std::thread &thread : threads) thread.join();
        _exit(0); // blocks from after the stop are on nobody's books
    });
}

TEST(Fork, LeavesTheChildAWorkingTracker)
{
    checked_child([] {
        vn_memcheck_start();
        std::vector<void *> blocks;
        for (int i = 0; i < 2000; ++i) blocks.push_back(alloc(5, "f")); // keeps the checker busy
        for (int round = 0; round < 20; ++round) {
            checked_child([&] {
                release(blocks[0]);
                release(vn_memcheck_realloc(alloc(5, "f"), 50, "g", 1));
                memdbg_printf("child\n");
                EXPECT_EQ(vn_memcheck_stop(), 0);
            });
            release(alloc(5, "f"));
        }
    });
}

// --- gotoline ----------------------------------------------------------------------------------

TEST(Gotoline, PutsTextOnItsLineAndParksTheCursor)
{
    const Terminal screen = screen_after([] {
        usleep(20000);
        EXPECT_EQ(gotoline(31, "old and longer"), 0);
        EXPECT_EQ(gotoline(31, "new"), 0);
        EXPECT_EQ(gotoline(32, "100%s\tof %d"), 0);
        EXPECT_EQ(gotoline(12, nullptr), 0);
    });
    EXPECT_EQ(screen.line(31), "new");
    EXPECT_EQ(screen.line(32), "100%s   of %d");
    EXPECT_EQ(screen.cursor_row(), 48u);
    EXPECT_EQ(screen.cursor_column(), 0u);
    EXPECT_TRUE(screen.understood_everything());
}

// --- the debug pane ----------------------------------------------------------------------------

namespace {

using Pane = std::vector<std::string>;

// The pane's eleven lines after `body`, without the empty ones above the first text.
Pane pane_after(const std::function<void()> &body)
{
    const Terminal screen = screen_after(body);
    Pane pane;
    for (int line = 34; line <= 44; ++line)
        if (!pane.empty() || !screen.line(line).empty()) pane.push_back(screen.line(line));
    return pane;
}

} // namespace

TEST(DebugPane, ScrollsUpLineByLine)
{
    EXPECT_EQ(pane_after([] {
                  EXPECT_EQ(memdbg_printf("one %d\n", 1), 0);
                  memdbg_printf("two\n");
                  memdbg_printf("three\n");
              }),
              (Pane{"one 1", "two", "three"}));
}

TEST(DebugPane, KeepsElevenLines)
{
    const Pane pane = pane_after([] {
        for (int i = 1; i <= 20; ++i) memdbg_printf("%d\n", i);
    });
    EXPECT_EQ(pane, (Pane{"10", "11", "12", "13", "14", "15", "16", "17", "18", "19", "20"}));
}

TEST(DebugPane, ContinuesAnOpenLine)
{
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("before\n");
                  memdbg_printf("one, ");
                  memdbg_printf("two, ");
                  memdbg_printf("three\n");
                  memdbg_printf("next\n");
              }),
              (Pane{"before", "one, two, three", "next"}));
}

TEST(DebugPane, PlacesTheLinesOfOneMessageBelowEachOther)
{
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("a\n");
                  memdbg_printf("b\nc\nd\n");
                  memdbg_printf("e\nf");
                  memdbg_printf("g\nh\n");
              }),
              (Pane{"a", "b", "c", "d", "e", "fg", "h"}));
}

TEST(DebugPane, CountsTheNewlinesOfTheFormatNotOfTheText)
{
    // The line is left open by the format, whatever the text ends with.
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("%s", "one\n");
                  memdbg_printf("more\n");
              }),
              (Pane{"onemore"}));
}

TEST(DebugPane, MakesRoomForNewlinesOfTheArguments)
{
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("before\n");
                  memdbg_printf("%s\n", "a\nb\nc");
                  memdbg_printf("after\n");
              }),
              (Pane{"before", "a", "b", "c", "after"}));
}

TEST(DebugPane, SkipsEmptyPieces)
{
    // Three lines scroll in, two are placed, and the bottom one keeps its old text.
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("old\n");
                  memdbg_printf("a\n\nb\n");
              }),
              (Pane{"old", "a", "b", "old"}));
}

TEST(DebugPane, TakesAnEmptyMessageForOneEmptyLine)
{
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("old\n");
                  memdbg_printf("\n");
                  memdbg_printf("%s", "");
                  memdbg_printf("x\n");
              }),
              (Pane{"old", "", "x"}));
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("1\n");
                  memdbg_printf("2\n");
                  memdbg_printf("\n\n"); // one piece for two lines: the second keeps its text
              }),
              (Pane{"1", "2", "", "2"}));
}

TEST(DebugPane, CutsAMessageAt255Bytes)
{
    const Pane pane = pane_after([] { memdbg_printf("%s\n", std::string(300, 'x').c_str()); });
    EXPECT_EQ(pane, Pane{std::string(251, 'x')}); // and a screen line at 251
}

TEST(DebugPane, DropsAContinuationThatDoesNotFit)
{
    const Pane pane = pane_after([] {
        memdbg_printf("%s", std::string(200, 'x').c_str());
        memdbg_printf("%s", std::string(56, 'y').c_str()); // 256 in all: too long
        memdbg_printf("%s", std::string(55, 'z').c_str()); // 255: fits
        memdbg_printf("\n");
    });
    EXPECT_EQ(pane, Pane{std::string(200, 'x') + std::string(51, 'z')});
}

TEST(DebugPane, PutsTheNextPieceInPlaceOfADroppedContinuation)
{
    // The open line scrolls up by one to make room; what it leaves at the bottom is not replaced,
    // as one piece less than expected is placed.
    const std::string open(240, 'x');
    const Pane pane = pane_after([&] {
        memdbg_printf("%s", open.c_str());
        memdbg_printf("%s\nsecond\n", std::string(20, 'y').c_str());
    });
    EXPECT_EQ(pane, (Pane{"second", open}));
}

TEST(DebugPane, ShowsElevenLinesOfOneMessage)
{
    EXPECT_EQ(pane_after([] { memdbg_printf("1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n"); }),
              (Pane{"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"}));
    // Ten lines and the end of an open one scroll ten; the eleven of a new one do not scroll.
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("open ");
                  memdbg_printf("1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n");
              }),
              (Pane{"open 1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"}));
}

TEST(DebugPane, ShowsTheLastElevenLinesOfALongerMessage)
{
    const Pane last = {"3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13"};
    EXPECT_EQ(pane_after([] { memdbg_printf("1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n"); }),
              last);
    EXPECT_EQ(pane_after([] { memdbg_printf("1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13"); }), last);
    EXPECT_EQ(pane_after([] {
                  memdbg_printf("open");
                  memdbg_printf("1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n");
              }),
              last);
}

TEST(DebugPane, StartsAMessageThatIsTooTallOnTheTopLineWhateverIsOpen)
{
    EXPECT_EQ(pane_after([] {
                  for (int i = 0; i < 11; ++i) memdbg_printf("old\n");
                  memdbg_printf("open");
                  memdbg_printf("1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n\n11\n");
              }),
              (Pane{"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"}));
}

TEST(DebugPane, SurvivesAnyNumberOfNewlines)
{
    const Pane pane = pane_after([] {
        std::string newlines(1000, '\n');
        memdbg_printf("%s", newlines.c_str());
        for (size_t i = 0; i < newlines.size(); i += 2) newlines[i] = 'x';
        memdbg_printf("%s\n", newlines.c_str());
        va_list none{};
        memdbg_vprintf((newlines + newlines).c_str(), none);
        memdbg_printf("end\n");
    });
    ASSERT_FALSE(pane.empty());
    EXPECT_EQ(pane.back(), "end");
}

TEST(DebugPane, SharesTheScreenWithTheCountLine)
{
    const Terminal screen = screen_after([] {
        memdbg_printf("parsing\n");
        alloc(1, "f");
    });
    EXPECT_EQ(screen.line(44), "parsing");
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00001");
    EXPECT_EQ(screen.cursor_row(), 48u);
}

// --- many threads ------------------------------------------------------------------------------

namespace {

// Allocates, resizes and releases at random; leaves what is live for others to release.
void work(unsigned seed, std::vector<void *> &live)
{
    static const char *const sites[] = {"parse", "format", "send", "receive", "log"};
    std::mt19937 random(seed);
    for (int i = 0; i < 1500; ++i) {
        const char *const site = sites[below(random, 5)];
        const size_t size = below(random, 200) + 1;
        if (live.size() < 50 || below(random, 2) == 0) {
            live.push_back(vn_memcheck_malloc(malloc, size, site, 1));
        } else {
            const size_t chosen = below(random, live.size());
            live[chosen] = vn_memcheck_realloc(live[chosen], size, site, 2);
            std::swap(live[chosen], live.back());
            release(live.back());
            live.pop_back();
        }
        memset(live.back(), 0xAB, 1);
        if (i % 100 == 0) memdbg_printf("thread %u step %d\n", seed, i);
    }
}

} // namespace

TEST(ManyThreads, AllocateResizeAndReleaseAtOnce)
{
    const Terminal screen = screen_after_stop([] {
        std::array<std::vector<void *>, 4> live;
        std::vector<std::thread> threads;
        for (unsigned i = 0; i < live.size(); ++i)
            threads.emplace_back([&live, i] { work(i, live[i]); });
        for (std::thread &thread : threads) thread.join();
        for (const auto &blocks : live)
            for (void *block : blocks) release(block);
        release(alloc(1, "last"));
    });
    EXPECT_EQ(screen.line(-1), "Total Allocations: 00000");
    EXPECT_EQ(screen.line(0), "");
}
