// A corelink tree as corelink text: the compact form that parses again, and the list of paths.
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/corelink_tree.h"
#include "support/small_stack.h"
#include "support/tracked.h"
#include "vnlib/corelink.h"

namespace {

using namespace test::trees;

// ---------------------------------------------------------------- compact form

TEST(CorelinkText, WritesAnEmptyTreeAsTheEmptyText)
{
    const Tree tree;
    for (const int path_mode : {0, 1}) {
        char *text = nullptr;
        EXPECT_EQ(clparse_get_corelink(tree, &text, static_cast<unsigned char>(path_mode)), 0);
        EXPECT_EQ(take(text), "");
    }
}

TEST(CorelinkText, WritesMembersWithTagsAndElementsWithout)
{
    const Tree tree{number("count", 3), structure("opts", {boolean("on", 1)}),
                    array("list", {number("x", 1), number("y", 2)})};
    EXPECT_EQ(text_of(tree), "count=3,opts={on=true},list=[1,2]");
}

TEST(CorelinkText, WritesEachKindOfNodeInAStructAndInAnArray)
{
    const struct {
        Node *(*make)();
        const char *member, *element, *path;
    } kRows[] = {
        {[] { return string("s", "text"); }, "s=\"text\"", "\"text\"", "s=\"text\""},
        {[] { return string("s", ""); }, "s=\"\"", "\"\"", "s=\"\""},
        {[] { return number("n", 5); }, "n=5", "5", "n=llu"},
        {[] { return number("n", UINT64_MAX); }, "n=18446744073709551615", "18446744073709551615",
         "n=llu"},
        {[] { return boolean("b", 1); }, "b=true", "true", "b=llu"},
        {[] { return boolean("b", 0); }, "b=false", "false", "b=llu"},
        {[] { return boolean("b", 128); }, "b=true", "true", "b=llu"},
        {[] { return structure("e"); }, "e={}", "{}", ""},
        {[] { return array("a"); }, "a=[]", "[]", ""},
        {[] { return null("none"); }, "none", "", "none"},
    };
    for (const auto &row : kRows) {
        const Tree member{row.make()};
        EXPECT_EQ(text_of(member), row.member);
        EXPECT_EQ(paths_of(member), row.path);
        const Tree element{array("a", {row.make()})};
        EXPECT_EQ(text_of(element), std::string("a=[") + row.element + "]");
    }
}

TEST(CorelinkText, EscapesQuotesInStrings)
{
    const Tree tree{string("s", "say \"hi\" \\ 'there'\n<&>")};
    EXPECT_EQ(text_of(tree), "s=\"say \\\"hi\\\" \\ 'there'\n<&>\"");
    EXPECT_EQ(paths_of(tree), "s=\"say \\\"hi\\\" \\ 'there'\n<&>\"");
}

TEST(CorelinkText, SeparatesMembersAlsoWhereOneWritesNothing)
{
    const Tree tree{array("a", {null("none"), number("n", 1), null("none")})};
    EXPECT_EQ(text_of(tree), "a=[,1,]");
}

TEST(CorelinkText, NestsStructsAndArrays)
{
    const Tree tree{structure("a", {array("b", {structure("c", {number("d", 1), array("e")}),
                                                array("f", {number("g", 2)})}),
                                    number("h", 3)})};
    EXPECT_EQ(text_of(tree), "a={b=[{d=1,e=[]},[2]],h=3}");
}

TEST(CorelinkText, KeepsMembersWithTheSameTagInOrder)
{
    const Tree tree{number("x", 2), number("x", 1)};
    EXPECT_EQ(text_of(tree), "x=2,x=1");
}

TEST(CorelinkText, WritesTagsAsTheyAre)
{
    const Tree tree{number("a \"b\".c", 1)};
    EXPECT_EQ(text_of(tree), "a \"b\".c=1");
}

TEST(CorelinkText, WritesNodesOfUnknownTypesAsNull)
{
    const Tree tree{number("n", 1)};
    tree.at("n")->type = 77;
    EXPECT_EQ(text_of(tree), "n");
}

TEST(CorelinkText, ShowsAMissingTagOutsideAnArrayAsPrintfDoes)
{
    const Tree tree{untagged("1")};
    EXPECT_EQ(text_of(tree), "(null)=1");
}

TEST(CorelinkText, StoresNullAndFailsForAStringWithoutText)
{
    const Tree tree{number("n", 1), structure("s", {textless("t")}), number("m", 2)};
    for (const int path_mode : {0, 1}) {
        char untouched[] = "x", *text = untouched;
        EXPECT_EQ(clparse_get_corelink(tree, &text, static_cast<unsigned char>(path_mode)), -1);
        EXPECT_EQ(text, nullptr);
    }
}

TEST(CorelinkText, RefusesNullArguments)
{
    const Tree tree;
    char untouched[] = "x", *text = untouched;
    EXPECT_EQ(clparse_get_corelink(nullptr, &text, 0), -1);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(clparse_get_corelink(tree, nullptr, 0), -1);
}

// ---------------------------------------------------------------- paths

TEST(CorelinkPaths, WritesEveryLeafByItsPath)
{
    const Tree tree{number("count", 3),
                    structure("opts", {boolean("on", 1), structure("deep", {string("s", "t")})}),
                    null("flag")};
    EXPECT_EQ(paths_of(tree), "count=llu,opts.on=llu,opts.deep.s=\"t\",flag");
}

TEST(CorelinkPaths, KeepsTheTagsOfArrayMembers)
{
    const Tree tree{array("a", {boolean("p", 1), boolean("q", 0)})};
    EXPECT_EQ(text_of(tree), "a=[true,false]");
    EXPECT_EQ(paths_of(tree), "a.p=llu,a.q=llu");
}

TEST(CorelinkPaths, WritesThePathOfANullNodeInAnArray)
{
    const Tree tree{array("a", {null("none")})};
    EXPECT_EQ(paths_of(tree), "a.none");
}

TEST(CorelinkPaths, NamesElementsWithoutTagsByPosition)
{
    const Tree tree("list=[1,\"two\",{port=3},[true,[false]]],last=4");
    EXPECT_EQ(paths_of(tree),
              "list.0=llu,list.1=\"two\",list.2.port=llu,list.3.0=llu,list.3.1.0=llu,last=llu");
}

TEST(CorelinkPaths, WritesPathsThatCanBeLookedUp)
{
    const Tree tree("list=[1,[2,{port=3}]],opts={deep={on=4}}");
    std::string path, all = *paths_of(tree);
    size_t leaves = 0;
    for (size_t end; (end = all.find("=llu")) != std::string::npos; all.erase(0, end + 5)) {
        uint64_t value = 0;
        EXPECT_EQ(clparse_get_number(tree, &value, "%s", all.substr(0, end).c_str()), 0);
        EXPECT_EQ(value, ++leaves);
        if (end + 5 > all.size()) break;
    }
    EXPECT_EQ(leaves, 4u);
}

TEST(CorelinkPaths, SeparatesMembersAlsoAroundEmptyContainers)
{
    const Tree tree{number("a", 1), structure("e"), number("b", 2), array("f")};
    EXPECT_EQ(paths_of(tree), "a=llu,,b=llu,");
}

TEST(CorelinkPaths, KeepsAnEmptyTagAsASegment)
{
    const Tree tree{structure("", {number("x", 1), structure("", {number("y", 2)})})};
    EXPECT_EQ(paths_of(tree), ".x=llu,..y=llu");
}

TEST(CorelinkPaths, TakesAnyNonZeroValueForTheMode)
{
    const Tree tree{number("a", 1)};
    char *text = nullptr;
    EXPECT_EQ(clparse_get_corelink(tree, &text, 200), 0);
    EXPECT_EQ(take(text), "a=llu");
}

// ---------------------------------------------------------------- function nodes

TEST(CorelinkTextFunction, WritesTheMembersOfTheResultWithoutANameOrBrackets)
{
    const Tree result{structure("hidden", {number("b", 1), structure("c", {number("d", 2)})})};
    Yield yield{result.at("hidden")};
    const Tree tree{number("a", 0), yield.node("f"), number("z", 9)};
    EXPECT_EQ(text_of(tree), "a=0,b=1,c={d=2},z=9");
    EXPECT_EQ(yield.calls, "+f-f");
}

TEST(CorelinkTextFunction, WritesTheElementsOfAnArrayWithoutTags)
{
    const Tree result{array("hidden", {number("b", 1), number("c", 2)})};
    Yield yield{result.at("hidden")};
    const Tree tree{structure("s", {yield.node("f"), number("z", 9)})};
    EXPECT_EQ(text_of(tree), "s={1,2,z=9}");
}

TEST(CorelinkTextFunction, WritesAStructsMembersWithTagsAlsoInsideAnArray)
{
    const Tree result{structure("hidden", {number("b", 1)})};
    Yield yield{result.at("hidden")};
    const Tree tree{array("a", {yield.node("f"), number("z", 9)})};
    EXPECT_EQ(text_of(tree), "a=[b=1,9]");
}

TEST(CorelinkTextFunction, PutsTheMembersUnderItsOwnPath)
{
    const Tree result{structure("hidden", {number("b", 1), structure("c", {number("d", 2)})})};
    Yield yield{result.at("hidden")};
    const Tree tree{structure("s", {yield.node("f")}), number("z", 9)};
    EXPECT_EQ(paths_of(tree), "s.f.b=llu,s.f.c.d=llu,z=llu");
}

TEST(CorelinkTextFunction, WritesNothingButTheSeparatorsForAnEmptyResult)
{
    const Tree result{structure("empty"), number("leaf", 5), string("text", "t")};
    Yield nothing, empty{result.at("empty")}, leaf{result.at("leaf")}, text{result.at("text")};
    const Tree tree{nothing.node("f"), number("a", 1), empty.node("g"), leaf.node("h"),
                    text.node("i")};
    EXPECT_EQ(text_of(tree), ",a=1,,,");
    EXPECT_EQ(paths_of(tree), ",a=llu,,,");
    EXPECT_EQ(nothing.calls, "+f-f+f-f") << "also a result of nothing is released";
    EXPECT_EQ(leaf.calls, "+h-h+h-h");
}

TEST(CorelinkTextFunction, DoesWithoutCallbacks)
{
    const Tree result{structure("hidden", {number("b", 1)})};
    Yield yield{result.at("hidden")};
    const Tree tree{clparse_create_function_node("f", nullptr, nullptr, nullptr, nullptr),
                    clparse_create_function_node("g", Yield::resolve, nullptr, nullptr, &yield),
                    clparse_create_function_node("h", nullptr, nullptr, Yield::release, &yield)};
    EXPECT_EQ(text_of(tree), ",b=1,");
    EXPECT_EQ(yield.calls, "+g-h");
}

TEST(CorelinkTextFunction, ReleasesEachResultBeforeTheNextMember)
{
    const Tree leaves{structure("one", {number("b", 1)}), structure("two", {number("c", 2)})};
    Yield first{leaves.at("one")}, second{leaves.at("two")};
    std::string calls;
    const Tree tree{first.node("f"), second.node("g")};
    EXPECT_EQ(text_of(tree), "b=1,c=2");
    EXPECT_EQ(first.calls + second.calls, "+f-f+g-g");
}

TEST(CorelinkTextFunction, ResolvesFunctionNodesInsideResults)
{
    const Tree leaves{structure("inner", {number("c", 2)})};
    Yield inner{leaves.at("inner")};
    const Tree outer_result{structure("outer", {number("b", 1), inner.node("g")})};
    Yield outer{outer_result.at("outer")};
    const Tree tree{outer.node("f")};
    EXPECT_EQ(text_of(tree), "b=1,c=2");
    EXPECT_EQ(paths_of(tree), "f.b=llu,f.g.c=llu");
    EXPECT_EQ(outer.calls + inner.calls, "+f-f+f-f+g-g+g-g");
}

TEST(CorelinkTextFunction, IgnoresTheResultOfTheReleaseCallback)
{
    const Tree result{structure("hidden", {number("b", 1)})};
    Yield yield{result.at("hidden"), 1};
    const Tree tree{yield.node("f"), number("z", 9)};
    EXPECT_EQ(text_of(tree), "b=1,z=9");
}

TEST(CorelinkTextFunction, ReleasesTheResultAlsoWhenTheTextFails)
{
    const Tree leaves{structure("inner", {textless("t")})};
    Yield inner{leaves.at("inner")};
    const Tree outer_result{structure("outer", {structure("s", {inner.node("g")})})};
    Yield outer{outer_result.at("outer")}, later;
    const Tree tree{outer.node("f"), later.node("h")};
    EXPECT_EQ(text_of(tree), std::nullopt);
    EXPECT_EQ(outer.calls, "+f-f");
    EXPECT_EQ(inner.calls, "+g-g");
    EXPECT_EQ(later.calls, "") << "nothing is begun after a failure";
}

TEST(CorelinkTextFunction, DoesNotResolveAResultThatIsAFunctionNodeItself)
{
    Yield inner, outer;
    const Tree other{inner.node("g")};
    outer.result = other.at("g");
    const Tree tree{outer.node("f")};
    EXPECT_EQ(text_of(tree), "");
    EXPECT_EQ(inner.calls, "");
}

// ---------------------------------------------------------------- shared parts

TEST(CorelinkPaths, NamesMembersThatAnInsertSharesByTheTreeBeingWritten)
{
    const Tree source{structure("shared", {number("x", 1)})};
    {
        const Tree target;
        ASSERT_EQ(clparse_insert(target, source), 0);
        const Tree outer{structure("outer", {clparse_get_child(target.root())})};
        EXPECT_EQ(paths_of(outer), "outer.shared.x=llu");
    }
    EXPECT_EQ(paths_of(source), "shared.x=llu");
}

// ---------------------------------------------------------------- memory

TEST(CorelinkText, IsABlockOfItsExactSizeChargedWhereStringsGrow)
{
    const auto text_in = [](unsigned char path_mode, const char *source) {
        char *text = nullptr;
        clparse_get_corelink(Tree(source), &text, path_mode);
        return text;
    };
    const std::string wide = "wide=\"" + std::string(5000, 'x') + "\"";
    EXPECT_EQ(test::charge_of([&] { return text_in(0, "ab=1,cd={ef=2}"); }),
              "vn_vaasprintf LINE:43, Size:15");
    EXPECT_EQ(test::charge_of([&] { return text_in(1, "ab=1,cd={ef=2}"); }),
              "vn_vaasprintf LINE:43, Size:17");
    EXPECT_EQ(test::charge_of([&] { return text_in(0, wide.c_str()); }),
              "vn_vaasprintf LINE:43, Size:5008");
}

TEST(CorelinkText, IsChargedToItsWriterWhenNothingWasAppended)
{
    EXPECT_EQ(test::charge_of([] {
                  char *text = nullptr;
                  clparse_get_corelink(Tree(), &text, 0);
                  return text;
              }),
              "clparse_get_corelink LINE:829, Size:1");
}

TEST(CorelinkText, LeavesNothingBehindButTheText)
{
    EXPECT_EQ(test::left_behind_by([] {
                  const Tree tree("box={aa=\"say\",list=[1,2]}");
                  text_of(tree);
                  paths_of(tree);
                  clparse_set_node_value_s(tree.at("box.aa"), nullptr);
                  text_of(tree);
                  paths_of(tree);
              }),
              0);
}

// ---------------------------------------------------------------- size

TEST(CorelinkText, WritesAHundredThousandLevelsOnASmallStack)
{
    constexpr size_t kDepth = 100'000;
    const Tree tree;
    Node *inner = tree.root();
    std::string expected, path;
    for (size_t i = 0; i < kDepth; ++i) {
        Node *const next = i % 2 != 0 ? structure("ab") : array("ab");
        clparse_append_child(inner, next);
        inner = next;
        expected += i % 2 != 0 ? "{" : "ab=[";
        path += "ab.";
    }
    for (size_t i = kDepth; i-- > 0;) expected += i % 2 != 0 ? '}' : ']';
    clparse_append_child(inner, null("end"));
    std::optional<std::string> text, paths;
    test::on_small_stack([&] {
        text = text_of(tree);
        paths = paths_of(tree);
    });
    ASSERT_TRUE(text && paths);
    expected.insert(expected.find_first_of("]}"), "end");
    EXPECT_TRUE(*text == expected);
    EXPECT_TRUE(*paths == path + "end");
}

TEST(CorelinkText, WritesAMillionMembers)
{
    const Tree tree;
    std::string expected, paths;
    for (unsigned i = 0; i < 1'000'000; ++i) {
        clparse_append_child(tree.root(), number("n", i));
        expected += (i != 0 ? ",n=" : "n=") + std::to_string(i);
        paths += i != 0 ? ",n=llu" : "n=llu";
    }
    EXPECT_TRUE(text_of(tree) == expected);
    EXPECT_TRUE(paths_of(tree) == paths);
}

// ---------------------------------------------------------------- round trip

// A random text as the writer would write it: parser-reachable, with plain decimal numbers, no
// white space, no dotted names, and strings whose quotes need no second escape.
class RandomText {
public:
    explicit RandomText(unsigned seed) : random_(seed) {}

