// writer.cpp - a tree as corelink text, as the list of its leaves' paths, or as an XML document.
//
//     compact   count=3,opts={on=true},list=[1,2]          what the parser reads
//     paths     count=llu,opts.on=llu,list.0=llu,list.1=llu
//     XML       <?xml version="1.0" encoding="UTF-8"?>
//               <corelink>
//               	<count type="number">3</count>   a tab for every level, unless dense
//               	<list type="array">
//               		<li type="number">1</li>     every member of an array is named li
//               	</list>
//               </corelink>
//
// In text a function node is written as the members of the node that it yields, without a name or
// brackets of its own; in path form they stand under the function node's path. Where a member has
// no tag its position takes the place of the name in a path, so that the path can be looked up. In
// XML a function node is a null element; tags are written as they stand.
//
// The walk keeps the open containers on a stack of its own, so a tree of any depth fits a small
// thread, and carries the path along. It never follows a node's `parent`: a child list that two
// trees share knows only one of them.
#include <string_view>
#include <utility>

#include "corelink/decimal.h"
#include "corelink/function_node.h"
#include "corelink/names.h"
#include "corelink/small_stack.h"
#include "corelink/text_buffer.h"
#include "corelink/tree.h"

namespace vn::corelink {

namespace {

enum class Form { kDenseXml, kPrettyXml, kCompact, kPaths };

constexpr bool is_xml(Form form)
{
    return form <= Form::kPrettyXml;
}

class Writer {
public:
    Writer(TextBuffer &out, Form form) : out_(out), form_(form) {}

    void document(const clparse_node &root);
    void members(const clparse_node &root);

private:
    struct Level {
        const clparse_node *container;
        clparse_node *next;     // the member to write; the sentinel behind the last
        clparse_node *function; // the function node that yielded the container, or null
        size_t position;        // of `next`
        size_t path_length;     // how much of path_ names the container
        bool has_end;           // written behind the last member
    };

    void enter(const clparse_node &container, clparse_node *function, bool has_end);
    void leave();
    void member();
    void value(clparse_node &node);
    void string(const clparse_node &node);
    void scalar(const clparse_node &node, std::string_view kind, std::string_view text);
    void container(const clparse_node &node);
    void function(clparse_node &node);
    void null(const clparse_node &node);

    void begin(const clparse_node &node, std::string_view kind);
    void end(const clparse_node &node);
    void end_container(const clparse_node &node);

    void extend_path(const clparse_node &node, size_t position);
    bool name(const clparse_node &node);
    void start_tag(const clparse_node &node, std::string_view kind);
    void indent();
    void end_line();

