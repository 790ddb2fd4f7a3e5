#include "vnlib/corelink.h"

#include <chrono>
#include <cstring>
#include <random>
#include <thread>

#include "support/capture.h"
#include "support/corelink_reader.h"
#include "support/corelink_shape.h"
#include "vnlib/memcheck.h"

using shape::children;
using shape::members;
using shape::Tree;
using shape::well_linked;

namespace {

Tree parse(const std::string &text)
{
    return Tree(clparse_start(text.c_str()));
}

// The tree that a text makes, or "refused".
std::string tree_of(const std::string &text)
{
    const Tree tree = parse(text);
    return tree == nullptr ? "refused" : members(&tree->root);
}

// What the parser prints about a text, which it must refuse.
std::string complaint_about(const std::string &text)
{
    return test::capture_fd(
        1, [&] { EXPECT_EQ(clparse_start(text.c_str()), nullptr) << text.substr(0, 100); });
}

std::string failed(const char *parent, int result = 1, const char *what = "syntax error")
{
    return std::string("(null): ") + what + "\nParent was " + parent +
           "\nnear: NULL\nclparse_start: parsing failed: " + std::to_string(result) + "\n";
}

// Reads texts that are taken or refused, with the messages put away.
template <typename NextText>
void reads(int times, NextText next)
{
    test::capture_fd(1, [&] {
        for (int i = 0; i < times; ++i) parse(next(i));
    });
}

std::string repeated(const std::string &piece, size_t times)
{
    std::string text;
    text.reserve(piece.size() * times);
    for (size_t i = 0; i < times; ++i) text += piece;
    return text;
}

double seconds_for(const std::string &text)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_NE(parse(text), nullptr);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Four times the text must not take much more than four times as long; a quadratic step takes
// sixteen. The best of three, as other programs use the machine too.
void expect_linear(const std::string &small, const std::string &large)
{
    double best = 1e9;
    for (int i = 0; i < 3; ++i)
        best = std::min(best, seconds_for(large) / (seconds_for(small) + 1e-4));
    EXPECT_LT(best, 10.0);
}

std::string numbered(const char *before, size_t count, const char *after)
{
    std::string text;
    for (size_t i = 0; i < count; ++i)
        text += (i ? "," : "") + (before + std::to_string(i)) + after;
    return text;
}

// A random text as its tokens: a valid one first, in half of the cases changed afterwards.
class RandomTokens {
public:
    explicit RandomTokens(unsigned seed) : random_(seed) {}

    std::vector<std::string> next()
    {
        tokens_.clear();
        members(0);
        if (below(2) == 0) spoil(tokens_[below(tokens_.size())]);
        std::erase(tokens_, "");
        return tokens_;
    }

private:
    size_t below(size_t limit) { return random_() % limit; }
    template <size_t Size>
    void put(const char *const (&choice)[Size])
    {
        tokens_.emplace_back(choice[below(Size)]);
    }
    void put(const char *token) { tokens_.emplace_back(token); }

    void members(size_t depth)
    {
        for (size_t left = 1 + below(5); left > 0; --left) {
            put(kNames);
            while (below(3) == 0) {
                put(".");
                put(kNames);
            }
            if (below(4) != 0) {
                put("=");
                value(depth);
            }
            if (left > 1) put(",");
        }
    }
    void value(size_t depth)
    {
        const size_t kind = depth < 4 ? below(5) : 4;
        if (kind == 0) {
            put("{");
            members(depth + 1);
            put("}");
        } else if (kind == 1) {
            put("[");
            for (size_t left = 1 + below(3); left > 0; --left) {
                value(depth + 1);
                if (left > 1) put(",");
            }
            put("]");
        } else {
            put(kValues);
        }
    }
    void spoil(std::string &token)
    {
        static constexpr const char *kWrong[] = {"",  ",",  ".", "=",    "{",     "}", "[",
                                                 "]", "ab", "7", "true", "\"s\"", "-", "x"};
        token = kWrong[below(std::size(kWrong))];
    }

