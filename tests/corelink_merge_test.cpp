// Select, update and insert: what they change, what they call and in which order, and that they
// stay in proportion to the trees.
#include <functional>
#include <memory>
#include <optional>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/capture.h"
#include "support/corelink_tree.h"
#include "support/small_stack.h"
#include "support/tracked.h"
#include "vnlib/corelink.h"
#include "vnlib/log.h"
#include "vnlib/memcheck.h"

namespace {

using namespace test::trees;

using Operation = int (*)(clparse_head *, clparse_head *);
constexpr Operation kOperations[] = {clparse_select, clparse_update, clparse_insert};

// ---------------------------------------------------------------- the three operations

TEST(CorelinkSelect, FillsTheTargetFromTheSource)
{
    const Tree target("name=\"\",port=0,on=false"), source("port=80,name=\"web\",on=true,other=1");
    EXPECT_EQ(clparse_select(target, source), 0);
    EXPECT_EQ(text_of(target), "name=\"web\",port=80,on=true");
    EXPECT_EQ(text_of(source), "port=80,name=\"web\",on=true,other=1");
}

TEST(CorelinkUpdate, StopsAtTheFirstNodeThatTheTargetLacks)
{
    const Tree target("aa=1,bb=2"), source("aa=10,zz=1,bb=20");
    EXPECT_EQ(clparse_update(target, source), -1);
    EXPECT_EQ(text_of(target), "aa=10,bb=2");
}

TEST(CorelinkUpdate, CopiesEverythingWhenNothingIsLacking)
{
    const Tree target("aa=1,bb={cc=2,dd=3}"), source("bb={dd=30},aa=\"one\"");
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(text_of(target), "aa=\"one\",bb={cc=2,dd=30}");
}

TEST(CorelinkInsert, AppendsWhatTheTargetLacks)
{
    const Tree target("aa=1,bb={cc=2}"),
        source("zz=9,bb={xx=\"new\"},list=[1,2],aa=10,on=true,none");
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(text_of(target), "aa=10,bb={cc=2,xx=\"new\"},zz=9,list=[1,2],on=true,none");
}

TEST(CorelinkInsert, FillsAnEmptyTree)
{
    const Tree target, source("aa=1,bb={cc=2},dd=\"text\"");
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(text_of(target), text_of(source));
}

TEST(CorelinkMerge, DoesNothingForAnEmptySource)
{
    const Tree target("aa=1"), source;
    for (const Operation operation : kOperations) EXPECT_EQ(operation(target, source), 0);
    EXPECT_EQ(text_of(target), "aa=1");
}

TEST(CorelinkMerge, TreatsATargetWithoutMembersAsOneThatLacksThem)
{
    const Tree source("aa=1");
    const Tree first, second;
    EXPECT_EQ(clparse_select(first, source), 0);
    EXPECT_EQ(clparse_update(first, source), -1);
    EXPECT_EQ(text_of(first), "");
}

TEST(CorelinkMerge, RefusesATargetWithoutAChildList)
{
    const Tree target, source("aa=1"), empty;
    Node *const list = std::exchange(target.root()->value.children, nullptr);
    for (const Operation operation : kOperations) {
        EXPECT_EQ(operation(target, source), -1);
        EXPECT_EQ(operation(target, empty), -1) << "also when there is nothing to merge";
    }
    target.root()->value.children = list;
}

TEST(CorelinkMerge, RefusesNullHeads)
{
    const Tree tree("aa=1");
    for (const Operation operation : kOperations) {
        EXPECT_EQ(operation(nullptr, tree), -1);
        EXPECT_EQ(operation(tree, nullptr), -1);
    }
}

TEST(CorelinkMerge, DoesWhatTheTableInTheDocumentationSays)
{
    const struct {
        const char *target, *source, *select, *update, *insert;
        int update_result;
    } kRows[] = {
        {"aa=1,bb=2", "bb=20,aa=\"x\"", "aa=\"x\",bb=20", "aa=\"x\",bb=20", "aa=\"x\",bb=20", 0},
        {"aa=1", "zz=9,aa=10", "aa=10", "aa=1", "aa=10,zz=9", -1},
        {"aa={bb=1}", "aa={bb=2,cc=3}", "aa={bb=2}", "aa={bb=2}", "aa={bb=2,cc=3}", -1},
        {"aa={bb=1}", "aa=5", "aa=5", "aa=5", "aa=5", 0},
        {"aa=5", "aa={bb=1}", "aa=5", "aa=5", "aa=5,aa={bb=1}", -1},
        {"list=[1,2]", "list=[7,8]", "list=[8,2]", "list=[8,2]", "list=[8,2]", 0},
    };
    for (const auto &row : kRows) {
        const Tree select(row.target), update(row.target), insert(row.target), source(row.source);
        EXPECT_EQ(clparse_select(select, source), 0);
        EXPECT_EQ(clparse_update(update, source), row.update_result);
        EXPECT_EQ(clparse_insert(insert, source), 0);
        EXPECT_EQ(text_of(select), row.select);
        EXPECT_EQ(text_of(update), row.update);
        EXPECT_EQ(text_of(insert), row.insert);
    }
}

// ---------------------------------------------------------------- what a match copies

TEST(CorelinkMerge, GivesTheTargetTheTypeAndValueOfTheSource)
{
    const std::pair<Node *(*)(), const char *> kLeaves[] = {
        {[] { return string("x", "text"); }, "x=\"text\""},
        {[] { return number("x", UINT64_MAX); }, "x=18446744073709551615"},
        {[] { return boolean("x", 1); }, "x=true"},
        {[] { return boolean("x", 0); }, "x=false"},
        {[] {
             Node *const node = null("xx");
             node->tag[1] = '\0';
             return node;
         },
         "x"},
    };
    for (const auto &[make_target, before] : kLeaves) {
        for (const auto &[make_source, after] : kLeaves) {
            const Tree target{make_target()}, source{make_source()};
            EXPECT_EQ(clparse_update(target, source), 0);
            EXPECT_EQ(text_of(target), after) << "was " << before;
            EXPECT_EQ(text_of(source), after);
        }
    }
}

TEST(CorelinkMerge, CopiesTextsRatherThanSharingThem)
{
    const Tree target("xx=\"old\",zz=0");
    {
        const Tree source("xx=\"new\",yy=\"more\"");
        EXPECT_EQ(clparse_insert(target, source), 0);
        EXPECT_NE(target.at("xx")->value.text, source.at("xx")->value.text);
        EXPECT_NE(target.at("yy")->value.text, source.at("yy")->value.text);
    }
    EXPECT_EQ(text_of(target), "xx=\"new\",zz=0,yy=\"more\"");
}

TEST(CorelinkMerge, CopiesAnAbsentText)
{
    const Tree target("aa=\"old\""), source{textless("aa"), textless("bb")};
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(clparse_get_type(target, "aa"), 1);
    EXPECT_EQ(target.at("aa")->value.text, nullptr);
    EXPECT_EQ(clparse_get_type(target, "bb"), 1);
    EXPECT_EQ(target.at("bb")->value.text, nullptr);
}

TEST(CorelinkMerge, KeepsTheTagsAndPlacesOfMatchedNodes)
{
    const Tree target("aa=1,bb=2"), source("bb=20,aa=10");
    Node *const first = target.at("0");
    const char *const tag = first->tag;
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(target.at("0"), first);
    EXPECT_EQ(first->tag, tag);
    EXPECT_EQ(first->parent, target.root());
    EXPECT_EQ(text_of(target), "aa=10,bb=20");
}

TEST(CorelinkMerge, ComparesTagsWithCase)
{
    const Tree target("name=1"), source("Name=2");
    EXPECT_EQ(clparse_select(target, source), 0);
    EXPECT_EQ(text_of(target), "name=1");
}

TEST(CorelinkMerge, MatchesTheFirstOfSeveralWithTheSameTag)
{
    const Tree target("xx=1,xx=2"), source("xx=10,xx=20");
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(text_of(target), "xx=20,xx=2");
}

TEST(CorelinkMerge, PassesOverALeafForAContainer)
{
    const Tree target("xx=1,xx={yy=2}"), source("xx={yy=20}");
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(text_of(target), "xx=1,xx={yy=20}");
    const Tree leaf("xx=1");
    EXPECT_EQ(clparse_update(leaf, source), -1) << "a container does not replace a leaf";
    EXPECT_EQ(text_of(leaf), "xx=1");
}

TEST(CorelinkMerge, ReplacesAContainerByALeaf)
{
    const Tree target("xx={yy=2,zz=[1]},ww=3"), source("xx=5");
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(text_of(target), "xx=5,ww=3");
}

TEST(CorelinkMerge, MergesAStructAndAnArrayWithTheSameTag)
{
    const Tree target{structure("x", {number("a", 1)})}, source{array("x", {number("a", 2)})};
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(text_of(target), "x={a=2}");
}

TEST(CorelinkMerge, TakesElementsWithoutTagsAsEqual)
{
    const Tree target("list=[1,2,3]"), source("list=[10,20]");
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(text_of(target), "list=[20,2,3]") << "every leaf finds the first element";
    const Tree records("list=[1,{aa=1}]"), updates("list=[{aa=2},{bb=3},4]");
    EXPECT_EQ(clparse_insert(records, updates), 0);
    EXPECT_EQ(text_of(records), "list=[4,{aa=2,bb=3}]");
}

TEST(CorelinkMerge, TakesAnEmptySourceContainerForFound)
{
    const Tree target{structure("x", {number("a", 1)})}, source{structure("x"), array("y")};
    EXPECT_EQ(clparse_update(target, source), -1) << "y is lacking";
    const Tree found{structure("x")};
    EXPECT_EQ(clparse_update(target, found), 0);
    EXPECT_EQ(text_of(target), "x={a=1}");
}

TEST(CorelinkMerge, FailsInDeeperLevelsFailTheWhole)
{
    const Tree target("aa={bb={cc=1}},zz=1"), source("aa={bb={cc=10,dd=2}},zz=10");
    EXPECT_EQ(clparse_update(target, source), -1);
    EXPECT_EQ(text_of(target), "aa={bb={cc=10}},zz=1");
}

TEST(CorelinkMerge, FindsInsertedNodesForLaterOnesOfTheSource)
{
    const Tree target, source("xx=1,xx=2,yy={aa=1},yy={aa=2,bb=3}");
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(text_of(target), "xx=2,yy={aa=2,bb=3}");
}

// ---------------------------------------------------------------- sharing

TEST(CorelinkInsert, SharesTheTagAndTheChildList)
{
    const Tree source("box={aa=1}"), target("zz=1");
    ASSERT_EQ(clparse_insert(target, source), 0);
    const Node *const inserted = target.at("box"), *const original = source.at("box");
    EXPECT_NE(inserted, original);
    EXPECT_EQ(inserted->tag, original->tag);
    EXPECT_EQ(inserted->value.children, original->value.children);
    EXPECT_EQ(inserted->parent, target.root());
    EXPECT_EQ(target.at("box.aa"), source.at("box.aa"));
}

TEST(CorelinkInsert, LetsEitherTreeGoFirst)
{
    for (const bool source_first : {true, false}) {
        auto source = std::make_unique<Tree>("box={aa={bb=\"text\"}},name=\"x\",list=[1,[2]]");
        auto target = std::make_unique<Tree>("zz=1");
        ASSERT_EQ(clparse_insert(*target, *source), 0);
        const auto whole = text_of(*source);
        (source_first ? source : target).reset();
        const auto &rest = source_first ? target : source;
        EXPECT_EQ(text_of(*rest), source_first ? "zz=1," + *whole : whole);
    }
}

TEST(CorelinkInsert, SharesAmongManyTrees)
{
    auto source = std::make_unique<Tree>("box={aa=1}");
    Tree first, second, third;
    ASSERT_EQ(clparse_insert(first, *source), 0);
    ASSERT_EQ(clparse_insert(second, first), 0);
    ASSERT_EQ(clparse_insert(third, *source), 0);
    source.reset();
    clparse_delete_node(clparse_get_child(first.root()));
    clparse_delete_node(second.at("box"));
    EXPECT_EQ(text_of(first), "");
    EXPECT_EQ(text_of(second), "");
    EXPECT_EQ(text_of(third), "box={aa=1}");
}

TEST(CorelinkMerge, MergesATreeIntoItself)
{
    for (const Operation operation : kOperations) {
        const Tree tree("aa=1,bb=\"text\",cc={dd=[1,\"two\",{ee=3}],dd=4},aa=2,none");
        EXPECT_EQ(operation(tree, tree), 0);
        EXPECT_EQ(text_of(tree), "aa=2,bb=\"text\",cc={dd=4,dd=4},aa=2,none");
    }
}

TEST(CorelinkMerge, MergesTreesThatShareParts)
{
    const Tree source("box={aa=1,list=[1,{bb=2}]}"), target;
    ASSERT_EQ(clparse_insert(target, source), 0);
    for (const Operation operation : kOperations) {
        EXPECT_EQ(operation(target, source), 0);
        EXPECT_EQ(operation(source, target), 0);
    }
    EXPECT_EQ(text_of(target), "box={aa=1,list=[1,{bb=2}]}");
    EXPECT_EQ(text_of(source), text_of(target));
    const Tree more("box={new=\"text\"}");
    EXPECT_EQ(clparse_insert(target, more), 0);
    EXPECT_EQ(text_of(source), "box={aa=1,list=[1,{bb=2}],new=\"text\"}") << "a shared list is one";
}

TEST(CorelinkMerge, ReplacesASharedContainerByALeafInOneTreeOnly)
{
    const Tree source("box={aa=1}"), target;
    ASSERT_EQ(clparse_insert(target, source), 0);
    const Tree leaf("box=5");
    EXPECT_EQ(clparse_update(target, leaf), 0);
    EXPECT_EQ(text_of(target), "box=5");
    EXPECT_EQ(text_of(source), "box={aa=1}");
}

// Both trees hold one list, at different depths, so that a container of the target becomes a leaf
// and gives up its members while they are being read as the source.
TEST(CorelinkMerge, SurvivesReplacingTheSourceContainerThatIsBeingRead)
{
    const Tree source{
        structure("a", {structure("c", {number("b", 1), number("c", 5), number("d", 6)})})};
    const Tree sharing;
    ASSERT_EQ(clparse_insert(sharing, source), 0);
    Node *const shared = clparse_get_child(sharing.root()); // its list is that of the source's "a"
    const Tree naming{structure("c")};
    Node *const outer = clparse_get_child(naming.root());
    std::swap(outer->tag, shared->tag);
    clparse_delete_node(outer);
    const Tree target{structure("a", {shared})};
    ASSERT_EQ(target.at("a.c.c"), source.at("a.c"));
    EXPECT_EQ(clparse_select(target, source), 0);
    EXPECT_EQ(text_of(source), "a={c=5}");
    EXPECT_EQ(text_of(target), "a={c={c=5}}");
}

// A container that shares the list of the target's member `path`, which is at the root.
Node *sharing(const Tree &tree, const char *path)
{
    const Tree copies;
    clparse_insert(copies, tree);
    for (Node *node; (node = clparse_get_child(copies.root())) != nullptr;) {
        if (std::string(node->tag) == path) return node;
        clparse_delete_node(node);
    }
    return nullptr;
}

TEST(CorelinkInsert, RefusesToPutAListIntoItself)
{
    const Tree target("box={aa=1}");
    const Tree source{structure("box", {structure("inner", {sharing(target, "box")})})};
    EXPECT_EQ(clparse_insert(target, source), -1);
    EXPECT_EQ(text_of(target), "box={aa=1}");
    EXPECT_EQ(text_of(source), "box={inner={box={aa=1}}}");
}

TEST(CorelinkInsert, RefusesToPutAnUpperListBelowItself)
{
    const Tree target("box={deep={aa=1}}");
    const Tree source{structure("box", {structure("deep", {sharing(target, "box")})})};
    EXPECT_EQ(clparse_insert(target, source), -1);
    EXPECT_EQ(text_of(target), "box={deep={aa=1}}");
}

TEST(CorelinkInsert, SharesAListThatIsElsewhereInTheTarget)
{
    const Tree target("box={aa=1},other={bb=2}");
    const Tree source{structure("other", {sharing(target, "box")})};
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(text_of(target), "box={aa=1},other={bb=2,box={aa=1}}");
}

TEST(CorelinkInsert, RefusesTheTargetsOwnRootFromAFunctionNode)
{
    const Tree target("box={aa=1}");
    Yield root(target.root()), box(target.at("box"));
    const Tree source{root.node("r")}, deeper{structure("box", {root.node("r")})},
        member{box.node("b")}, below{structure("box", {box.node("b")})};
    EXPECT_EQ(clparse_insert(target, source), -1);
    EXPECT_EQ(clparse_insert(target, deeper), -1);
    EXPECT_EQ(clparse_insert(target, member), 0) << "the box is merged into itself";
    EXPECT_EQ(clparse_insert(target, below), -1);
    EXPECT_EQ(text_of(target), "box={aa=1}");
    EXPECT_EQ(root.calls, "+r-r+r-r");
}

// ---------------------------------------------------------------- null entries

std::string log_of(const std::function<void()> &body)
{
    return test::capture_fd(2, [&] {
        vn_log_init("test", 7, 0x20, 0, 0);
        body();
        vn_log_exit();
    });
}

TEST(CorelinkMerge, ReportsANullEntryInTheTargetList)
{
    for (const Operation operation : kOperations) {
        const Tree target("aa=1,bb=2"), source("bb=20,aa=10");
        Node *const first = target.at("aa");
        Node *const second = std::exchange(first->next, nullptr);
        int result = 0;
        const std::string log = log_of([&] { result = operation(target, source); });
        EXPECT_THAT(log, testing::HasSubstr("ERROR: clparse_search_tree +1135:NULL clparse node!"));
        EXPECT_EQ(result, operation == clparse_update ? -1 : 0);
        EXPECT_EQ(clparse_get_node_value_n(first), operation == clparse_update ? 1u : 10u)
            << "the walk goes on with the next source child";
        if (operation == clparse_insert) {
            // Appended at the end of the list, behind the break.
            EXPECT_EQ(second->next->value.number, 20u);
        }
        first->next = second;
    }
}

// ---------------------------------------------------------------- memory

TEST(CorelinkMerge, ChargesTheTextsThatItCopies)
{
    static clparse_head *target, *source;
    const auto merged = [](Operation operation, const char *target_text) {
        target = clparse_start(target_text);
        source = clparse_start("name=\"text\"");
        operation(target, source);
        return clparse_get_node_value_s(clparse_get_node(target, "name"));
    };
    EXPECT_EQ(test::charge_of([&] { return merged(clparse_update, "name=1"); }),
              "clparse_dfl_found_action LINE:1017, Size:5");
    EXPECT_EQ(test::charge_of([&] { return merged(clparse_insert, "other=1"); }),
              "clparse_insert_new LINE:1070, Size:5");
}

TEST(CorelinkMerge, LeavesNothingBehind)
{
    EXPECT_EQ(test::left_behind_by([] {
                  const Tree target("box={aa=1,text=\"old\"},name=\"old\",list=[1]"),
                      source("box={aa=2,text=\"new\",list=[1]},name=7,list=5,more=\"text\"");
                  for (const Operation operation : kOperations) {
                      operation(target, source);
                      operation(target, target);
                  }
              }),
              0);
}

// ---------------------------------------------------------------- function nodes

TEST(CorelinkMergeFunction, MergesWhatASourceFunctionYields)
{
    const Tree results{number("xx", 10)};
    Yield f(results.at("xx"));
    const Tree target("xx=1"), source{f.node("f")};
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(text_of(target), "xx=10");
    EXPECT_EQ(f.calls, "+f-f");
}

TEST(CorelinkMergeFunction, MergesIntoWhatATargetFunctionYields)
{
    const Tree results{number("xx", 10)};
    Yield f(results.at("xx"));
    const Tree target{f.node("f")}, source("xx=1");
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(text_of(results), "xx=1");
    EXPECT_EQ(clparse_get_type(target, "f"), 6);
    EXPECT_EQ(f.calls, "+f-f");
}

TEST(CorelinkMergeFunction, ResolvesAndReleasesInOrder)
{
    const Tree results{number("xx", 1), structure("box", {number("yy", 2)}), number("zz", 3),
                       structure("box", {number("yy", 20), number("ww", 4)})};
    std::string log;
    Yield x(results.at("0"), 0, &log), box(results.at("1"), 0, &log), z(results.at("2"), 0, &log),
        source_box(results.at("3"), 0, &log);
    const Tree target{x.node("x"), box.node("b"), z.node("z")},
        source{source_box.node("s"), number("zz", 30)};
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(log, "+s+x-x+b-b-s+x-x+b-b+z-z");
    EXPECT_EQ(text_of(results), "xx=1,box={yy=20,ww=4},zz=30,box={yy=20,ww=4}");
}

TEST(CorelinkMergeFunction, KeepsResultsInUseWhileTheirMembersAreMerged)
{
    const Tree results{structure("box", {number("aa", 1)}), structure("box"), number("aa", 10)};
    std::string log;
    Yield inner(results.at("2"), 0, &log), target_box(results.at("0"), 0, &log),
        source_box(results.at("1"), 0, &log);
    clparse_append_child(results.at("1"), inner.node("i"));
    const Tree target{target_box.node("t")}, source{source_box.node("s")};
    EXPECT_EQ(clparse_select(target, source), 0);
    EXPECT_EQ(log, "+s+t+i-i-t-s");
}

TEST(CorelinkMergeFunction, InsertsTheResultOfASourceFunction)
{
    const Tree target("zz=1");
    {
        const Tree results("box={aa=1}");
        Yield f(results.at("box"));
        const Tree source{f.node("f")};
        EXPECT_EQ(clparse_insert(target, source), 0);
        EXPECT_EQ(f.calls, "+f-f");
    }
    EXPECT_EQ(text_of(target), "zz=1,box={aa=1}");
}

TEST(CorelinkMergeFunction, InsertsAResultThatItsReleaseCallbackDeletes)
{
    static Node *made;
    const auto make_box = [](Node *, void *) {
        return made = structure("box", {string("aa", "text"), array("bb", {number("cc", 1)})});
    };
    const auto make_text = [](Node *, void *) { return made = string("name", "made"); };
    const auto remove = [](Node *, void *) { return clparse_delete_node(made); };
    const Tree target,
        source{clparse_create_function_node("f", make_box, nullptr, remove, nullptr),
               clparse_create_function_node("g", make_text, nullptr, remove, nullptr)};
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(text_of(target), "box={aa=\"text\",bb=[1]},name=\"made\"");
}

TEST(CorelinkMergeFunction, EndsWhenAReleaseCallbackFails)
{
    for (const int failure : {-1, 1, 42}) {
        const Tree results{number("xx", 10), number("xx", 1)};
        Yield s(results.at("0"), failure), t(results.at("1"), failure);
        const Tree target("xx=1,yy=1"), source{s.node("s"), number("yy", 2)};
        EXPECT_EQ(clparse_select(target, source), -1);
        EXPECT_EQ(text_of(target), "xx=10,yy=1") << "what was done stays done";
        EXPECT_EQ(s.calls, "+s-s");
        const Tree functions{t.node("t"), number("yy", 1)}, plain("yy=2");
        EXPECT_EQ(clparse_select(functions, plain), -1);
        EXPECT_EQ(functions.at("yy")->value.number, 1u);
        EXPECT_EQ(t.calls, "+t-t");
    }
}

TEST(CorelinkMergeFunction, InsertsNothingWhenTheSourcesReleaseCallbackFails)
{
    const Tree results("box={aa=1},name=\"text\"");
    for (const char *const path : {"box", "name"}) {
        Yield s(results.at(path), 1);
        const Tree target("zz=1"), source{s.node("s")};
        EXPECT_EQ(clparse_insert(target, source), -1);
        EXPECT_EQ(text_of(target), "zz=1");
        EXPECT_EQ(s.calls, "+s-s");
    }
}

TEST(CorelinkMergeFunction, ReleasesEveryResultThatIsInUseWhenItEndsEarly)
{
    const Tree results{structure("box", {number("aa", 1)}), structure("box", {number("zz", 0)})};
    std::string log;
    Yield t(results.at("0"), 0, &log), s(results.at("1"), 0, &log);
    const Tree target{t.node("t")}, source{s.node("s")};
    EXPECT_EQ(clparse_update(target, source), -1);
    EXPECT_EQ(log, "+s+t-t-s");
}

TEST(CorelinkMergeFunction, PassesOverASourceFunctionThatYieldsNothing)
{
    std::string log;
    Yield s(nullptr, 0, &log);
    const auto bare = clparse_create_function_node("xx", nullptr, nullptr, nullptr, nullptr);
    const Tree target{number("xx", 1)}, source{s.node("s"), number("xx", 10), bare};
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(target.at("xx")->value.number, 10u);
    EXPECT_EQ(log, "+s-s");
}

TEST(CorelinkMergeFunction, EndsTheSearchAtATargetFunctionThatYieldsNothing)
{
    for (const Operation operation : kOperations) {
        std::string log;
        Yield t(nullptr, 0, &log);
        const Tree target{number("aa", 1), t.node("t"), number("bb", 2)}, source("bb=20,aa=10");
        EXPECT_EQ(operation(target, source), operation == clparse_update ? -1 : 0);
        EXPECT_EQ(target.at("bb")->value.number, 2u) << "it lies behind the function";
        EXPECT_EQ(target.at("aa")->value.number, operation == clparse_update ? 1u : 10u)
            << "the walk goes on with the next source child";
        if (operation == clparse_insert) {
            EXPECT_EQ(target.at("3")->value.number, 20u);
        }
        EXPECT_EQ(log, "+t") << "there is no result to release";
    }
}

TEST(CorelinkMergeFunction, EndsOnlyTheSearchAtATargetFunctionThatYieldsNothingAndWouldFail)
{
    std::string log;
    Yield t(nullptr, 1, &log), s(nullptr, 0, &log);
    const Tree results("xx=1");
    s.result = results.at("xx");
    const Tree target{t.node("t")}, source{s.node("s"), number("yy", 2)};
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(log, "+s+t-s+t");
    EXPECT_EQ(target.at("yy")->value.number, 2u);
}

TEST(CorelinkMergeFunction, ReportsATargetFunctionThatYieldsNothing)
{
    Yield t;
    const Tree target{t.node("t")}, source("yy=1");
    const std::string lines = log_of([&] { EXPECT_EQ(clparse_insert(target, source), 0); });
    EXPECT_THAT(lines, testing::HasSubstr("ERROR: clparse_search_tree +1135:NULL clparse node!"));
    EXPECT_EQ(t.calls, "+t");
    EXPECT_EQ(target.at("yy")->value.number, 1u);
}

TEST(CorelinkMergeFunction, EndsWhenATreeIsInsertedIntoItselfBehindAFunctionThatYieldsNothing)
{
    Yield t;
    const Tree tree{t.node("t"), number("aa", 1)};
    EXPECT_EQ(clparse_insert(tree, tree), 0);
    EXPECT_EQ(text_of(tree), ",aa=1,aa=1") << "the first is out of sight, so it is appended, once";
}

TEST(CorelinkMergeFunction, TakesAResultThatIsAFunctionNodeAsItIs)
{
    Yield inner, outer;
    const Tree results{inner.node("xx")};
    outer.result = results.at("xx");
    const Tree target("xx=\"old\""), source{outer.node("o")};
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(clparse_get_type(target, "xx"), 6);
    EXPECT_EQ(text_of(target), "") << "it has no callbacks";
    EXPECT_EQ(outer.calls, "+o-o");
    EXPECT_EQ(inner.calls, "");
}

// ---------------------------------------------------------------- depth and width

TEST(CorelinkMerge, DescendsAHundredThousandLevels)
{
    constexpr int kDepth = 100'000;
    const Tree target, source;
    Node *inner_target = target.root(), *inner_source = source.root();
    for (int i = 0; i < kDepth; ++i) {
        Node *const next_target = structure("a"), *const next_source = structure("a");
        clparse_append_child(inner_target, next_target);
        clparse_append_child(inner_source, next_source);
        inner_target = next_target;
        inner_source = next_source;
    }
    clparse_append_child(inner_target, number("x", 1));
    clparse_append_child(inner_source, number("x", 2));
    clparse_append_child(inner_source, number("y", 3));
    test::on_small_stack([&] { EXPECT_EQ(clparse_insert(target, source), 0); });
    EXPECT_EQ(inner_target->value.children->next->value.number, 2u);
    EXPECT_EQ(inner_target->value.children->prev->value.number, 3u);
}

TEST(CorelinkMerge, StaysInProportionOnWideLevels)
{
    constexpr int kMembers = 60'000; // walked without an index: half an hour of comparing
    const Tree target, source;
    for (int i = 0; i < kMembers; ++i) {
        clparse_append_child(target.root(), number(("t" + std::to_string(i)).c_str(), 1));
        clparse_append_child(source.root(), number(("s" + std::to_string(i)).c_str(), 2));
    }
    EXPECT_EQ(clparse_select(target, source), 0);
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(clparse_get_type(target, "%d", 2 * kMembers - 1), 2);
    EXPECT_EQ(clparse_get_type(target, "%d", 2 * kMembers), -1);
    EXPECT_EQ(clparse_update(target, target), 0);
}

TEST(CorelinkMerge, SeesWhatACallbackChangesOnAWideLevel)
{
    const Tree target, source;
    for (int i = 0; i < 200; ++i) {
        clparse_append_child(target.root(), number(("t" + std::to_string(i)).c_str(), 1));
        clparse_append_child(source.root(), number(("t" + std::to_string(199 - i)).c_str(), 2));
    }
    const auto add_one = [](Node *, void *tree) -> Node * {
        static_cast<const Tree *>(tree)->add(number("late", 1));
        return nullptr;
    };
    source.add(
        clparse_create_function_node("f", add_one, nullptr, nullptr, const_cast<Tree *>(&target)));
    source.add(number("late", 2));
    EXPECT_EQ(clparse_update(target, source), 0);
    EXPECT_EQ(target.at("late")->value.number, 2u);
}

TEST(CorelinkMerge, StaysInProportionOnWideLevelsOfElementsWithoutTags)
{
    std::string leaves = "list=[0", boxes = "list=[{aa=1}";
    for (int i = 1; i < 60'000; ++i) {
        leaves += ",0";
        boxes += ",{aa=1}";
    }
    const Tree target(leaves + "]"), source(boxes + "]");
    EXPECT_EQ(clparse_insert(target, source), 0);
    EXPECT_EQ(clparse_get_type(target, "list.60000.aa"), 2);
    EXPECT_EQ(clparse_get_type(target, "list.60001"), -1)
        << "the later ones find the first inserted";
}

// ---------------------------------------------------------------- against the plain walk

// A model of a node, and the merge written down as plainly as it is described. A child list is
// shared by the models that share it; a function's calls go to the same kind of log as the real
// one's.
struct Model;
using ModelPtr = std::shared_ptr<Model>;
using ModelList = std::shared_ptr<std::vector<ModelPtr>>;

struct Model {
    std::optional<std::string> tag;
    uint32_t type = 0;
    std::string text;
    uint64_t number = 0; // a boolean's too
    ModelList children;
    std::string
        function; // what its calls are logged as; none for a function node without callbacks
    ModelPtr result;
    int release_result = 0;

