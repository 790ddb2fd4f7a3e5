// The lookups of a corelink tree: by path, by type, as values, as a listing; and array text.
#include <cerrno>
#include <cstring>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/corelink_tree.h"
#include "support/tracked.h"
#include "vnlib/corelink.h"
#include "vnlib/memcheck.h"

namespace {

using namespace test::trees;

enum Type { kAny = -1, kNull, kString, kNumber, kBoolean, kStruct, kArray, kFunction };

uint64_t number_at(clparse_head *head, const char *path)
{
    uint64_t value = 0xBAD;
    return clparse_get_number(head, &value, "%s", path) == 0 ? value : 0xBAD;
}

std::optional<std::string> string_at(clparse_head *head, const char *path)
{
    char *value = nullptr;
    if (clparse_get_string(head, &value, "%s", path) != 0) return std::nullopt;
    return take(value);
}

std::optional<std::string> listing(clparse_head *head, const char *path)
{
    return take(clparse_get_path(head, path));
}

// ---------------------------------------------------------------- lookup by name

TEST(CorelinkLookup, FindsAMemberOfTheRootByItsTag)
{
    const Tree tree{number("one", 1), number("two", 2)};
    EXPECT_EQ(clparse_get_node(tree, "two"), tree.root()->value.children->prev);
    EXPECT_EQ(clparse_get_node(tree, "three"), nullptr);
}

TEST(CorelinkLookup, DescendsThroughStructsAndArrays)
{
    const Tree tree{structure("a", {array("b", {structure("c", {number("d", 7)})})})};
    EXPECT_EQ(number_at(tree, "a.b.c.d"), 7u);
    EXPECT_EQ(clparse_get_type(tree, "a.b.c"), kStruct);
    EXPECT_EQ(clparse_get_type(tree, "a.b"), kArray);
}

TEST(CorelinkLookup, ComparesTagsWholeAndWithCase)
{
    const Tree tree{number("name", 1), number("names", 2), number("Name", 3)};
    EXPECT_EQ(number_at(tree, "names"), 2u);
    EXPECT_EQ(number_at(tree, "Name"), 3u);
    EXPECT_EQ(clparse_get_node(tree, "nam"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, "namesake"), nullptr);
}

// Steps may be compared in more than one way, as their length and their place in the path suggest.
TEST(CorelinkLookup, ComparesTagsOfAllLengths)
{
    for (size_t length = 1; length < 70; ++length) {
        const Tree tree;
        const std::string name(length, 'a');
        const std::string others[] = {name + 'a', name.substr(1), name.substr(1) + 'b',
                                      'b' + name.substr(1), name + '.'};
        for (const std::string &other : others) {
            Node *const wrong = structure(other.c_str());
            clparse_append_child(wrong, number("x", 1));
            tree.add(wrong);
        }
        EXPECT_EQ(clparse_get_node(tree, name.c_str()), nullptr) << length;
        EXPECT_EQ(clparse_get_node(tree, (name + ".x").c_str()), nullptr) << length;
        Node *const right = structure(name.c_str());
        Node *const below = number("x", 2);
        clparse_append_child(right, below);
        tree.add(right);
        EXPECT_EQ(clparse_get_node(tree, name.c_str()), right) << length;
        EXPECT_EQ(clparse_get_node(tree, (name + ".x").c_str()), below) << length;
    }
}

TEST(CorelinkLookup, TakesTheFirstOfSeveralSiblingsWithOneTag)
{
    const Tree tree{number("x", 1), number("x", 2)};
    EXPECT_EQ(number_at(tree, "x"), 1u);
}

TEST(CorelinkLookup, ReadsASegmentThatBeginsWithADigitAsAPosition)
{
    const Tree tree{number("a", 10), number("1", 11), number("b", 12)};
    EXPECT_EQ(number_at(tree, "0"), 10u);
    EXPECT_EQ(number_at(tree, "1"), 11u);
    EXPECT_EQ(number_at(tree, "2"), 12u);
    EXPECT_EQ(clparse_get_node(tree, "3"), nullptr);
}

TEST(CorelinkLookup, TakesPositionsAtEveryLevel)
{
    const Tree tree{structure("first"), array("servers", {structure("s0", {number("port", 80)}),
                                                          structure("s1", {number("port", 81)})})};
    EXPECT_EQ(number_at(tree, "servers.1.port"), 81u);
    EXPECT_EQ(number_at(tree, "1.0.port"), 80u);
    EXPECT_EQ(number_at(tree, "1.1.0"), 81u);
}

TEST(CorelinkLookup, ReadsOnlyTheLeadingDigitsOfAPosition)
{
    const Tree tree{number("a", 10), number("b", 11), structure("c", {number("d", 12)})};
    EXPECT_EQ(number_at(tree, "1abc"), 11u);
    EXPECT_EQ(number_at(tree, "01"), 11u);
    EXPECT_EQ(number_at(tree, "2x.0y"), 12u);
}

TEST(CorelinkLookup, TakesASegmentWithADigitFurtherInAsAName)
{
    const Tree tree{number("a1", 10), number("-1", 11), number("+1", 12), number(" 1", 13)};
    EXPECT_EQ(number_at(tree, "a1"), 10u);
    EXPECT_EQ(number_at(tree, "-1"), 11u);
    EXPECT_EQ(number_at(tree, "+1"), 12u);
    EXPECT_EQ(number_at(tree, " 1"), 13u);
}

TEST(CorelinkLookup, NeverReachesAPositionTooLargeForAList)
{
    const Tree tree{number("a", 1), number("b", 2)};
    EXPECT_EQ(clparse_get_node(tree, "4294967296"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, "18446744073709551616"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, std::string(1000, '9').c_str()), nullptr);
}

TEST(CorelinkLookup, FindsElementsWithoutTagsByPositionAlone)
{
    const Tree tree("list=[5,6,{port=7}]");
    EXPECT_EQ(number_at(tree, "list.1"), 6u);
    EXPECT_EQ(number_at(tree, "list.2.port"), 7u);
    EXPECT_EQ(clparse_get_node(tree, "list."), nullptr);
    EXPECT_EQ(clparse_get_node(tree, "list.x"), nullptr);
}

TEST(CorelinkLookup, TreatsAnEmptySegmentAsTheEmptyName)
{
    const Tree tree{structure("", {number("", 5)}), structure("a", {number("b", 6)})};
    EXPECT_EQ(clparse_get_type(tree, "%s", ""), kStruct);
    EXPECT_EQ(number_at(tree, "."), 5u);
    EXPECT_EQ(clparse_get_node(tree, "a."), nullptr);
    EXPECT_EQ(clparse_get_node(tree, "a..b"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, ".a"), nullptr);
}

TEST(CorelinkLookup, FindsNothingInAnEmptyTree)
{
    const Tree tree;
    EXPECT_EQ(clparse_get_node(tree, "a"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, "0"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, ""), nullptr);
}

TEST(CorelinkLookup, FindsNothingBelowALeaf)
{
    const Tree tree{number("a", 1), string("b", "text")};
    EXPECT_EQ(clparse_get_node(tree, "a.b"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, "b.0"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, "a."), nullptr);
}

TEST(CorelinkLookup, TriesNoLaterSiblingWhenTheFirstHasNotTheRestOfThePath)
{
    const Tree tree{structure("a", {number("b", 1)}), structure("a", {number("c", 2)})};
    EXPECT_EQ(number_at(tree, "a.b"), 1u);
    EXPECT_EQ(clparse_get_node(tree, "a.c"), nullptr);
    const Tree leaf_first{number("a", 1), structure("a", {number("c", 2)})};
    EXPECT_EQ(clparse_get_node(leaf_first, "a.c"), nullptr);
}

TEST(CorelinkLookup, DoesNotResolveFunctionNodes)
{
    const Tree result{number("b", 1)};
    Yield yield{result.root()};
    const Tree tree{yield.node("f")};
    EXPECT_EQ(clparse_get_node(tree, "f"), tree.at("0"));
    EXPECT_EQ(clparse_get_type(tree, "f"), kFunction);
    EXPECT_EQ(clparse_get_node(tree, "f.b"), nullptr);
    EXPECT_EQ(yield.calls, "");
}

TEST(CorelinkLookup, RefusesNullArguments)
{
    const Tree tree{number("a", 1)};
    EXPECT_EQ(clparse_get_node(nullptr, "a"), nullptr);
    EXPECT_EQ(clparse_get_node(tree, nullptr), nullptr);
    EXPECT_EQ(clparse_get_tagtype(nullptr, "a", kAny), nullptr);
    EXPECT_EQ(clparse_get_tagtype(tree.root(), nullptr, kAny), nullptr);
}

TEST(CorelinkLookup, FollowsAVeryLongPathWithoutRecursion)
{
    constexpr int kDepth = 100'000;
    const Tree tree;
    Node *inner = tree.root();
    std::string path;
    for (int i = 0; i < kDepth; ++i) {
        Node *const next = structure("a");
        clparse_append_child(inner, next);
        inner = next;
        path += "a.";
    }
    clparse_append_child(inner, number("end", 9));
    EXPECT_EQ(number_at(tree, (path + "end").c_str()), 9u);
}

// ---------------------------------------------------------------- lookup by type

TEST(CorelinkTagtype, LooksUnderTheGivenContainer)
{
    const Tree tree{structure("a", {structure("b", {number("c", 3)})})};
    Node *const inner = tree.at("a");
    EXPECT_EQ(clparse_get_tagtype(inner, "b.c", kNumber), tree.at("a.b.c"));
    EXPECT_EQ(clparse_get_tagtype(inner, "a", kAny), nullptr);
    EXPECT_EQ(clparse_get_tagtype(tree.at("a.b.c"), "c", kAny), nullptr) << "a leaf has no members";
}

TEST(CorelinkTagtype, TakesTheFirstSiblingOfTheWantedType)
{
    const Tree tree{string("x", "text"), number("x", 2), boolean("x", 1), number("x", 3)};
    EXPECT_EQ(string_at(tree, "x"), "text");
    EXPECT_EQ(number_at(tree, "x"), 2u);
    unsigned char flag = 0;
    EXPECT_EQ(clparse_get_bool(tree, &flag, "x"), 0);
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "x", kStruct), nullptr);
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "x", kAny), tree.at("0"));
}