    static constexpr const char *kNames[] = {"ab", "cd", "ef"};
    static constexpr const char *kValues[] = {"1", "\"text\"", "true", "false"};

    std::mt19937 random_;
    std::vector<std::string> tokens_;
};

} // namespace

TEST(CorelinkParse, ReadsTheKindsOfValues)
{
    EXPECT_EQ(tree_of("ab=1"), "ab:1");
    EXPECT_EQ(tree_of("ab=\"text\""), "ab:\"text\"");
    EXPECT_EQ(tree_of("ab=true,cd=false"), "ab:true cd:false");
    EXPECT_EQ(tree_of("ab=0xff"), "ab:255");
    EXPECT_EQ(tree_of("ab=18446744073709551615"), "ab:18446744073709551615");
    EXPECT_EQ(tree_of("count=3,opts={on=true},list=[1,2],flag"),
              "count:3 opts:{on:true} list:[-:1 -:2] flag");
}

TEST(CorelinkParse, ABareNameIsANullNode)
{
    const Tree tree = parse("ab");
    ASSERT_EQ(children(&tree->root).size(), 1u);
    const clparse_node *const node = children(&tree->root)[0];
    EXPECT_STREQ(node->tag, "ab");
    EXPECT_EQ(node->type, 0u);
    EXPECT_EQ(tree_of("ab={cd,ef},gh"), "ab:{cd ef} gh");
}

TEST(CorelinkParse, ArrayElementsHaveNoTags)
{
    const Tree tree = parse("ab=[1,true,\"x\",{cd=1},[2]]");
    const clparse_node *const array = children(&tree->root)[0];
    EXPECT_EQ(array->type, 5u);
    const std::vector<clparse_node *> elements = children(array);
    ASSERT_EQ(elements.size(), 5u);
    const uint32_t types[] = {2, 3, 1, 4, 5};
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(elements[i]->tag, nullptr);
        EXPECT_EQ(elements[i]->type, types[i]);
    }
    EXPECT_TRUE(well_linked(array));
}

TEST(CorelinkParse, NestsContainers)
{
    EXPECT_EQ(tree_of("aa={bb={cc=[{dd=1},{ee=[[2]]}]},ff}"),
              "aa:{bb:{cc:[-:{dd:1} -:{ee:[-:[-:2]]}]} ff}");
}

TEST(CorelinkParse, LinksEveryLevel)
{
    const Tree tree = parse("aa={bb=1,cc=[1,2]},dd.ee=1");
    EXPECT_TRUE(well_linked(&tree->root));
    EXPECT_EQ(tree->root.parent, nullptr);
    for (const clparse_node *child : children(&tree->root)) {
        EXPECT_TRUE(well_linked(child));
        EXPECT_EQ(child->ref.count, 0);
    }
}