    [[nodiscard]] bool is_container() const { return type == 4 || type == 5; }
};

class PlainMerge {
public:
    enum Missing { kSkip, kGiveUp, kInsert };
    PlainMerge(Missing missing, std::string &log) : missing_(missing), log_(log) {}

    int walk(const ModelPtr &target, const ModelPtr &source)
    {
        const ModelList targets = target->children, sources = source->children;
        const size_t count = sources->size(); // what is appended to this very list is not merged
        for (size_t i = 0; i < count; ++i) {
            const ModelPtr entry = (*sources)[i], s = use(entry);
            bool found = s == nullptr, blocked = false;
            for (size_t j = 0; j < targets->size() && !found && !blocked; ++j) {
                const ModelPtr d_entry = (*targets)[j], d = use(d_entry);
                int result = -1;
                if (d != nullptr && d->tag == s->tag && d->is_container() && s->is_container()) {
                    if (walk(d, s) != 0) {
                        release(d_entry);
                        release(entry);
                        return -1;
                    }
                    found = true;
                } else if (d == nullptr) {
                    blocked = true;
                } else {
                    result = found_action(*d, *s);
                    found = result == 0;
                }
                if (d != nullptr && release(d_entry) != 0) {
                    release(entry);
                    return -1;
                }
            }
            if (release(entry) != 0) return -1;
            if (found || missing_ == kSkip) continue;
            if (missing_ == kGiveUp) return -1;
            targets->push_back(std::make_shared<Model>(*s));
        }
        return 0;
    }

private:
    ModelPtr use(const ModelPtr &entry)
    {
        if (entry->type != 6) return entry;
        if (!entry->function.empty()) log_ += "+" + entry->function;
        return entry->result;
    }
    int release(const ModelPtr &entry)
    {
        if (entry->type != 6 || entry->function.empty()) return 0;
        log_ += "-" + entry->function;
        return entry->release_result;
    }
    static int found_action(Model &d, const Model &s)
    {
        if (d.tag != s.tag || s.is_container()) return -1;
        Model changed;
        changed.tag = d.tag;
        changed.type = s.type;
        if (s.type == 1) changed.text = s.text;
        if (s.type == 2 || s.type == 3) changed.number = s.number;
        d = changed;
        return 0;
    }

