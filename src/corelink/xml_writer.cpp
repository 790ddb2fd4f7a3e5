// xml_writer.cpp - a tree as one XML document.
//
//     <?xml version="1.0" encoding="UTF-8"?>
//     <corelink>
//     	<opts type="struct">            a tab for every level; nothing of the sort when compact
//     		<on type="boolean">true</on>
//     	</opts>
//     	<list type="array">
//     		<li type="number">1</li>    every member of an array is named li
//     	</list>
//     </corelink>
//
// The walk keeps the open containers on a stack of its own, so a tree of any depth fits a small
// thread. Tags are written as they stand; the texts of strings are escaped.
#include <string_view>
#include <utility>

#include "corelink/names.h"
#include "corelink/small_stack.h"
#include "corelink/text_buffer.h"
#include "corelink/tree.h"

namespace vn::corelink {

namespace {

class XmlWriter {
public:
    XmlWriter(TextBuffer &out, bool pretty) : out_(out), pretty_(pretty) {}

    void document(const clparse_node &root)
    {
        out_.put(R"(<?xml version="1.0" encoding="UTF-8"?>)");
        end_line();
        out_.put("<corelink>");
        end_line();
        members(root);
        out_.put("</corelink>");
    }

private:
    struct Level {
        const clparse_node *container;
        const clparse_node *next; // the member to write; the sentinel behind the last
    };

    void members(const clparse_node &root);
    void element(const clparse_node &node);
    void enter(const clparse_node &container);
    void leave();

    void start_tag(const clparse_node &node, std::string_view kind);
    void end_tag(const clparse_node &node);
    void null_element(const clparse_node &node);

    // How a member of the innermost open container is called.
    std::string_view name(const clparse_node &member)
    {
        return type_of(*levels_.top().container) == Type::kArray ? "li" : printed_name(member);
    }
    void indent()
    {
        if (pretty_) out_.put_repeated('\t', levels_.size());
    }
    void end_line()
    {
        if (pretty_) out_.put('\n');
    }

    TextBuffer &out_;
    const bool pretty_;
    SmallStack<Level, 16> levels_;
};

void XmlWriter::members(const clparse_node &root)
{
    enter(root);
    while (!levels_.empty() && out_.ok()) {
        Level &level = levels_.top();
        if (level.next == level.container->value.children) {
            leave();
        } else {
            element(*std::exchange(level.next, level.next->next));
        }
    }
}

void XmlWriter::enter(const clparse_node &container)
{
    const clparse_node *const list = container.value.children;
    if (!levels_.push({&container, list != nullptr ? list->next : nullptr})) out_.fail();
}

void XmlWriter::leave()
{
    const clparse_node &container = *levels_.top().container;
    levels_.pop();
    if (levels_.empty()) return; // the root has no element of its own
    indent();
    end_tag(container);
}

void XmlWriter::element(const clparse_node &node)
{
    switch (type_of(node)) {
    case Type::kString:
        if (node.value.text == nullptr) {
            out_.fail();
            return;
        }
        start_tag(node, "string");
        out_.put_escaped<escape_xml>(node.value.text);
        end_tag(node);
        break;
    case Type::kNumber:
        start_tag(node, "number");
        out_.put_number(node.value.number);
        end_tag(node);
        break;
    case Type::kBoolean:
        start_tag(node, "boolean");
        out_.put(node.value.boolean != 0 ? "true" : "false");
        end_tag(node);
        break;
    case Type::kStruct:
    case Type::kArray:
        start_tag(node, type_of(node) == Type::kStruct ? "struct" : "array");
        end_line();
        enter(node);
        break;
    default: null_element(node);
    }
}

void XmlWriter::start_tag(const clparse_node &node, std::string_view kind)
{
    indent();
    out_.put('<').put(name(node)).put(" type=\"").put(kind).put("\">");
}

void XmlWriter::end_tag(const clparse_node &node)
{
    out_.put("</").put(name(node)).put('>');
    end_line();
}

void XmlWriter::null_element(const clparse_node &node)
{
    indent();
    out_.put('<').put(name(node)).put(" type=\"null\" />");
    end_line();
}

} // namespace

} // namespace vn::corelink

extern "C" int clparse_get_xml(clparse_head *head, char **xml, unsigned char pretty)
{
    using namespace vn::corelink;
    if (head == nullptr || xml == nullptr) return -1;
    TextBuffer out({"clparse_get_xml", 802});
    XmlWriter(out, pretty != 0).document(head->root);
    *xml = out.finish();
    return 0;
}
