// A corelink tree as an XML document, byte for byte.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/corelink_tree.h"
#include "support/small_stack.h"
#include "support/tracked.h"
#include "vnlib/corelink.h"

namespace {

using namespace test::trees;

constexpr unsigned char kCompact = 0, kPretty = 1;

const std::string kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

std::string compact(const std::string &members)
{
    return kDeclaration + "<corelink>" + members + "</corelink>";
}
std::string pretty(const std::string &members)
{
    return kDeclaration + "\n<corelink>\n" + members + "</corelink>";
}

TEST(CorelinkXml, WritesTheDeclarationAndTheRootOfAnEmptyTree)
{
    const Tree tree;
    EXPECT_EQ(xml_of(tree, kPretty), pretty(""));
    EXPECT_EQ(xml_of(tree, kCompact), compact(""));
}

TEST(CorelinkXml, ReturnsZero)
{
    const Tree tree;
    char *xml = nullptr;
    EXPECT_EQ(clparse_get_xml(tree, &xml, kPretty), 0);
    EXPECT_EQ(take(xml), pretty(""));
}

TEST(CorelinkXml, WritesEachKindOfLeaf)
{
    const struct {
        Node *node;
        const char *element;
    } kRows[] = {
        {string("s", "text"), "<s type=\"string\">text</s>"},
        {string("s", ""), "<s type=\"string\"></s>"},
        {number("n", 5), "<n type=\"number\">5</n>"},
        {number("n", 0), "<n type=\"number\">0</n>"},
        {boolean("b", 1), "<b type=\"boolean\">true</b>"},
        {boolean("b", 0), "<b type=\"boolean\">false</b>"},
        {boolean("b", 2), "<b type=\"boolean\">true</b>"},
        {boolean("b", 256), "<b type=\"boolean\">false</b>"},
        {null("none"), "<none type=\"null\" />"},
        {clparse_create_function_node("f", nullptr, nullptr, nullptr, nullptr),
         "<f type=\"null\" />"},
        {structure("e"), "<e type=\"struct\"></e>"},
        {array("a"), "<a type=\"array\"></a>"},
    };
    for (const auto &row : kRows) {
        const Tree tree{row.node};
        EXPECT_EQ(xml_of(tree, kCompact), compact(row.element));
    }
}

TEST(CorelinkXml, WritesNumbersInUnsignedDecimalOfAnySize)
{
    uint64_t power = 1;
    for (int digits = 0; digits < 20; ++digits, power *= 10) {
        for (const uint64_t value : {power - 1, power, power + 1}) {
            const Tree tree{number("n", value)};
            EXPECT_EQ(xml_of(tree),
                      compact("<n type=\"number\">" + std::to_string(value) + "</n>"));
        }
    }
    for (const uint64_t value : {UINT64_C(0xFFFFFFFF), UINT64_C(0x100000000), UINT64_MAX}) {
        const Tree tree{number("n", value)};
        EXPECT_EQ(xml_of(tree), compact("<n type=\"number\">" + std::to_string(value) + "</n>"));
    }
}

TEST(CorelinkXml, IndentsWithATabForEveryLevel)
{
    const Tree tree{structure("s", {number("n", 5)})};
    EXPECT_EQ(xml_of(tree, kPretty), pretty("\t<s type=\"struct\">\n"
                                            "\t\t<n type=\"number\">5</n>\n"
                                            "\t</s>\n"));
    EXPECT_EQ(xml_of(tree, kCompact), compact("<s type=\"struct\"><n type=\"number\">5</n></s>"));
}

TEST(CorelinkXml, IndentsEveryKindOfElement)
{
    const Tree tree{structure("e"),
                    array("a", {string("x", "t"), structure("y", {boolean("b", 1)})}),
                    null("none")};
    EXPECT_EQ(xml_of(tree, kPretty), pretty("\t<e type=\"struct\">\n"
                                            "\t</e>\n"
                                            "\t<a type=\"array\">\n"
                                            "\t\t<li type=\"string\">t</li>\n"
                                            "\t\t<li type=\"struct\">\n"
                                            "\t\t\t<b type=\"boolean\">true</b>\n"
                                            "\t\t</li>\n"
                                            "\t</a>\n"
                                            "\t<none type=\"null\" />\n"));
}

TEST(CorelinkXml, TakesAnyNonZeroValueForPretty)
{
    const Tree tree{number("n", 5)};
    EXPECT_EQ(xml_of(tree, 2), xml_of(tree, kPretty));
    EXPECT_EQ(xml_of(tree, 255), xml_of(tree, kPretty));
}

TEST(CorelinkXml, NamesEveryMemberOfAnArrayLi)
{
    const Tree tree{array("a", {string("x", "1"), string("y", "2"), array("z", {number("q", 3)}),
                                null("none"), structure("s", {number("own", 4)})})};
    EXPECT_EQ(xml_of(tree),
              compact("<a type=\"array\"><li type=\"string\">1</li><li type=\"string\">2</li>"
                      "<li type=\"array\"><li type=\"number\">3</li></li><li type=\"null\" />"
                      "<li type=\"struct\"><own type=\"number\">4</own></li></a>"));
}

TEST(CorelinkXml, NamesElementsWithoutTagsLi)
{
    const Tree tree("list=[1,\"two\",{three=3}]");
    EXPECT_EQ(xml_of(tree),
              compact("<list type=\"array\"><li type=\"number\">1</li><li type=\"string\">two</li>"
                      "<li type=\"struct\"><three type=\"number\">3</three></li></list>"));
}

TEST(CorelinkXml, EscapesTheTextsOfStringsWithAllFiveEntities)
{
    const Tree tree{string("s", "<a href=\"x\">it's &amp;</a>")};
    EXPECT_EQ(xml_of(tree),
              compact("<s type=\"string\">&lt;a href=&quot;x&quot;&gt;it&apos;s &amp;amp;&lt;/a&gt;"
                      "</s>"));
    EXPECT_STREQ(clparse_get_node_value_s(tree.at("s")), "<a href=\"x\">it's &amp;</a>");
}

TEST(CorelinkXml, WritesEveryOtherByteOfAStringAsItIs)
{
    std::string text, expected;
    for (int c = 1; c < 256; ++c) {
        text += static_cast<char>(c);
        switch (c) {
        case '<': expected += "&lt;"; break;
        case '>': expected += "&gt;"; break;
        case '&': expected += "&amp;"; break;
        case '"': expected += "&quot;"; break;
        case '\'': expected += "&apos;"; break;
        default: expected += static_cast<char>(c);
        }
    }
    const Tree tree{string("s", text.c_str())};
    EXPECT_EQ(xml_of(tree), compact("<s type=\"string\">" + expected + "</s>"));
}

TEST(CorelinkXml, WritesTagsWithoutEscaping)
{
    const Tree tree{number("a<b&c", 1)};
    EXPECT_EQ(xml_of(tree), compact("<a<b&c type=\"number\">1</a<b&c>"));
}

TEST(CorelinkXml, ShowsAMissingTagOutsideAnArrayAsPrintfDoes)
{
    const Tree tree{untagged("1")};
    EXPECT_EQ(xml_of(tree), compact("<(null) type=\"number\">1</(null)>"));
}

TEST(CorelinkXml, DoesNotResolveFunctionNodes)
{
    Yield yield;
    const Tree tree{yield.node("f"), array("a", {yield.node("g")})};
    EXPECT_EQ(xml_of(tree),
              compact("<f type=\"null\" /><a type=\"array\"><li type=\"null\" /></a>"));
    EXPECT_EQ(yield.calls, "");
}

TEST(CorelinkXml, WritesNodesOfUnknownTypesAsNull)
{
    const Tree tree{number("n", 1)};
    tree.at("n")->type = 77;
    EXPECT_EQ(xml_of(tree), compact("<n type=\"null\" />"));
}

TEST(CorelinkXml, StoresNullAndReturnsZeroForAStringWithoutText)
{
    const Tree tree{number("n", 1), structure("s", {textless("t")}), number("m", 2)};
    char untouched[] = "x", *xml = untouched;
    EXPECT_EQ(clparse_get_xml(tree, &xml, kPretty), 0);
    EXPECT_EQ(xml, nullptr);
}

TEST(CorelinkXml, RefusesNullArguments)
{
    const Tree tree;
    char *xml = nullptr;
    EXPECT_EQ(clparse_get_xml(nullptr, &xml, kPretty), -1);
    EXPECT_EQ(clparse_get_xml(tree, nullptr, kPretty), -1);
}

TEST(CorelinkXml, IsABlockOfItsExactSizeChargedWhereStringsGrow)
{
    EXPECT_EQ(test::charge_of([] {
                  char *xml = nullptr;
                  clparse_get_xml(Tree(), &xml, kCompact);
                  return xml;
              }),
              "vn_vaasprintf LINE:43, Size:" + std::to_string(compact("").size() + 1));
    const std::string text(5000, 'x');
    EXPECT_EQ(test::charge_of([&] {
                  char *xml = nullptr;
                  clparse_get_xml(Tree{string("s", text.c_str())}, &xml, kCompact);
                  return xml;
              }),
              "vn_vaasprintf LINE:43, Size:" +
                  std::to_string(compact("<s type=\"string\"></s>").size() + text.size() + 1));
}

TEST(CorelinkXml, LeavesNothingBehindButTheText)
{
    EXPECT_EQ(test::left_behind_by([] {
                  const Tree tree("box={aa=\"<text>\",list=[1,2]}");
                  xml_of(tree, kPretty);
                  clparse_set_node_value_s(tree.at("box.aa"), nullptr);
                  xml_of(tree, kPretty);
              }),
              0);
}

// ---------------------------------------------------------------- size

void nest(const Tree &tree, int depth)
{
    Node *inner = tree.root();
    for (int i = 0; i < depth; ++i) {
        Node *const next = structure("a");
        clparse_append_child(inner, next);
        inner = next;
    }
}

TEST(CorelinkXml, WritesAHundredThousandLevelsOnASmallStack)
{
    constexpr int kDepth = 100'000;
    const Tree tree;
    nest(tree, kDepth);
    std::optional<std::string> xml;
    test::on_small_stack([&] { xml = xml_of(tree, kCompact); });
    std::string expected;
    for (int i = 0; i < kDepth; ++i) expected += "<a type=\"struct\">";
    for (int i = 0; i < kDepth; ++i) expected += "</a>";
    ASSERT_TRUE(xml.has_value());
    EXPECT_TRUE(*xml == compact(expected));
}

TEST(CorelinkXml, IndentsAThousandLevels)
{
    const Tree tree;
    nest(tree, 1000);
    std::string opening, closing;
    for (size_t i = 1; i <= 1000; ++i) {
        opening += std::string(i, '\t') + "<a type=\"struct\">\n";
        closing += std::string(1001 - i, '\t') + "</a>\n";
    }
    EXPECT_TRUE(xml_of(tree, kPretty) == pretty(opening + closing));
}

TEST(CorelinkXml, WritesAMillionMembers)
{
    constexpr unsigned kMembers = 1'000'000;
    const Tree tree;
    std::string expected;
    for (unsigned i = 0; i < kMembers; ++i) {
        clparse_append_child(tree.root(), number("n", i));
        expected += "<n type=\"number\">" + std::to_string(i) + "</n>";
    }
    EXPECT_TRUE(xml_of(tree) == compact(expected));
}

TEST(CorelinkXml, WritesALongText)
{
    const std::string text(3'000'000, '"');
    const Tree tree{string("s", text.c_str())};
    const auto xml = xml_of(tree);
    ASSERT_TRUE(xml.has_value());
    EXPECT_EQ(xml->size(), compact("<s type=\"string\"></s>").size() + 6 * text.size());
}

// ---------------------------------------------------------------- random trees

// A random tree with tags that XML takes for names.
Node *random_node(std::mt19937 &random, int depth)
{
    static const char *const kTags[] = {"a", "bb", "name", "_x", "Tag9"};
    const char *const tag = kTags[random() % 5];
    switch (random() % (depth > 0 ? 6 : 4)) {
    case 0: return number(tag, random());
    case 1: return boolean(tag, static_cast<int>(random() % 2));
    case 2: return string(tag, "<it's> & \"that\"");
    case 3: return null("null_node");
    default: break;
    }
    Node *const container = random() % 2 != 0 ? structure(tag) : array(tag);
    for (size_t n = random() % 5; n > 0; --n)
        clparse_append_child(container, random_node(random, depth - 1));
    return container;
}

// The elements of a container's members, written by recursion and put together with plus. All
// strings of random_node() have the same text.
std::string plain_elements(const Node &container, const std::string &indent)
{
    const std::string end = indent.empty() ? "" : "\n";
    const std::string deeper = indent.empty() ? "" : indent + "\t";
    std::string out;
    const Node *const list = container.value.children;
    for (const Node *node = list->next; node != list; node = node->next) {
        const std::string name = container.type == CLPARSE_ARRAY ? "li" : node->tag;
        const auto element = [&](const std::string &type, const std::string &content) {
            out +=
                indent + "<" + name + " type=\"" + type + "\">" + content + "</" + name + ">" + end;
        };
        switch (node->type) {
        case CLPARSE_STRING: element("string", "&lt;it&apos;s&gt; &amp; &quot;that&quot;"); break;
        case CLPARSE_NUMBER: element("number", std::to_string(node->value.number)); break;
        case CLPARSE_BOOLEAN: element("boolean", node->value.boolean ? "true" : "false"); break;
        case CLPARSE_STRUCT: element("struct", end + plain_elements(*node, deeper) + indent); break;
        case CLPARSE_ARRAY: element("array", end + plain_elements(*node, deeper) + indent); break;
        default: out += indent + "<" + name + " type=\"null\" />" + end;
        }
    }
    return out;
}

TEST(CorelinkXml, IsWhatAPlainRecursionWrites)
{
    std::mt19937 random(7);
    for (int i = 0; i < 300; ++i) {
        const Tree tree;
        for (size_t n = random() % 6; n > 0; --n)
            clparse_append_child(tree.root(), random_node(random, 5));
        ASSERT_EQ(xml_of(tree, kCompact), compact(plain_elements(*tree.root(), "")));
        ASSERT_EQ(xml_of(tree, kPretty), pretty(plain_elements(*tree.root(), "\t")));
    }
}

TEST(CorelinkXml, IsWellFormedForAnXmlParser)
{
    if (system("xmllint --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "xmllint is not installed";
    std::mt19937 random(1);
    std::string command = "xmllint --noout";
    std::vector<std::string> files;
    for (int i = 0; i < 20; ++i) {
        const Tree tree;
        for (int n = 0; n < 5; ++n) clparse_append_child(tree.root(), random_node(random, 4));
        files.push_back(testing::TempDir() + "corelink_xml_" + std::to_string(getpid()) + "_" +
                        std::to_string(i) + ".xml");
        std::ofstream(files.back()) << *xml_of(tree, i % 2 == 0 ? kPretty : kCompact);
        command += " " + files.back();
    }
    EXPECT_EQ(system(command.c_str()), 0);
    for (const std::string &file : files) remove(file.c_str());
}

} // namespace