    const Missing missing_;
    std::string &log_;
};

// What a model, and what a real tree, holds; function nodes by the names of their calls.
void show(std::string &out, const Model &model)
{
    out += model.tag.value_or("?") + ":" + std::to_string(model.type);
    if (model.type == 1) out += "'" + model.text + "'";
    if (model.type == 2 || model.type == 3) out += "=" + std::to_string(model.number);
    if (model.type == 6) out += "*" + model.function;
    if (!model.is_container()) return;
    out += "(";
    for (const ModelPtr &child : *model.children) show(out += " ", *child);
    out += " )";
}
void show(std::string &out, const Node &node)
{
    out += (node.tag != nullptr ? std::string(node.tag) : "?") + ":" + std::to_string(node.type);
    if (node.type == 1) out += "'" + std::string(node.value.text) + "'";
    if (node.type == 2) out += "=" + std::to_string(node.value.number);
    if (node.type == 3) out += "=" + std::to_string(node.value.boolean);
    if (node.type == 6) out += std::string("*") + (node.value.function.resolve ? node.tag : "");
    if (node.type != 4 && node.type != 5) return;
    out += "(";
    const Node *const list = node.value.children;
    for (const Node *child = list->next; child != list; child = child->next)
        show(out += " ", *child);
    out += " )";
}

// Makes a real node and its model at once.
class Twins {
public:
    // One node in `rarity` is a function node; none with a rarity of 0. Tags come in any order, or
    // in one order with few exceptions.
    enum class Order { kNone, kMostly };
    Twins(unsigned seed, size_t width, size_t rarity, Order order, std::string &real_log)
        : random_(seed), width_(width), rarity_(rarity), order_(order), real_log_(real_log)
    {
    }

