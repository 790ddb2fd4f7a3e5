// text_writer.cpp - a tree as corelink text, or as the list of its leaves' paths.
//
//     compact   count=3,opts={on=true},list=[1,2]          what the parser reads
//     paths     count=llu,opts.on=llu,list.0=llu,list.1=llu
//
// A function node is written as the members of the node that it yields, without a name or brackets
// of its own; in path form they stand under the function node's path. Where a member has no tag its
// position takes the place of the name in a path, so that the path can be looked up.
//
// The walk keeps the open containers on a stack of its own and carries the path along. It never
// follows a node's `parent`: a child list that two trees share knows only one of them.
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

class TextWriter {
public:
    TextWriter(TextBuffer &out, bool path_mode) : out_(out), path_mode_(path_mode) {}

    void members(const clparse_node &root);

private:
    struct Level {
        const clparse_node *container;
        clparse_node *next;     // the member to write; the sentinel behind the last
        clparse_node *function; // the function node that yielded the container, or null
        size_t position;        // of `next`
        size_t path_length;     // how much of path_ names the container
        char closing;           // the bracket that ends it, or NUL
    };

    void enter(const clparse_node &container, clparse_node *function, char closing);
    void leave();
    void member();
    void value(clparse_node &node);
    void string(const clparse_node &node);
    void scalar(const clparse_node &node, std::string_view compact);
    void container(const clparse_node &node);
    void function(clparse_node &node);

    void extend_path(const clparse_node &node, size_t position);
    bool name(const clparse_node &node);
    void key(const clparse_node &node);

    TextBuffer &out_;
    const bool path_mode_;
    SmallStack<Level, 16> levels_;
    SmallStack<char, 256> path_; // of the member in hand, in path mode
};

// Also after an error every level is left, so that each function node gets its release call.
void TextWriter::members(const clparse_node &root)
{
    enter(root, nullptr, '\0');
    while (!levels_.empty()) {
        const Level &level = levels_.top();
        if (out_.ok() && level.next != level.container->value.children) {
            member();
        } else {
            leave();
        }
    }
}

void TextWriter::enter(const clparse_node &container, clparse_node *function, char closing)
{
    const clparse_node *const list = container.value.children;
    clparse_node *const first = list != nullptr ? list->next : nullptr;
    const Level level{&container, first, function, 0, path_.size(), closing};
    if (levels_.push(level)) return;
    out_.fail();
    release_result(function);
}

void TextWriter::leave()
{
    const Level &level = levels_.top();
    if (level.closing != '\0') out_.put(level.closing);
    release_result(level.function);
    levels_.pop();
}

void TextWriter::member()
{
    Level &level = levels_.top();
    clparse_node &node = *std::exchange(level.next, level.next->next);
    if (level.position != 0) out_.put(',');
    if (path_mode_) extend_path(node, level.position);
    ++level.position;
    if (out_.ok()) value(node);
}

void TextWriter::value(clparse_node &node)
{
    switch (type_of(node)) {
    case Type::kString: string(node); break;
    case Type::kNumber: scalar(node, Decimal(node.value.number).text()); break;
    case Type::kBoolean: scalar(node, node.value.boolean != 0 ? "true" : "false"); break;
    case Type::kStruct:
    case Type::kArray: container(node); break;
    case Type::kFunction: function(node); break;
    default: name(node);
    }
}

void TextWriter::string(const clparse_node &node)
{
    if (node.value.text == nullptr) {
        out_.fail();
        return;
    }
    key(node);
    out_.put('"').put_escaped<escape_quote>(node.value.text).put('"');
}

// Paths say where numbers and booleans are, not what they are.
void TextWriter::scalar(const clparse_node &node, std::string_view compact)
{
    key(node);
    out_.put(path_mode_ ? "llu" : compact);
}

void TextWriter::container(const clparse_node &node)
{
    if (path_mode_) {
        enter(node, nullptr, '\0');
        return;
    }
    key(node);
    const bool is_array = type_of(node) == Type::kArray;
    out_.put(is_array ? '[' : '{');
    enter(node, nullptr, is_array ? ']' : '}');
}

// What is no container has no members to write.
void TextWriter::function(clparse_node &node)
{
    clparse_node *const result = resolve(node);
    if (result != nullptr && is_container(*result)) {
        enter(*result, &node, '\0');
    } else {
        release_result(&node);
    }
}
void TextWriter::extend_path(const clparse_node &node, size_t position)
{
    const Level &level = levels_.top();
    path_.shrink_to(level.path_length);
    const Decimal digits(position);
    const std::string_view name = path_name(node, digits);
    const bool below_root = levels_.size() > 1;
    if ((below_root && !path_.push('.')) || !path_.append(name.data(), name.size())) out_.fail();
}

// Writes what a member is called; false where it has no name, inside an array.
bool TextWriter::name(const clparse_node &node)
{
    if (path_mode_) {
        out_.put({path_.items(), path_.size()});
        return true;
    }
    if (type_of(*levels_.top().container) == Type::kArray) return false;
    out_.put(printed_name(node));
    return true;
}

void TextWriter::key(const clparse_node &node)
{
    if (name(node)) out_.put('=');
}

} // namespace

} // namespace vn::corelink

extern "C" int clparse_get_corelink(clparse_head *head, char **text, unsigned char path_mode)
{
    using namespace vn::corelink;
    if (text == nullptr) return -1;
    *text = nullptr;
    if (head == nullptr) return -1;
    TextBuffer out({"clparse_get_corelink", 829});
    TextWriter(out, path_mode != 0).members(head->root);
    *text = out.finish();
    return *text != nullptr ? 0 : -1;
}
