// Every allocation of the corelink queries, merges and writers fails once: each call then gives its
// stated failure, leaks nothing (the leak checker of the sanitizer build watches) and leaves the
// trees usable.
#include <algorithm>
#include <cstring>
#include <memory>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/corelink_tree.h"
#include "support/fault_alloc.h"
#include "vnlib/corelink.h"
#include "vnlib/memcheck.h"

namespace {

using fault::for_each_failing_allocation;
using namespace test::trees;

// Members enough to outgrow every buffer that a writer starts with.
Node *wide(const char *tag)
{
    Node *const node = structure(tag);
    for (int i = 0; i < 300; ++i)
        clparse_append_child(node, string(("member" + std::to_string(i)).c_str(), "\"<text>\""));
    return node;
}

// Nested deeply enough to outgrow the stacks that a walk starts with.
Node *deep(const char *tag, Node *innermost)
{
    Node *inner = innermost;
    for (int i = 0; i < 100; ++i)
        inner = i % 2 != 0 ? structure(tag, {inner}) : array(tag, {inner});
    return inner;
}

TEST(CorelinkXmlFault, StoresNullAndReturnsZeroWhenOutOfMemory)
{
    const Tree tree{number("n", 1), wide("w"), deep("d", string("s", "text"))};
    for (const unsigned char pretty : {uint8_t{0}, uint8_t{1}}) {
        const size_t failures = for_each_failing_allocation([&] {
            char untouched[] = "x", *xml = untouched;
            EXPECT_EQ(clparse_get_xml(tree, &xml, pretty), 0);
            const auto text = take(xml);
            EXPECT_TRUE(!text || text->find("</corelink>") != std::string::npos);
        });
        EXPECT_GT(failures, 3u);
    }
}

TEST(CorelinkXmlFault, FailsAlsoForAShortDocument)
{
    const Tree tree;
    const fault::FailAllocations none(1);
    char untouched[] = "x", *xml = untouched;
    EXPECT_EQ(clparse_get_xml(tree, &xml, 0), 0);
    EXPECT_EQ(xml, nullptr);
}

TEST(CorelinkTextFault, StoresNullAndFailsWhenOutOfMemory)
{
    const Tree tree{number("n", 1), wide("w"), deep("d", string("s", "text"))};
    for (const unsigned char path_mode : {uint8_t{0}, uint8_t{1}}) {
        const size_t failures = for_each_failing_allocation([&] {
            char untouched[] = "x", *text = untouched;
            const int result = clparse_get_corelink(tree, &text, path_mode);
            EXPECT_EQ(result, text != nullptr ? 0 : -1);
            take(text);
        });
        EXPECT_GT(failures, 3u);
    }
}

TEST(CorelinkTextFault, FailsAlsoForAnEmptyTree)
{
    const Tree tree;
    const fault::FailAllocations none(1);
    char untouched[] = "x", *text = untouched;
    EXPECT_EQ(clparse_get_corelink(tree, &text, 0), -1);
    EXPECT_EQ(text, nullptr);
}

// Whether every resolve call had its release call.
bool balanced(const Yield &yield)
{
    return std::count(yield.calls.begin(), yield.calls.end(), '+') ==
           std::count(yield.calls.begin(), yield.calls.end(), '-');
}

TEST(CorelinkTextFault, ReleasesWhatFunctionNodesYieldedWhenOutOfMemory)
{
    const Tree inner_result{wide("w")};
    Yield inner{inner_result.at("w")};
    const Tree outer_result{structure("o", {deep("d", inner.node("i"))})};
    Yield outer{outer_result.at("o")};
    const Tree tree{deep("d", outer.node("f"))};
    for (const unsigned char path_mode : {uint8_t{0}, uint8_t{1}}) {
        const size_t failures = for_each_failing_allocation([&] {
            char *text = nullptr;
            clparse_get_corelink(tree, &text, path_mode);
            take(text);
            EXPECT_TRUE(balanced(inner));
            EXPECT_TRUE(balanced(outer));
        });
        EXPECT_GT(failures, 3u);
    }
}

TEST(CorelinkGetPathFault, GivesNullWhenOutOfMemory)
{
    const Tree result{wide("w")};
    Yield counted{result.at("w")};
    const Tree tree{wide("w"), counted.node("f"), structure("short", {number("n", 1)})};
    for (const char *const path : {"w", "f", "short", "none"}) {
        const size_t failures =
            for_each_failing_allocation([&] { take(clparse_get_path(tree, path)); });
        EXPECT_GT(failures, 0u) << path;
        const fault::FailAllocations all(1, SIZE_MAX);
        EXPECT_EQ(clparse_get_path(tree, path), nullptr) << path;
    }
    EXPECT_TRUE(balanced(counted));
}

TEST(CorelinkGettersFault, FailWhenThePathCannotBeFormatted)
{
    const Tree tree{number("n", 1), boolean("b", 1), string("s", "text")};
    uint64_t value = 77;
    unsigned char flag = 77;
    char untouched[] = "x", *tag = untouched, *text = untouched;
    const fault::FailAllocations all(1, SIZE_MAX);
    EXPECT_EQ(clparse_get_type(tree, "%s", "n"), -1);
    EXPECT_EQ(clparse_get_number(tree, &value, "%s", "n"), -1);
    EXPECT_EQ(clparse_get_bool(tree, &flag, "%s", "b"), -1);
    EXPECT_EQ(clparse_get_tag(tree, &tag, "%s", "s"), -1);
    EXPECT_EQ(clparse_get_string(tree, &text, "%s", "s"), -1);
    EXPECT_EQ(value, 77u);
    EXPECT_EQ(flag, 77);
    EXPECT_EQ(tag, untouched);
    EXPECT_EQ(text, nullptr);
}

TEST(CorelinkGettersFault, NeedNoMemoryForAPlainPath)
{
    const Tree tree{number("n", 1)};
    const fault::FailAllocations all(1, SIZE_MAX);
    EXPECT_EQ(clparse_get_type(tree, "n"), 2);
    EXPECT_EQ(all.seen(), 0u);
}

TEST(CorelinkGettersFault, ChargeAPlainPathWhileBlocksAreTracked)
{
    const test::ChildResult child = test::run_in_child([] {
        vn_memcheck_start();
        const Tree tree{number("n", 1)};
        const fault::FailAllocations all(1, SIZE_MAX);
        if (clparse_get_type(tree, "n") == -1 && all.failed() == 1) _exit(7);
    });
    EXPECT_TRUE(child.exited_with(7));
}

TEST(CorelinkGettersFault, FormatLongPathsOrFail)
{
    const std::string tag(1000, 't');
    const Tree tree{number(tag.c_str(), 1)};
    const size_t failures = for_each_failing_allocation([&] {
        const int type = clparse_get_type(tree, "%s", tag.c_str());
        EXPECT_TRUE(type == 2 || type == -1);
    });
    EXPECT_GE(failures, 1u);
}

TEST(CorelinkGetStringFault, SucceedsWithNullWhenTheCopyFails)
{
    const Tree tree{string("s", "text")};
    const fault::FailAllocations copy(1);
    char untouched[] = "x", *text = untouched;
    EXPECT_EQ(clparse_get_string(tree, &text, "s"), 0);
    EXPECT_EQ(text, nullptr);
}

TEST(CorelinkLookupFault, AllocatesNothing)
{
    const Tree tree{structure("a", {structure("b", {number("c", 1)})})};
    const fault::FailAllocations all(1, SIZE_MAX);
    EXPECT_NE(clparse_get_node(tree, "a.b.c"), nullptr);
    EXPECT_NE(clparse_get_tagtype(tree.root(), "0.0.0", 2), nullptr);
    EXPECT_EQ(all.seen(), 0u);
}

TEST(CorelinkArrayTextFault, FailsWhenTheTextCannotGrow)
{
    for_each_failing_allocation([&] {
        char *text = strdup("[1]"); // not one of the counted calls
        const int result = cl_cat_array_element(&text, 0, "%s", std::string(300, 'x').c_str());
        EXPECT_EQ(result, text != nullptr ? 0 : -1);
        take(text);
    });
}

TEST(CorelinkMergeFault, KeepsTheTargetWholeWhenOutOfMemory)
{
    size_t failures = 0;
    for (size_t nth = 1, failed = 1; failed != 0; ++nth) {
        const Tree target("box={aa=1,text=\"old\"},name=\"old\""),
            source("box={aa=2,text=\"new\",list=[1]},name=\"new\",more=\"text\",last={zz=1}");
        int result = 0;
        {
            const fault::FailAllocations plan(nth);
            result = clparse_insert(target, source);
            failed = plan.failed();
        }
        const std::string text = text_of(target).value_or("nothing");
        if (failed == 0) {
            EXPECT_EQ(text,
                      "box={aa=2,text=\"new\",list=[1]},name=\"new\",more=\"text\",last={zz=1}");
        }
        EXPECT_TRUE(result == 0 || result == -1);
        failures += failed;
    }
    EXPECT_GE(failures, 6u);
}

TEST(CorelinkMergeFault, LeavesATextAbsentWhenItsCopyFails)
{
    const Tree target("name=\"old\""), source("name=\"new\"");
    {
        const fault::FailAllocations copy(1);
        EXPECT_EQ(clparse_update(target, source), 0);
    }
    EXPECT_EQ(clparse_get_type(target, "name"), 1);
    EXPECT_EQ(clparse_get_node_value_s(target.at("name")), nullptr);
}

TEST(CorelinkMergeFault, FailsAnInsertWithoutMemoryForTheRecordOrTheText)
{
    for (const size_t nth : {1u, 2u}) {
        const Tree target("aa=1"), source("name=\"text\"");
        int result = 0;
        {
            const fault::FailAllocations plan(nth);
            result = clparse_insert(target, source);
        }
        EXPECT_EQ(result, -1);
        EXPECT_EQ(text_of(target), "aa=1");
    }
}

TEST(CorelinkMergeFault, ReleasesResultsInUseWhenOutOfMemory)
{
    const Tree results{structure("box", {number("aa", 1)}),
                       structure("box", {deep("d", number("n", 1))}),
                       structure("box", {deep("d", number("n", 2))})};
    Yield target_box{results.at("1")}, source_box{results.at("2")};
    const Tree target{target_box.node("f")}, source{source_box.node("f")};
    const size_t failures = for_each_failing_allocation([&] {
        const int result = clparse_update(target, source);
        EXPECT_TRUE(result == 0 || result == -1);
        EXPECT_TRUE(balanced(target_box));
        EXPECT_TRUE(balanced(source_box));
    });
    EXPECT_GT(failures, 2u);
}

TEST(CorelinkMergeFault, WalksAWideLevelWhenItCannotBeIndexed)
{
    for (size_t nth = 1, failed = 1; failed != 0; ++nth) {
        const Tree target, source;
        for (int i = 0; i < 200; ++i) {
            clparse_append_child(target.root(), number(("t" + std::to_string(i)).c_str(), 1));
            clparse_append_child(source.root(), number(("t" + std::to_string(199 - i)).c_str(), 2));
        }
        {
            const fault::FailAllocations plan(nth);
            EXPECT_EQ(clparse_select(target, source), 0);
            failed = plan.failed();
        }
        for (int i = 0; i < 200; ++i) {
            uint64_t value = 0;
            EXPECT_EQ(clparse_get_number(target, &value, "%d", i), 0);
            EXPECT_EQ(value, 2u);
        }
    }
}

TEST(CorelinkMergeFault, InsertsInOrderAlsoWhenTheIndexCannotGrow)
{
    constexpr int kOld = 40, kAll = 200;
    size_t whole = 0, failed = 1;
    for (size_t nth = 1; failed != 0; ++nth) {
        const Tree target, source;
        for (int i = 0; i < kAll; ++i) {
            const std::string tag = "t" + std::to_string(i);
            if (i < kOld) clparse_append_child(target.root(), number(tag.c_str(), 1));
            clparse_append_child(source.root(), number(tag.c_str(), 2));
        }
        int result = 0;
        {
            const fault::FailAllocations plan(nth);
            result = clparse_insert(target, source);
            failed = plan.failed();
        }
        if (result != 0) continue; // a node could not be made
        ++whole;
        EXPECT_EQ(text_of(target), text_of(source));
    }
    EXPECT_GE(whole, 4u) << "without the index's block, its table, or a larger one; and with all";
}

} // namespace