TEST(CorelinkParse, KeepsEscapesAsTheyStand)
{
    EXPECT_EQ(tree_of(R"(ab="a\"b\\")"), R"(ab:"a\"b\\")");
}

TEST(CorelinkParse, SkipsWhiteSpaceBetweenTokens)
{
    EXPECT_EQ(tree_of(" ab = 1 ,\r\n\tcd . ef = [ 1 , 2 ]\n"), "ab:1 cd:{ef:[-:1 -:2]}");
}

TEST(CorelinkParse, KeepsRepeatedMembersInOrder)
{
    EXPECT_EQ(tree_of("ab=1,ab=2,ab=\"3\",ab"), "ab:1 ab:2 ab:\"3\" ab");
}

TEST(CorelinkParse, GivesTheHeadItsScannerAndNoCursor)
{
    const Tree tree = parse("ab=1");
    EXPECT_NE(tree->scanner, nullptr);
    EXPECT_EQ(tree->cursor, nullptr);
    EXPECT_STREQ(tree->root.tag, "head");
    EXPECT_EQ(tree->root.type, 4u);
}

TEST(CorelinkParse, PrintsNothingAboutAValidText)
{
    EXPECT_EQ(test::capture_fd(1, [] { parse("ab=1,cd.ef={gh=[1]}"); }), "");
}

TEST(CorelinkParse, DoesNotKeepTheText)
{
    char text[] = "name=\"value\"";
    const Tree tree(clparse_start(text));
    memset(text, '!', sizeof text - 1);
    EXPECT_EQ(members(&tree->root), "name:\"value\"");
}

TEST(CorelinkParse, ReadsTextsOfAnyLength)
{
    for (const size_t around : {16u, 1024u, 2048u, 4096u, 65536u, 131072u}) {
        for (size_t length = around - 6; length <= around + 6; ++length) {
            const std::string value(length - sizeof R"(ab="")" + 1, 'x');
            const Tree tree = parse("ab=\"" + value + "\"");
            ASSERT_NE(tree, nullptr) << length;
            EXPECT_EQ(children(&tree->root)[0]->value.text, value) << length;
            EXPECT_EQ(tree_of("ab=\"" + value + ","), "refused") << length;
        }
    }
}

TEST(CorelinkDotted, PutsTheValueIntoNestedStructs)
{
    EXPECT_EQ(tree_of("aa.bb.cc=1"), "aa:{bb:{cc:1}}");
    EXPECT_EQ(tree_of("ab.cd=\"text\""), "ab:{cd:\"text\"}");
    EXPECT_EQ(tree_of("aa.bb"), "aa:{bb}");
    EXPECT_EQ(tree_of("aa.bb={cc.dd=1},ee"), "aa:{bb:{cc:{dd:1}}} ee");
}

TEST(CorelinkDotted, EqualPrefixesShareOneStruct)
{
    EXPECT_EQ(tree_of("ab.cd=1,ab.ef=2"), "ab:{cd:1 ef:2}");
    EXPECT_EQ(tree_of("aa.bb.cc=1,dd=2,aa.bb.ee=3,aa.ff=4"), "aa:{bb:{cc:1 ee:3} ff:4} dd:2");
}

TEST(CorelinkDotted, APrefixFindsAStructWrittenWithBraces)
{
    EXPECT_EQ(tree_of("ab={cd=1},ab.ef=2"), "ab:{cd:1 ef:2}");
}

TEST(CorelinkDotted, OfEqualTagsTheLastOneTakesTheMember)
{
    EXPECT_EQ(tree_of("ab={cd=1},ab={ef=2},ab.gh=3"), "ab:{cd:1} ab:{ef:2 gh:3}");
    EXPECT_EQ(tree_of("ab=1,ab={cd=2},ab.ef=3"), "ab:1 ab:{cd:2 ef:3}");
}

TEST(CorelinkDotted, APrefixMayNameAnArray)
{
    EXPECT_EQ(tree_of("ab=[1],ab.cd=2,ab.ef.gh=3"), "ab:[-:1 cd:2 ef:{gh:3}]");
}

TEST(CorelinkDotted, APrefixThatNamesALeafIsASyntaxError)
{
    for (const char *text : {"ab=1,ab.cd=2", "ab=\"x\",ab.cd=2", "ab=true,ab.cd=2", "ab,ab.cd=2",
                             "ab={cd=1},ab=2,ab.ef=3", "ab=1,ab.cd.ef"})
        EXPECT_EQ(complaint_about(text), failed("head")) << text;
    EXPECT_EQ(complaint_about("ab.cd=1,ab.cd.ef=2"), failed("ab"));
    EXPECT_EQ(complaint_about("ab=[1],ab.cd=2,ab.cd.ef"), failed("ab"));
    EXPECT_EQ(complaint_about("xx={ab=1,ab.cd=2}"), failed("NULL"));
}

TEST(CorelinkDotted, TheNextMemberStandsBesideThePrefix)
{
    EXPECT_EQ(tree_of("aa.bb=1,cc=2"), "aa:{bb:1} cc:2");
    EXPECT_EQ(tree_of("xx={aa.bb=1,cc=2},dd=3"), "xx:{aa:{bb:1} cc:2} dd:3");
}

TEST(CorelinkDotted, WideLevelsFindTheirPrefixes)
{
    constexpr size_t kNames = 3000;
    const std::string text =
        numbered("name", kNames, ".first=1") + "," + numbered("name", kNames, ".second={third=2}");
    const Tree tree = parse(text);
    ASSERT_NE(tree, nullptr);
    const std::vector<clparse_node *> names = children(&tree->root);
    ASSERT_EQ(names.size(), kNames);
    for (size_t i = 0; i < kNames; ++i) {
        EXPECT_STREQ(names[i]->tag, ("name" + std::to_string(i)).c_str());
        EXPECT_EQ(members(names[i]), "first:1 second:{third:2}");
    }
}

TEST(CorelinkDotted, WideLevelsKeepTheLastOfEqualTags)
{
    const std::string fill = numbered("fill", 100, "=1");
    EXPECT_EQ(tree_of("ab={cd=1}," + fill + ",ab.ef=2," + fill + ",ab={gh=3}," + fill + ",ab.ij=4")
                  .rfind("ab:{cd:1 ef:2} fill0:1", 0),
              0u);
    const Tree tree =
        parse("ab={cd=1}," + fill + ",ab.ef=2," + fill + ",ab={gh=3}," + fill + ",ab.ij=4");
    EXPECT_EQ(members(children(&tree->root)[201]), "gh:3 ij:4");
}

TEST(CorelinkDotted, WideLevelsAreKeptApart)
{
    const std::string fill = numbered("fill", 50, "=1");
    const Tree tree =
        parse("aa={xx.yy=1," + fill + ",xx.zz=2},bb={" + fill + ",xx.yy=3},cc={xx=1," + fill +
              ",yy=[" + numbered("", 50, "") + "],yy.zz=1}");
    ASSERT_NE(tree, nullptr);
    const std::vector<clparse_node *> groups = children(&tree->root);
    EXPECT_EQ(members(children(groups[0])[0]), "yy:1 zz:2");
    EXPECT_EQ(members(children(groups[1])[50]), "yy:3");
    EXPECT_STREQ(children(children(groups[2])[51])[50]->tag, "zz");
}

TEST(CorelinkRefuses, Null)
{
    EXPECT_EQ(test::capture_fd(1, [] { EXPECT_EQ(clparse_start(nullptr), nullptr); }), "");
}

TEST(CorelinkRefuses, TextsWithoutAMember)
{
    for (const char *text : {"", " \n", ",", "1", "\"text\"", "=1", "true"})
        EXPECT_EQ(complaint_about(text), failed("head")) << text;
}

TEST(CorelinkRefuses, EmptyContainers)
{
    EXPECT_EQ(complaint_about("ab={}"), failed("NULL"));
    EXPECT_EQ(complaint_about("ab=[]"), failed("NULL"));
}

TEST(CorelinkRefuses, StrayAndMissingPieces)
{
    for (const char *text : {"ab=1,", "ab=", "ab=cd", "ab==1", "ab.", "ab.=1", "ab 1", "ab,,cd",
                             "ab=1 cd=2", "ab=1}", "ab=1]", "ab:1", "ab=-1", "ab.1=2",
                             "ab.\"cd\"=1", ".ab=1", "ab=1;", "ab=a", "ab=\"unclosed"})
        EXPECT_EQ(complaint_about(text).substr(0, 21), "(null): syntax error\n") << text;
    for (const char *text : {"ab={cd=1", "ab=[1", "ab={1}", "ab=[cd=1]", "ab=[1,]", "ab={cd=1,}",
                             "ab={cd=1]", "ab=[1}", "ab=[{cd=1]"})
        EXPECT_EQ(complaint_about(text), failed("NULL")) << text;
}

TEST(CorelinkRefuses, NamesOfOneLetter)
{
    EXPECT_EQ(complaint_about("a=1"), failed("head"));
    EXPECT_EQ(complaint_about("ab.c=1"), failed("ab"));
    EXPECT_EQ(complaint_about("true=1"), failed("head"));
}

TEST(CorelinkRefuses, NamingTheParent)
{
    EXPECT_EQ(complaint_about("outer.inner.a=1"), failed("inner"));
    EXPECT_EQ(complaint_about("outer.inner=1,outer.inner2.x"), failed("inner2"));
    EXPECT_EQ(complaint_about("outer={inner=1,x}"), failed("NULL"))
        << "a container gets its tag after its closing bracket";
    EXPECT_EQ(complaint_about("outer={inner=1},x"), failed("head"));
}

// Nested levels, and the most of them that the parser's 10,000 symbols hold.
std::string arrays(size_t levels)
{
    return "ab=" + std::string(levels, '[') + "1" + std::string(levels, ']');
}
std::string structs(size_t levels)
{
    return "ab=" + repeated("{cd=", levels) + "1" + std::string(levels, '}');
}
std::string dotted(size_t levels)
{
    return repeated("ab.", levels) + "cd=1";
}
constexpr size_t kMostArrays = 9994, kMostStructs = 3331, kMostDots = 9995;

TEST(CorelinkRefuses, TextsDeeperThanTheParsersStack)
{
    for (const size_t more : {1u, 1000u}) {
        EXPECT_EQ(complaint_about(arrays(kMostArrays + more)),
                  failed("NULL", 2, "memory exhausted"));
        EXPECT_EQ(complaint_about(structs(kMostStructs + more)),
                  failed("NULL", 2, "memory exhausted"));
        EXPECT_EQ(complaint_about(dotted(kMostDots + more)), failed("ab", 2, "memory exhausted"));
    }
}

TEST(CorelinkRefuses, NothingThatFitsTheParsersStack)
{
    for (const std::string &text :
         {arrays(kMostArrays), structs(kMostStructs), dotted(kMostDots)}) {
        const Tree tree = parse(text);
        EXPECT_NE(tree, nullptr);
    }
}

// Valid or not: the tree, or the container that the complaint names, is what a plain recursive
// reader of the same tokens finds.
TEST(CorelinkHostile, RandomTextsAreReadAsAPlainReaderReadsThem)
{
    RandomTokens random(5);
    int refused = 0;
    for (int i = 0; i < 3000; ++i) {
        const std::vector<std::string> tokens = random.next();
        std::string text;
        for (const std::string &token : tokens) text += token + " ";
        const test::CorelinkReader plain(tokens);
        if (plain.refused()) {
            ++refused;
            ASSERT_EQ(complaint_about(text), failed(plain.refused_in().c_str())) << text;
        } else {
            ASSERT_EQ(tree_of(text), plain.shape()) << text;
        }
    }
    EXPECT_GT(refused, 500);
    EXPECT_LT(refused, 2500);
}

TEST(CorelinkHostile, RandomBytesAreTakenOrRefused)
{
    std::mt19937 random(2);
    reads(500, [&](int) {
        std::string text(random() % 200, '\0');
        for (char &byte : text) byte = static_cast<char>(random());
        return text;
    });
}

TEST(CorelinkHostile, RandomTokensAreTakenOrRefused)
{
    const char *const pieces[] = {"ab",   "cd",    "=",  ".",  ",",        "{",    "}",  "[",
                                  "]",    "1",     "\"", "\\", "\"text\"", "a",    "\n", "true",
                                  "ab=1", "ab.cd", "={", "=[", "0x",       ",ab=", "-",  "\x80"};
    std::mt19937 random(3);
    reads(1000, [&](int) {
        std::string text = "ab";
        for (size_t k = random() % 40; k > 0; --k) text += pieces[random() % std::size(pieces)];
        return text;
    });
}

TEST(CorelinkHostile, CutAndChangedDocumentsAreTakenOrRefused)
{
    const std::string text =
        "name=\"disk \\\"0\\\"\",size=0x1000,flags={ro=false,opts=[1,\"two\","
        "{three=3}]},owner.user=\"root\",owner.uid=0,path.to.it,flags.sync=true";
    ASSERT_NE(parse(text), nullptr);
    reads(static_cast<int>(text.size()),
          [&](int length) { return text.substr(0, static_cast<size_t>(length)); });
    std::mt19937 random(4);
    reads(2000, [&](int) {
        std::string changed = text;
        for (size_t k = 1 + random() % 3; k > 0; --k)
            changed[random() % changed.size()] = static_cast<char>(random());
        return changed;
    });
}

TEST(CorelinkHostile, AHugeStringIsRead)
{
    constexpr size_t kSize = 100'000'000;
    const Tree tree = parse("ab=\"" + std::string(kSize, 'x') + "\"");
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(strlen(children(&tree->root)[0]->value.text), kSize);
}

TEST(CorelinkHostile, HugeNamesAndNumbersAreRead)
{
    const std::string name(5'000'000, 'n');
    const Tree tree = parse(name + "." + name + "=" + std::string(5'000'000, '9'));
    ASSERT_NE(tree, nullptr);
    EXPECT_EQ(children(children(&tree->root)[0])[0]->value.number, UINT64_MAX);
}

TEST(CorelinkGrowth, AMillionMembersAreRead)
{
    constexpr size_t kMembers = 1'000'000;
    const Tree tree = parse(numbered("name", kMembers, "=1"));
    ASSERT_NE(tree, nullptr);
    size_t count = 0;
    const clparse_node *const sentinel = tree->root.value.children;
    for (const clparse_node *child = sentinel->next; child != sentinel; child = child->next)
        ++count;
    EXPECT_EQ(count, kMembers);
}

TEST(CorelinkGrowth, IsLinearInPlainMembers)
{
    expect_linear(numbered("name", 20'000, "=1"), numbered("name", 80'000, "=1"));
}

TEST(CorelinkGrowth, IsLinearInDottedNames)
{
    expect_linear(numbered("name", 10'000, ".sub=1"), numbered("name", 40'000, ".sub=1"));
}

TEST(CorelinkGrowth, IsLinearInPlainMembersBeforeDottedNames)
{
    const auto text = [](size_t count) {
        return numbered("plain", count, "=1") + "," + numbered("name", count, ".sub=1") + "," +
               numbered("name", count, ".other=1");
    };
    expect_linear(text(4'000), text(16'000));
}

TEST(CorelinkThreads, ParseAtTheSameTime)
{
    const auto work = [] {
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(tree_of("count=3,opts={on=true},list=[1,2],ab.cd=\"x\",flag"),
                      "count:3 opts:{on:true} list:[-:1 -:2] ab:{cd:\"x\"} flag");
    };
    std::thread first(work), second(work);
    first.join();
    second.join();
}

TEST(CorelinkTracked, NothingStaysBehind)
{
    const test::ChildResult child = test::run_in_child([] {
        vn_memcheck_start();
        parse("count=3,opts={on=true},list=[1,2],ab.cd=\"x\",flag," +
              numbered("name", 50, ".sub=1"));
        for (const char *text : {"", "ab=1,ab.cd=2", "ab={cd=[1,{ef=\"x\",gh.ij=", "ab={}"})
            EXPECT_EQ(clparse_start(text), nullptr);
        EXPECT_EQ(clparse_start(("ab=" + std::string(10'001, '[')).c_str()), nullptr);
        vn_memcheck_stop();
    });
    EXPECT_TRUE(child.exited_with(0));
    const size_t last = child.out.rfind("Total Allocations: ");
    ASSERT_NE(last, std::string::npos);
    EXPECT_EQ(child.out.substr(last, 24), "Total Allocations: 00000");
    EXPECT_EQ(child.out.find("Could not find"), std::string::npos);
}