    std::string members(int depth, size_t least = 1)
    {
        std::string text;
        for (size_t n = least + random_() % 5; n > 0; --n) {
            text += tag();
            if (random_() % 8 != 0) text += "=" + value(depth);
            if (n > 1) text += ",";
        }
        return text;
    }

private:
    std::string value(int depth)
    {
        switch (random_() % (depth > 0 ? 6 : 4)) {
        case 0: return std::to_string(random_());
        case 1: return std::to_string(random64_());
        case 2: return random_() % 2 != 0 ? "true" : "false";
        case 3: return '"' + characters() + '"';
        case 4: return "{" + members(depth - 1) + "}";
        default: return "[" + elements(depth - 1) + "]";
        }
    }
    std::string elements(int depth)
    {
        std::string text = value(depth);
        for (size_t n = random_() % 5; n > 0; --n) text += "," + value(depth);
        return text;
    }
    std::string tag()
    {
        static const char *const kTags[] = {"ab",    "cd", "_1",  "name",
                                            "truex", "__", "Z9_", "falsey"};
        return kTags[random_() % 8];
    }
    std::string characters()
    {
        std::string text;
        for (size_t n = random_() % 12; n > 0; --n) {
            const char c = static_cast<char>(1 + random_() % 255);
            if (c == '"') continue;
            text += c;
            if (c == '\\') text += "n\\\\x"[random_() % 4 == 0 ? 0 : 3];
        }
        return text;
    }