    TextBuffer &out_;
    const Form form_;
    SmallStack<Level, 16> levels_;
    SmallStack<char, 256> path_; // of the member in hand, in path form
};

void Writer::document(const clparse_node &root)
{
    out_.put(R"(<?xml version="1.0" encoding="UTF-8"?>)");
    end_line();
    out_.put("<corelink>");
    end_line();
    members(root);
    out_.put("</corelink>");
}

// Also after an error every level is left, so that each function node gets its release call.
void Writer::members(const clparse_node &root)
{
    enter(root, nullptr, false);
    while (!levels_.empty()) {
        const Level &level = levels_.top();
        if (out_.ok() && level.next != level.container->value.children) {
            member();
        } else {
            leave();
        }
    }
}

void Writer::enter(const clparse_node &container, clparse_node *function, bool has_end)
{
    const clparse_node *const list = container.value.children;
    clparse_node *const first = list != nullptr ? list->next : nullptr;
    if (levels_.push({&container, first, function, 0, path_.size(), has_end})) return;
    out_.fail();
    release_result(function);
}

void Writer::leave()
{
    const Level level = levels_.top();
    levels_.pop();
    if (level.has_end) end_container(*level.container);
    release_result(level.function);
}

void Writer::member()
{
    Level &level = levels_.top();
    clparse_node &node = *std::exchange(level.next, level.next->next);
    if (!is_xml(form_) && level.position != 0) out_.put(',');
    if (form_ == Form::kPaths) extend_path(node, level.position);
    ++level.position;
    if (out_.ok()) value(node);
}

void Writer::value(clparse_node &node)
{
    switch (type_of(node)) {
    case Type::kString: string(node); break;
    case Type::kNumber: scalar(node, "number", Decimal(node.value.number).text()); break;
    case Type::kBoolean: scalar(node, "boolean", node.value.boolean != 0 ? "true" : "false"); break;
    case Type::kStruct:
    case Type::kArray: container(node); break;
    case Type::kFunction: function(node); break;
    default: null(node);
    }
}

inline void Writer::string(const clparse_node &node)
{
    if (node.value.text == nullptr) {
        out_.fail();
        return;
    }
    begin(node, "string");
    if (is_xml(form_))
        out_.put_escaped(node.value.text, kXmlEscapes);
    else
        out_.put('"').put_escaped(node.value.text, kQuoteEscapes).put('"');
    end(node);
}

// Paths say where numbers and booleans are, not what they are.
inline void Writer::scalar(const clparse_node &node, std::string_view kind, std::string_view text)
{
    begin(node, kind);
    out_.put(form_ == Form::kPaths ? "llu" : text);
    end(node);
}

void Writer::container(const clparse_node &node)
{
    const bool is_array = type_of(node) == Type::kArray;
    if (form_ != Form::kPaths) begin(node, is_array ? "array" : "struct");
    if (form_ == Form::kCompact) out_.put(is_array ? '[' : '{');
    end_line();
    enter(node, nullptr, form_ != Form::kPaths);
}

void Writer::end_container(const clparse_node &node)
{
    if (is_xml(form_)) {
        indent();
        end(node);
    } else {
        out_.put(type_of(node) == Type::kArray ? ']' : '}');
    }
}

// What is no container has no members to write.
void Writer::function(clparse_node &node)
{
    if (is_xml(form_)) {
        null(node);
        return;
    }
    clparse_node *const result = resolve(node);
    if (result != nullptr && is_container(*result)) {
        enter(*result, &node, false);
    } else {
        release_result(&node);
    }
}

void Writer::null(const clparse_node &node)
{
    if (is_xml(form_)) {
        start_tag(node, "null");
        out_.put(" />");
        end_line();
    } else {
        name(node);
    }
}

// What stands before a value, and behind it.
inline void Writer::begin(const clparse_node &node, std::string_view kind)
{
    if (is_xml(form_)) {
        start_tag(node, kind);
        out_.put('>');
    } else if (name(node)) {
        out_.put('=');
    }
}

inline void Writer::end(const clparse_node &node)
{
    if (!is_xml(form_)) return;
    out_.put("</");
    name(node);
    out_.put('>');
    end_line();
}

inline void Writer::extend_path(const clparse_node &node, size_t position)
{
    const Level &level = levels_.top();
    path_.shrink_to(level.path_length);
    const Decimal digits(position);
    const std::string_view name = path_name(node, digits);
    const bool below_root = levels_.size() > 1;
    if ((below_root && !path_.push('.')) || !path_.append(name.data(), name.size())) out_.fail();
}

// Writes what a member is called; false where it has no name, inside an array of a text.
inline bool Writer::name(const clparse_node &node)
{
    if (form_ == Form::kPaths) {
        out_.put({path_.items(), path_.size()});
    } else if (type_of(*levels_.top().container) != Type::kArray) {
        out_.put(printed_name(node));
    } else if (is_xml(form_)) {
        out_.put("li");
    } else {
        return false;
    }
    return true;
}

inline void Writer::start_tag(const clparse_node &node, std::string_view kind)
{
    indent();
    out_.put('<');
    name(node);
    out_.put(" type=\"").put(kind).put('"');
}

inline void Writer::indent()
{
    if (form_ == Form::kPrettyXml) out_.put_repeated('\t', levels_.size());
}

inline void Writer::end_line()
{
    if (form_ == Form::kPrettyXml) out_.put('\n');
}

} // namespace

} // namespace vn::corelink

using namespace vn::corelink;

extern "C" int clparse_get_corelink(clparse_head *head, char **text, unsigned char path_mode)
{
    if (text == nullptr) return -1;
    *text = nullptr;
    if (head == nullptr) return -1;
    TextBuffer out({"clparse_get_corelink", 829});
    Writer(out, path_mode != 0 ? Form::kPaths : Form::kCompact).members(head->root);
    *text = out.finish();
    return *text != nullptr ? 0 : -1;
}

extern "C" int clparse_get_xml(clparse_head *head, char **xml, unsigned char pretty)
{
    if (head == nullptr || xml == nullptr) return -1;
    TextBuffer out({"clparse_get_xml", 802});
    Writer(out, pretty != 0 ? Form::kPrettyXml : Form::kDenseXml).document(head->root);
    *xml = out.finish();
    return 0;
}