TEST(CorelinkTagtype, GoesOnPastTheWrongTypeAlsoAtADeeperLevel)
{
    const Tree tree{structure("a", {string("x", "text"), number("y", 1), number("x", 2)}),
                    number("x", 3)};
    EXPECT_EQ(number_at(tree, "a.x"), 2u);
}

TEST(CorelinkTagtype, EndsWithTheDeeperLevelWhenNothingThereHasTheType)
{
    const Tree tree{structure("a", {string("x", "text"), number("y", 1)}), number("x", 3),
                    structure("a", {number("x", 4)})};
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "a.x", kNumber), nullptr);
}

TEST(CorelinkTagtype, GivesAPositionOneChance)
{
    const Tree tree{string("x", "text"), number("x", 2)};
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "0", kNumber), nullptr);
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "1", kNumber), tree.at("1"));
}

TEST(CorelinkTagtype, AppliesTheTypeToTheEndOfThePathOnly)
{
    const Tree tree{structure("a", {structure("a", {number("a", 1)})})};
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "a.a.a", kNumber), tree.at("a.a.a"));
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "a.a", kStruct), tree.at("a.a"));
}

TEST(CorelinkTagtype, FindsNullNodesAndFunctionNodesByTheirTypes)
{
    Yield yield;
    const Tree tree{number("x", 1), null("xx"), yield.node("x")};
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "xx", kNull), tree.at("1"));
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "x", kFunction), tree.at("2"));
    EXPECT_EQ(clparse_get_tagtype(tree.root(), "x", kNull), nullptr);
}