    // Fills a container and its model with up to `width` random members.
    void fill(Node *container, const ModelPtr &model, int depth)
    {
        model->children = std::make_shared<std::vector<ModelPtr>>();
        for (size_t n = pick(width_ + 1); n > 0; --n) {
            const ModelPtr child = std::make_shared<Model>();
            place_ = model->children->size();
            clparse_append_child(container, node(*child, depth));
            model->children->push_back(child);
        }
    }
    size_t pick(size_t count) { return random_() % count; }

private:
    Node *node(Model &model, int depth)
    {
        if (rarity_ != 0 && pick(rarity_) == 0) return function(model, depth);
        const bool has_tag = order_ == Order::kMostly || pick(5) != 0;
        Node *const made = has_tag ? tagged(model, depth) : untagged(model);
        if (!model.is_container()) return made;
        const ModelPtr members = std::make_shared<Model>();
        fill(made, members, depth - 1);
        model.children = members->children;
        return made;
    }

    Node *tagged(Model &model, int depth)
    {
        const bool in_order = order_ == Order::kMostly && pick(100) != 0;
        const std::string tag = "t" + std::to_string(in_order ? place_ : pick(width_));
        model.tag = tag;
        switch (pick(depth > 0 ? 6 : 4)) {
        case 0: return string(tag.c_str(), text(model).c_str());
        case 1: return number(tag.c_str(), value(model, 2, 1000));
        case 2: return boolean(tag.c_str(), static_cast<int>(value(model, 3, 2)));
        case 3: return null(tag);
        case 4: model.type = 4; return structure(tag.c_str());
        default: model.type = 5; return array(tag.c_str());
        }
    }
    Node *untagged(Model &model)
    {
        if (pick(2) == 0) return test::trees::untagged('"' + text(model) + '"');
        return test::trees::untagged(std::to_string(value(model, 2, 1000)));
    }
    std::string text(Model &model)
    {
        model.type = 1;
        return model.text = "text" + std::to_string(pick(1000));
    }
    uint64_t value(Model &model, uint32_t type, size_t limit)
    {
        model.type = type;
        return model.number = pick(limit);
    }