    std::mt19937 random_;
    std::mt19937_64 random64_{5};
};

TEST(CorelinkText, ComesBackFromTheParserAsItWasWritten)
{
    RandomText texts(42);
    for (int i = 0; i < 12'000; ++i) {
        const std::string text = texts.members(4);
        const Tree tree(text);
        ASSERT_NE(static_cast<clparse_head *>(tree), nullptr) << text;
        ASSERT_EQ(text_of(tree), text);
    }
}

// ---------------------------------------------------------------- against a plain recursion

// Random nodes, with and without tags, function nodes among them.
class RandomNodes {
public:
    explicit RandomNodes(std::string &calls) : calls_(calls) {}

    void fill(Node *container, int depth)
    {
        for (size_t n = random_() % 5; n > 0; --n) clparse_append_child(container, node(depth));
    }

private:
    Node *node(int depth)
    {
        static const char *const kTags[] = {"a", "bb", "cd", "list"};
        const char *const tag = kTags[random_() % 4];
        switch (random_() % (depth > 0 ? 10 : 6)) {
        case 0: return string(tag, "say \"hi\"");
        case 1: return number(tag, random_());
        case 2: return boolean(tag, static_cast<int>(random_() % 2));
        case 3: return null("nothing");
        case 4: return untagged("12");
        case 5: return untagged("\"text\"");
        case 6: return function(depth);
        case 7: return filled(array(tag), depth);
        default: return filled(structure(tag), depth);
        }
    }
    Node *filled(Node *container, int depth)
    {
        fill(container, depth - 1);
        return container;
    }
    Node *function(int depth)
    {
        Node *const result = random_() % 6 != 0 ? results_.add(node(depth - 1)) : nullptr;
        yields_.push_back(std::make_unique<Yield>(result, random_() % 2 != 0 ? 1 : 0, &calls_));
        return yields_.back()->node(("f" + std::to_string(yields_.size())).c_str());
    }