// ---------------------------------------------------------------- typed getters

TEST(CorelinkGetType, GivesTheTypeOfTheNodeAtThePath)
{
    const Tree tree{structure("a", {string("b", "text"), number("c", 1)})};
    EXPECT_EQ(clparse_get_type(tree, "a.c"), kNumber);
    EXPECT_EQ(clparse_get_type(tree, "%s.%c", "a", 'b'), kString);
    EXPECT_EQ(clparse_get_type(tree, "a.%d", 1), kNumber);
    EXPECT_EQ(clparse_get_type(tree, "%s", "a"), kStruct);
}

TEST(CorelinkGetType, GivesMinusOneForNoNodeAndNoTree)
{
    const Tree tree{null("none")};
    EXPECT_EQ(clparse_get_type(tree, "none"), kNull);
    EXPECT_EQ(clparse_get_type(tree, "other"), -1);
    EXPECT_EQ(clparse_get_type(nullptr, "none"), -1);
}

TEST(CorelinkGetType, ReadsAPercentSignWrittenTwiceAsOne)
{
    const Tree tree{number("half%", 1)};
    EXPECT_EQ(clparse_get_type(tree, "half%%"), kNumber);
}

TEST(CorelinkGetType, TakesPathsOfAnyLength)
{
    for (const size_t length : {254u, 255u, 256u, 257u, 5000u}) {
        const std::string tag(length, 't');
        const Tree tree{number(tag.c_str(), length)};
        EXPECT_EQ(clparse_get_type(tree, "%s", tag.c_str()), kNumber) << length;
        EXPECT_EQ(number_at(tree, tag.c_str()), length);
    }
}