    Node *function(Model &model, int depth)
    {
        model.function = "f" + std::to_string(yields_.size());
        model.tag = model.function;
        model.type = 6;
        model.release_result = pick(50) == 0 ? 1 : 0;
        yields_.push_back(std::make_unique<Yield>(nullptr, model.release_result, &real_log_));
        Yield &yield = *yields_.back();
        if (pick(10) != 0) {
            model.result = std::make_shared<Model>();
            yield.result = results_.add(node(*model.result, depth));
        }
        return yield.node(model.function.c_str());
    }

    std::mt19937 random_;
    const size_t width_, rarity_;
    const Order order_;
    size_t place_ = 0; // of the node that is made
    std::string &real_log_;
    std::vector<std::unique_ptr<Yield>> yields_;
    const Tree results_; // owns what the functions yield
};

// One random story: three trees, merged into one another and into themselves.
void compare_with_the_plain_walk(unsigned seed, size_t width, int depth, size_t rarity,
                                 Twins::Order order = Twins::Order::kNone)
{
    std::string real_log, model_log;
    Twins twins(seed, width, rarity, order, real_log);
    const Tree trees[3];
    ModelPtr models[3];
    for (int i = 0; i < 3; ++i) {
        models[i] = std::make_shared<Model>();
        models[i]->tag = "head";
        models[i]->type = 4;
        twins.fill(trees[i].root(), models[i], depth);
    }
    for (int round = 0; round < 5; ++round) {
        const size_t target = twins.pick(3), source = twins.pick(3), operation = twins.pick(3);
        const int result = kOperations[operation](trees[target], trees[source]);
        PlainMerge plain(static_cast<PlainMerge::Missing>(operation), model_log);
        ASSERT_EQ(result, plain.walk(models[target], models[source])) << seed;
        ASSERT_EQ(real_log, model_log) << seed;
        for (int i = 0; i < 3; ++i) {
            std::string real, model;
            show(real, *trees[i].root());
            show(model, *models[i]);
            ASSERT_EQ(real, model) << seed << ", round " << round;
        }
    }
}

class QuietLog {
public:
    QuietLog() { vn_log_setlevel(0); }
    ~QuietLog() { vn_log_setlevel(7); }
};

TEST(CorelinkMerge, DoesWhatThePlainWalkDoesOnSmallTrees)
{
    const QuietLog quiet;
    for (unsigned seed = 0; seed < 2000 && !HasFatalFailure(); ++seed)
        compare_with_the_plain_walk(seed, 1 + seed % 6, 3, 8);
}

TEST(CorelinkMerge, DoesWhatThePlainWalkDoesOnWideTrees)
{
    const QuietLog quiet;
    for (unsigned seed = 0; seed < 30 && !HasFatalFailure(); ++seed)
        compare_with_the_plain_walk(seed, 80 + 10 * seed, 1, seed % 2 == 0 ? 0 : 200);
}

TEST(CorelinkMerge, DoesWhatThePlainWalkDoesOnTreesInOneOrder)
{
    const QuietLog quiet;
    for (unsigned seed = 0; seed < 200 && !HasFatalFailure(); ++seed)
        compare_with_the_plain_walk(seed, 20 + seed % 60, 1, seed % 3 == 0 ? 200 : 0,
                                    Twins::Order::kMostly);
}

} // namespace