    std::mt19937 random_{11};
    std::string &calls_;
    std::vector<std::unique_ptr<Yield>> yields_;
    const Tree results_; // owns what the functions yield
};

class PlainWriter {
public:
    explicit PlainWriter(bool paths) : paths_(paths) {}

    std::string members(const Node &container, const std::string &path)
    {
        std::string out;
        size_t position = 0;
        const Node *const list = container.value.children;
        for (const Node *node = list->next; node != list; node = node->next, ++position) {
            const std::string step = node->tag != nullptr ? node->tag : std::to_string(position);
            const std::string here = path.empty() ? step : path + "." + step;
            const bool unnamed = !paths_ && container.type == CLPARSE_ARRAY;
            const std::string tag = node->tag != nullptr ? node->tag : "(null)";
            if (position > 0) out += ",";
            out += member(*node, here, unnamed ? "" : paths_ ? here : tag);
        }
        return out;
    }

    std::string calls;

private:
    std::string member(const Node &node, const std::string &path, const std::string &name)
    {
        const std::string key = name.empty() ? "" : name + "=";
        switch (node.type) {
        case CLPARSE_STRING: return key + quoted(node.value.text);
        case CLPARSE_NUMBER: return key + (paths_ ? "llu" : std::to_string(node.value.number));
        case CLPARSE_BOOLEAN:
            return key + (paths_ ? "llu" : node.value.boolean != 0 ? "true" : "false");
        case CLPARSE_STRUCT:
            return paths_ ? members(node, path) : key + "{" + members(node, path) + "}";
        case CLPARSE_ARRAY:
            return paths_ ? members(node, path) : key + "[" + members(node, path) + "]";
        case CLPARSE_FUNCTION: return function(node, path);
        default: return name;
        }
    }
    // The two texts that the nodes have.
    static std::string quoted(const std::string &text)
    {
        return text == "text" ? R"("text")" : R"("say \"hi\"")";
    }
    std::string function(const Node &node, const std::string &path)
    {
        const Node *const result = static_cast<Yield *>(node.value.function.priv)->result;
        const bool has_members =
            result != nullptr && (result->type == CLPARSE_STRUCT || result->type == CLPARSE_ARRAY);
        calls += std::string("+") + node.tag;
        const std::string out = has_members ? members(*result, path) : "";
        calls += std::string("-") + node.tag;
        return out;
    }

    const bool paths_;
};

TEST(CorelinkText, IsWhatAPlainRecursionWrites)
{
    std::string calls;
    RandomNodes nodes(calls);
    for (int i = 0; i < 1000; ++i) {
        const Tree tree;
        nodes.fill(tree.root(), 4);
        for (const bool paths : {false, true}) {
            PlainWriter plain(paths);
            calls.clear();
            ASSERT_EQ(paths ? paths_of(tree) : text_of(tree), plain.members(*tree.root(), ""));
            ASSERT_EQ(calls, plain.calls);
        }
    }
}

} // namespace