TEST(CorelinkGetType, GivesMinusOneForAPathThatCannotBeFormatted)
{
    const Tree tree{number("a", 1)};
    const wchar_t unprintable[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    EXPECT_EQ(clparse_get_type(tree, "%ls", unprintable), -1);
}

TEST(CorelinkGetTag, GivesTheNodesOwnTag)
{
    const Tree tree{structure("outer", {number("inner", 1)})};
    char *tag = nullptr;
    EXPECT_EQ(clparse_get_tag(tree, &tag, "0.%d", 0), 0);
    EXPECT_STREQ(tag, "inner");
    EXPECT_EQ(tag, tree.at("outer.inner")->tag);
}

TEST(CorelinkGetTag, GivesNullForANodeWithoutATag)
{
    const Tree tree("list=[1]");
    char untouched[] = "x", *tag = untouched;
    EXPECT_EQ(clparse_get_tag(tree, &tag, "list.0"), 0);
    EXPECT_EQ(tag, nullptr);
}

TEST(CorelinkGetTag, LeavesItsOutputAloneWhenNothingIsFound)
{
    const Tree tree;
    char untouched[] = "x", *tag = untouched;
    EXPECT_EQ(clparse_get_tag(tree, &tag, "none"), -1);
    EXPECT_EQ(clparse_get_tag(nullptr, &tag, "none"), -1);
    EXPECT_EQ(tag, untouched);
}

TEST(CorelinkGetBool, GivesTheByteOfABoolean)
{
    const Tree tree{
        structure("opts", {boolean("on", 1), boolean("off", 0), boolean("odd", 0x102)})};
    unsigned char value = 77;
    EXPECT_EQ(clparse_get_bool(tree, &value, "opts.%s", "on"), 0);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(clparse_get_bool(tree, &value, "opts.off"), 0);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(clparse_get_bool(tree, &value, "opts.odd"), 0);
    EXPECT_EQ(value, 2);
}

TEST(CorelinkGetBool, LeavesItsOutputAloneWhenThereIsNoBoolean)
{
    const Tree tree{number("a", 1)};
    unsigned char value = 77;
    EXPECT_EQ(clparse_get_bool(tree, &value, "a"), -1);
    EXPECT_EQ(clparse_get_bool(tree, &value, "b"), -1);
    EXPECT_EQ(clparse_get_bool(nullptr, &value, "a"), -1);
    EXPECT_EQ(value, 77);
}

TEST(CorelinkGetNumber, GivesAll64Bits)
{
    const Tree tree{number("big", UINT64_MAX), number("half", 0x1'0000'0000)};
    uint64_t value = 0;
    EXPECT_EQ(clparse_get_number(tree, &value, "big"), 0);
    EXPECT_EQ(value, UINT64_MAX);
    EXPECT_EQ(clparse_get_number(tree, &value, "%s", "half"), 0);
    EXPECT_EQ(value, 0x1'0000'0000u);
}

TEST(CorelinkGetNumber, LeavesItsOutputAloneWhenThereIsNoNumber)
{
    const Tree tree{string("a", "1")};
    uint64_t value = 77;
    EXPECT_EQ(clparse_get_number(tree, &value, "a"), -1);
    EXPECT_EQ(clparse_get_number(tree, &value, "b"), -1);
    EXPECT_EQ(clparse_get_number(nullptr, &value, "a"), -1);
    EXPECT_EQ(value, 77u);
}

TEST(CorelinkGetString, GivesACopyThatTheCallerReleases)
{
    const Tree tree{string("a", "the text")};
    char *value = nullptr;
    EXPECT_EQ(clparse_get_string(tree, &value, "a"), 0);
    EXPECT_STREQ(value, "the text");
    EXPECT_NE(value, clparse_get_node_value_s(tree.at("a")));
    vn_memcheck_free(vn_free, value, "test:1");
}

TEST(CorelinkGetString, ClearsItsOutputWhenThereIsNoString)
{
    const Tree tree{number("a", 1)};
    char untouched[] = "x";
    for (clparse_head *head :
         {static_cast<clparse_head *>(tree), static_cast<clparse_head *>(nullptr)}) {
        char *value = untouched;
        EXPECT_EQ(clparse_get_string(head, &value, "a"), -1);
        EXPECT_EQ(value, nullptr);
    }
    char *value = untouched;
    EXPECT_EQ(clparse_get_string(tree, &value, "none"), -1);
    EXPECT_EQ(value, nullptr);
}

TEST(CorelinkGetString, SucceedsWithNullForAnAbsentText)
{
    const Tree tree{textless("a")};
    char untouched[] = "x", *value = untouched;
    EXPECT_EQ(clparse_get_string(tree, &value, "a"), 0);
    EXPECT_EQ(value, nullptr);
}

TEST(CorelinkGetString, TellsOnlyTheResultWithoutAPlaceForTheCopy)
{
    const Tree tree{string("a", "text")};
    EXPECT_EQ(clparse_get_string(tree, nullptr, "a"), 0);
    EXPECT_EQ(clparse_get_string(tree, nullptr, "b"), -1);
    EXPECT_EQ(clparse_get_string(nullptr, nullptr, "a"), -1);
}

TEST(CorelinkGetString, GivesTheEmptyText)
{
    const Tree tree{string("a", "")};
    EXPECT_EQ(string_at(tree, "a"), "");
}

TEST(CorelinkGetters, RefuseANullPathAndANullOutput)
{
    const Tree tree{number("n", 1), boolean("b", 1), string("s", "t")};
    const char *const none = nullptr;
    char *text = nullptr;
    unsigned char flag = 0;
    uint64_t value = 0;
    EXPECT_EQ(clparse_get_type(tree, none), -1);
    EXPECT_EQ(clparse_get_tag(tree, &text, none), -1);
    EXPECT_EQ(clparse_get_bool(tree, &flag, none), -1);
    EXPECT_EQ(clparse_get_number(tree, &value, none), -1);
    EXPECT_EQ(clparse_get_string(tree, &text, none), -1);
    EXPECT_EQ(clparse_get_tag(tree, nullptr, "n"), -1);
    EXPECT_EQ(clparse_get_bool(tree, nullptr, "b"), -1);
    EXPECT_EQ(clparse_get_number(tree, nullptr, "n"), -1);
}

// ---------------------------------------------------------------- listing

TEST(CorelinkGetPath, ListsTheMembersOfAContainer)
{
    const Tree tree{structure("a", {string("b", "text"), number("c", 1)}),
                    array("list", {number("x", 1), structure("y", {number("z", 2)})})};
    EXPECT_EQ(listing(tree, "a"), "a.b,a.c");
    EXPECT_EQ(listing(tree, "list"), "list.x,list.y");
    EXPECT_EQ(listing(tree, "list.y"), "list.y.z");
}

TEST(CorelinkGetPath, PrefixesThePathAsItWasGiven)
{
    const Tree tree{structure("a", {structure("b", {number("c", 1), number("d", 1)})})};
    EXPECT_EQ(listing(tree, "0.b"), "0.b.c,0.b.d");
    EXPECT_EQ(listing(tree, "0x.0"), "0x.0.c,0x.0.d");
}

TEST(CorelinkGetPath, GivesALeafsOwnTag)
{
    const Tree tree{structure("a", {string("b", "text")}), null("none")};
    EXPECT_EQ(listing(tree, "a.b"), "b");
    EXPECT_EQ(listing(tree, "0.0"), "b");
    EXPECT_EQ(listing(tree, "none"), "none");
}

TEST(CorelinkGetPath, GivesTheEmptyTextForNothingAndForAnEmptyContainer)
{
    const Tree tree{structure("a"), array("b")};
    EXPECT_EQ(listing(tree, "none"), "");
    EXPECT_EQ(listing(tree, "a"), "");
    EXPECT_EQ(listing(tree, "b"), "");
}

TEST(CorelinkGetPath, NamesElementsWithoutTagsByPosition)
{
    const Tree tree("list=[5,{port=6},[7]]");
    EXPECT_EQ(listing(tree, "list"), "list.0,list.1,list.2");
    EXPECT_EQ(listing(tree, "list.1"), "list.1.port");
    EXPECT_EQ(listing(tree, "list.0"), "0");
    EXPECT_EQ(listing(tree, "list.2.00"), "0");
}

TEST(CorelinkGetPath, ListsWhatAFunctionNodeYields)
{
    const Tree result{structure("hidden", {number("b", 1), number("c", 2)})};
    Yield yield{result.at("hidden")};
    const Tree tree{structure("a", {yield.node("f")})};
    EXPECT_EQ(listing(tree, "a.f"), "a.f.b,a.f.c");
    EXPECT_EQ(yield.calls, "+f-f");
}

TEST(CorelinkGetPath, GivesTheTagOfALeafThatAFunctionNodeYields)
{
    const Tree result{number("hidden", 1)};
    Yield yield{result.at("hidden")};
    yield.release_result = 1; // of no interest to a listing
    const Tree tree{yield.node("f")};
    EXPECT_EQ(listing(tree, "f"), "hidden");
    EXPECT_EQ(yield.calls, "+f-f");
}

TEST(CorelinkGetPath, GivesTheEmptyTextWhenAFunctionNodeYieldsNothing)
{
    Yield yield;
    const Tree tree{yield.node("f"),
                    clparse_create_function_node("g", nullptr, nullptr, nullptr, nullptr)};
    EXPECT_EQ(listing(tree, "f"), "");
    EXPECT_EQ(yield.calls, "+f-f");
    EXPECT_EQ(listing(tree, "g"), "");
}

TEST(CorelinkGetPath, NamesAFunctionNodeAmongTheMembersWithoutResolvingIt)
{
    Yield yield;
    const Tree tree{structure("a", {yield.node("f"), number("b", 1)})};
    EXPECT_EQ(listing(tree, "a"), "a.f,a.b");
    EXPECT_EQ(yield.calls, "");
}

TEST(CorelinkGetPath, RefusesNullArguments)
{
    const Tree tree;
    EXPECT_EQ(clparse_get_path(nullptr, "a"), nullptr);
    EXPECT_EQ(clparse_get_path(tree, nullptr), nullptr);
}

TEST(CorelinkGetPath, ListsManyMembers)
{
    const Tree tree;
    Node *const many = tree.add(structure("many"));
    std::string expected;
    for (int i = 0; i < 20'000; ++i) {
        const std::string tag = "m" + std::to_string(i);
        clparse_append_child(many, number(tag.c_str(), 1));
        expected += (i != 0 ? ",many." : "many.") + tag;
    }
    EXPECT_EQ(listing(tree, "many"), expected);
}

TEST(CorelinkGetPath, IsABlockOfItsExactSizeChargedWhereStringsGrow)
{
    EXPECT_EQ(test::charge_of([] { return clparse_get_path(Tree("box={aa=1,bb=2}"), "box"); }),
              "vn_vaasprintf LINE:43, Size:14");
    EXPECT_THAT(test::charge_of([] { return clparse_get_path(Tree(), "none"); }),
                testing::MatchesRegex("clparse_get_path LINE:[0-9]+, Size:1"));
}

// ---------------------------------------------------------------- memory

TEST(CorelinkGetters, LeaveNothingBehindButTheCopyOfAText)
{
    EXPECT_EQ(test::left_behind_by([] {
                  const Tree tree("box={aa=1,bb=\"text\",cc=true}");
                  const std::string long_path = "box." + std::string(1000, 'x');
                  char *text = nullptr;
                  clparse_get_type(tree, "%s", long_path.c_str());
                  clparse_get_tag(tree, &text, "box.%s", "aa");
                  number_at(tree, "box.aa");
                  number_at(tree, "box.bb");
                  string_at(tree, "box.bb");
                  listing(tree, "box");
              }),
              0);
}

TEST(CorelinkGetString, ChargesTheCopyToItself)
{
    EXPECT_THAT(test::charge_of([] {
                    char *text = nullptr;
                    clparse_get_string(Tree("aa=\"text\""), &text, "aa");
                    return text;
                }),
                testing::MatchesRegex("clparse_get_string LINE:[0-9]+, Size:5"));
}

// ---------------------------------------------------------------- array text

// A text in a tracked block, as the growing mode wants it.
char *tracked(const char *text)
{
    return strcpy(static_cast<char *>(vn_memcheck_malloc(malloc, strlen(text) + 1, "test", 1)),
                  text);
}

TEST(CorelinkArrayText, GrowsFromAnEmptyArray)
{
    char *text = tracked("[]");
    EXPECT_EQ(cl_cat_array_element(&text, 0, "%d", 1), 0);
    EXPECT_STREQ(text, "[1]");
    EXPECT_EQ(cl_cat_array_element(&text, 0, "%d", 2), 0);
    EXPECT_STREQ(text, "[1,2]");
    EXPECT_EQ(cl_cat_array_element(&text, 0, "\"%s\"", std::string(1000, 'x').c_str()), 0);
    EXPECT_EQ(take(text), "[1,2,\"" + std::string(1000, 'x') + "\"]");
}

TEST(CorelinkArrayText, RefusesATextThatIsNoArrayAndLeavesItAlone)
{
    for (const char *const wrong : {"abc", "[1", "[1] ", "", "]x"}) {
        char *text = tracked(wrong);
        EXPECT_EQ(cl_cat_array_element(&text, 0, "1"), -1) << wrong;
        EXPECT_EQ(take(text), wrong);
        char fixed[32] = "";
        strcpy(fixed, wrong);
        char *place = fixed;
        EXPECT_EQ(cl_cat_array_element(&place, sizeof fixed, "1"), -1) << wrong;
        EXPECT_STREQ(fixed, wrong);
    }
}

TEST(CorelinkArrayText, TakesALoneBracketForTheEndOfALongerText)
{
    char *text = tracked("]");
    EXPECT_EQ(cl_cat_array_element(&text, 0, "1"), 0);
    EXPECT_EQ(take(text), ",1]");
}

TEST(CorelinkArrayText, FillsAFixedBuffer)
{
    char buffer[16] = "[]", *text = buffer;
    EXPECT_EQ(cl_cat_array_element(&text, sizeof buffer, "%d", 1), 0);
    EXPECT_STREQ(buffer, "[1]");
    EXPECT_EQ(cl_cat_array_element(&text, sizeof buffer, "%d", 2), 0);
    EXPECT_STREQ(buffer, "[1,2]");
    EXPECT_EQ(text, buffer);
}

TEST(CorelinkArrayText, LeavesTheTextOpenWhenAnElementDoesNotFit)
{
    char buffer[8] = "[1]", *text = buffer;
    EXPECT_EQ(cl_cat_array_element(&text, 5, "%s", "22"), -1);
    EXPECT_STREQ(buffer, "[1,");
    char empty[8] = "[]";
    text = empty;
    EXPECT_EQ(cl_cat_array_element(&text, 4, "22"), -1);
    EXPECT_STREQ(empty, "[");
}

TEST(CorelinkArrayText, NeedsTwoMoreThanTextAndElement)
{
    char buffer[16] = "[1]", *text = buffer;
    EXPECT_EQ(cl_cat_array_element(&text, 7, "22"), 0) << "3 for [1, and 2 and 2";
    EXPECT_STREQ(buffer, "[1,22]");
    char tight[16] = "[1]";
    text = tight;
    EXPECT_EQ(cl_cat_array_element(&text, 6, "22"), -1);
    EXPECT_STREQ(tight, "[1,");
}

TEST(CorelinkArrayText, WritesNoTerminatorBehindTheBracketInAFixedBuffer)
{
    char buffer[8];
    memset(buffer, 'z', sizeof buffer);
    strcpy(buffer, "[]");
    char *text = buffer;
    EXPECT_EQ(cl_cat_array_element(&text, sizeof buffer, "12"), 0);
    EXPECT_EQ(std::string(buffer, sizeof buffer), "[12]zzzz");
}

TEST(CorelinkArrayText, TakesAnEmptyElement)
{
    char buffer[8] = "[]", *text = buffer;
    EXPECT_EQ(cl_cat_array_element(&text, sizeof buffer, "%s", ""), 0);
    EXPECT_STREQ(buffer, "[]");
    strcpy(buffer, "[1]");
    EXPECT_EQ(cl_cat_array_element(&text, sizeof buffer, "%s", ""), 0);
    EXPECT_STREQ(buffer, "[1,]");
    text = tracked("[1]");
    EXPECT_EQ(cl_cat_array_element(&text, 0, "%s", ""), 0) << "also where it grows";
    EXPECT_EQ(take(text), "[1,]");
}

TEST(CorelinkArrayText, RefusesNullArguments)
{
    char *none = nullptr;
    const char *const no_format = nullptr;
    char buffer[8] = "[]", *text = buffer;
    EXPECT_EQ(cl_cat_array_element(nullptr, 0, "1"), -1);
    EXPECT_EQ(cl_cat_array_element(&none, 0, "1"), -1);
    EXPECT_EQ(cl_cat_array_element(&text, sizeof buffer, no_format), -1);
    EXPECT_STREQ(buffer, "[]");
}

TEST(CorelinkArrayText, GivesMinusOneForAnElementThatCannotBeFormatted)
{
    const wchar_t unprintable[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
    char buffer[16] = "[1]", *text = buffer;
    EXPECT_EQ(cl_cat_array_element(&text, sizeof buffer, "%ls", unprintable), -1);
    EXPECT_STREQ(buffer, "[1,");
    text = tracked("[1]");
    EXPECT_EQ(cl_cat_array_element(&text, 0, "%ls", unprintable), -1);
    take(text);
}

TEST(CorelinkArrayText, ComposesAPathsValueThatParses)
{
    char *text = tracked("[]");
    for (int i = 0; i < 3; ++i) ASSERT_EQ(cl_cat_array_element(&text, 0, "%d", i * i), 0);
    const Tree tree("list=" + *take(text));
    EXPECT_EQ(number_at(tree, "list.2"), 4u);
}

} // namespace
