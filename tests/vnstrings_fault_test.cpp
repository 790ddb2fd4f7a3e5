// What the string functions ask of the tracked allocator, and what they do when it says no.
#include "vnlib/vnstrings.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "support/capture.h"
#include "support/fault_alloc.h"
#include "vnlib/memcheck.h"

extern "C" {
void *__real_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
void __real_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site);
void *__real_vn_memcheck_realloc(void *ptr, size_t size, const char *site, unsigned line);
void *__wrap_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
void __wrap_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site);
void *__wrap_vn_memcheck_realloc(void *ptr, size_t size, const char *site, unsigned line);
}

namespace {

std::vector<std::string> calls;

std::string asked(const char *call, size_t size, const char *site, unsigned line)
{
    return std::string(call) + " " + std::to_string(size) + " " + site + ":" + std::to_string(line);
}

char *growable(const char *text)
{
    char *const block =
        static_cast<char *>(__real_vn_memcheck_malloc(malloc, strlen(text) + 1, "test", 1));
    strcpy(block, text);
    calls.clear();
    return block;
}

void release(char *text)
{
    __real_vn_memcheck_free(vn_free, text, "test:1");
}

using Calls = std::vector<std::string>;

TEST(VnAsprintfFaults, ChargesExactlyTheNeededBytesToTheGivenSite)
{
    char *text = nullptr;
    calls.clear();
    __vn_asprintf(&text, "some_function", 4711, "%s", "12345");
    EXPECT_EQ(calls, Calls{"malloc 6 some_function:4711"});
    release(text);
}

TEST(VnAsprintfFaults, AnswersMinusOneAndNullWithoutMemory)
{
    const std::string filler(2300, 'x');
    for (const char *value : {"short", filler.c_str()}) {
        char *text = const_cast<char *>("stale");
        const fault::FailAllocations plan(1);
        EXPECT_EQ(__vn_asprintf(&text, "f", 1, "%s", value), -1);
        EXPECT_EQ(text, nullptr);
    }
}

TEST(VnAasprintfFaults, ChargesItsBlockToAFixedSite)
{
    char *text = growable("ab");
    EXPECT_EQ(vn_aasprintf(&text, "%s", "cde"), 3);
    EXPECT_EQ(calls, Calls{"realloc 6 vn_vaasprintf:43"});
    release(text);
}

TEST(VnAasprintfFaults, AllocatesNothingForAnAbsentString)
{
    char *text = nullptr;
    calls.clear();
    EXPECT_EQ(vn_aasprintf(&text, "%s", "cde"), -1);
    EXPECT_EQ(calls, Calls{});
}

TEST(VnAasprintfFaults, LosesTheStringWithoutMemory)
{
    char *text = growable("ab");
    const fault::FailAllocations plan(1);
    EXPECT_EQ(vn_aasprintf(&text, "%s", "cde"), -1);
    EXPECT_EQ(text, nullptr);
}

TEST(VnAasprintfFaults, LosesTheStringWithoutMemoryUnderTheDebuggerToo)
{
    const test::ChildResult result = test::run_in_child([] {
        vn_memcheck_start();
        char *text = growable("ab");
        for (size_t nth = 1; text != nullptr; ++nth) {
            const fault::FailAllocations plan(nth);
            vn_aasprintf(&text, "%s", "cde");
            if (plan.failed() == 0) break;
        }
        if (text == nullptr) vn_memcheck_stop();
        _exit(text == nullptr ? 0 : 1);
    });
    EXPECT_TRUE(result.exited_with(0)) << result.out;
    EXPECT_EQ(result.out.find("Count 1"), std::string::npos) << result.out;
}

TEST(ReplaceCharFaults, KeepsItsCopyAtAFixedSiteAndReleasesIt)
{
    char *text = growable("a+bcd");
    EXPECT_EQ(replace_char(&text, "--", 1), 2);
    EXPECT_EQ(calls, (Calls{"malloc 4 replace_char:166", "realloc 7 vn_vaasprintf:43",
                            "free vnstrings:175"}));
    release(text);
}

TEST(ReplaceCharFaults, WritesNullForATailThatCouldNotBeCopied)
{
    char *text = growable("a+bcd");
    {
        const fault::FailAllocations plan(1);
        EXPECT_EQ(replace_char(&text, "--", 1), 2);
    }
    EXPECT_STREQ(text, "a--(null)");
    release(text);
}

TEST(ReplaceCharFaults, LosesTheStringWhenItCannotGrow)
{
    char *text = growable("a+bcd");
    const fault::FailAllocations plan(2);
    EXPECT_EQ(replace_char(&text, "--", 1), -1);
    EXPECT_EQ(text, nullptr);
    ASSERT_EQ(calls.size(), 4u);
    EXPECT_EQ(calls.back(), "free vnstrings:171");
}

TEST(ReplaceCharFaults, LosesTheStringWhenNothingCanBeAllocated)
{
    char *text = growable("a+bcd");
    const fault::FailAllocations plan(1, 2);
    EXPECT_EQ(replace_char(&text, "--", 1), -1);
    EXPECT_EQ(text, nullptr);
}

TEST(EscapingFaults, AsksForMemoryOnceAndLeavesItChargedToTheAppend)
{
    char *text = growable("say \"hi\"");
    EXPECT_EQ(replace_quotes(&text), 10);
    EXPECT_EQ(calls, Calls{"realloc 11 vn_vaasprintf:43"});
    calls.clear();
    EXPECT_EQ(replace_xml_entities(&text, true), 20);
    EXPECT_EQ(calls, Calls{"realloc 21 vn_vaasprintf:43"});
    release(text);
}

TEST(EscapingFaults, AllocatesNothingWhenThereIsNothingToEscape)
{
    char *text = growable("it's plain");
    EXPECT_EQ(replace_quotes(&text), 10);
    EXPECT_EQ(replace_xml_entities(&text, true), 10);
    EXPECT_EQ(calls, Calls{});
    release(text);
}

TEST(EscapingFaults, LosesTheStringWithoutMemory)
{
    char *text = growable("\"");
    const fault::FailAllocations plan(1);
    EXPECT_LT(replace_quotes(&text), 0);
    EXPECT_EQ(text, nullptr);
}

TEST(EscapingFaults, LosesTheStringOfEntitiesWithoutMemory)
{
    char *text = growable("<");
    const fault::FailAllocations plan(1);
    EXPECT_LT(replace_xml_entities(&text, false), 0);
    EXPECT_EQ(text, nullptr);
}

} // namespace

void *__wrap_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line)
{
    calls.push_back(asked("malloc", size, site, line));
    return __real_vn_memcheck_malloc(alloc, size, site, line);
}
void __wrap_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site)
{
    calls.push_back(std::string("free ") + site);
    __real_vn_memcheck_free(release, ptr, site);
}
void *__wrap_vn_memcheck_realloc(void *ptr, size_t size, const char *site, unsigned line)
{
    calls.push_back(asked("realloc", size, site, line));
    return __real_vn_memcheck_realloc(ptr, size, site, line);
}
