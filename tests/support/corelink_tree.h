// corelink_tree.h - small words for building corelink trees and reading what is written of them.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>

#include "vnlib/corelink.h"
#include "vnlib/memcheck.h"

namespace test::trees {

using Node = clparse_node;

// A tree that is released at the end of its scope: empty, or parsed from a text.
class Tree {
public:
    Tree() { clparse_init_head(&head_); }
    explicit Tree(const std::string &text) : head_(clparse_start(text.c_str())) {}
    Tree(std::initializer_list<Node *> members) : Tree()
    {
        for (Node *member : members) clparse_append_child(root(), member);
    }
    ~Tree() { clparse_stop(head_); }
    Tree(const Tree &) = delete;
    Tree &operator=(const Tree &) = delete;

    operator clparse_head *() const { return head_; }
    [[nodiscard]] Node *root() const { return clparse_get_head(head_); }
    [[nodiscard]] Node *at(const char *path) const { return clparse_get_node(head_, path); }
    Node *add(Node *member) const
    {
        clparse_append_child(root(), member);
        return member;
    }

private:
    clparse_head *head_ = nullptr;
};

inline Node *string(const char *tag, const char *text)
{
    return clparse_create_string_node(tag, text);
}
inline Node *number(const char *tag, uint64_t value)
{
    return clparse_create_number_node(tag, value);
}
inline Node *boolean(const char *tag, int flag)
{
    return clparse_create_boolean_node(tag, flag);
}
inline Node *with_members(Node *container, std::initializer_list<Node *> members)
{
    for (Node *member : members) clparse_append_child(container, member);
    return container;
}
inline Node *structure(const char *tag, std::initializer_list<Node *> members = {})
{
    return with_members(clparse_create_struct_node(tag), members);
}
inline Node *array(const char *tag, std::initializer_list<Node *> members = {})
{
    return with_members(clparse_create_array_node(tag), members);
}

// A null node, as a bare name parses to.
inline Node *null(const std::string &tag)
{
    return clparse_get_child(Tree(tag).root());
}

// A node without a tag, as the elements of a parsed array are.
inline Node *untagged(const std::string &value)
{
    const Tree tree("list=[" + value + "]");
    return clparse_get_child(tree.at("list"));
}

// A string node whose text is absent.
inline Node *textless(const char *tag)
{
    Node *const node = string(tag, "");
    clparse_set_node_value_s(node, nullptr);
    return node;
}

// What a function node yields: a node of the test's, or nothing. Its calls are written down by the
// function node's tag, "+tag" for resolve and "-tag" for release.
class Yield {
public:
    explicit Yield(Node *node = nullptr, int release_answer = 0, std::string *shared_log = nullptr)
        : result(node),
          release_result(release_answer),
          log(shared_log != nullptr ? shared_log : &calls)
    {
    }
    // A function node that yields the result; the tree it is put into must not outlive this.
    Node *node(const char *tag)
    {
        return clparse_create_function_node(tag, resolve, nullptr, release, this);
    }
    static Node *resolve(Node *node, void *priv)
    {
        auto *const self = static_cast<Yield *>(priv);
        *self->log += std::string("+") + node->tag;
        return self->result;
    }
    static int release(Node *node, void *priv)
    {
        auto *const self = static_cast<Yield *>(priv);
        *self->log += std::string("-") + node->tag;
        return self->release_result;
    }

    Node *result;
    int release_result;
    std::string calls;
    std::string *log;
};

// What a call handed out, as a value; nothing for a null text.
inline std::optional<std::string> take(char *text)
{
    if (text == nullptr) return std::nullopt;
    std::string value = text;
    vn_memcheck_free(free, text, "test:1");
    return value;
}

inline std::optional<std::string> text_of(clparse_head *head)
{
    char *text = nullptr;
    clparse_get_corelink(head, &text, 0);
    return take(text);
}
inline std::optional<std::string> paths_of(clparse_head *head)
{
    char *text = nullptr;
    clparse_get_corelink(head, &text, 1);
    return take(text);
}
inline std::optional<std::string> xml_of(clparse_head *head, unsigned char pretty = 0)
{
    char *text = nullptr;
    clparse_get_xml(head, &text, pretty);
    return take(text);
}

} // namespace test::trees
