// corelink_shape.h - looks at the records of a tree, for tests of what they are made of.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vnlib/corelink.h"
#include "vnlib/memcheck.h"

namespace shape {

// Ends a tree or a lone node with the scope.
struct Stop {
    void operator()(clparse_head *head) const { clparse_stop(head); }
    void operator()(clparse_node *node) const { clparse_delete_node(node); }
};
using Tree = std::unique_ptr<clparse_head, Stop>;
using LoneNode = std::unique_ptr<clparse_node, Stop>;

inline Tree empty_tree()
{
    clparse_head *head = nullptr;
    clparse_init_head(&head);
    return Tree(head);
}

inline std::vector<clparse_node *> children(const clparse_node *container)
{
    std::vector<clparse_node *> found;
    clparse_node *const sentinel = container->value.children;
    for (clparse_node *child = sentinel->next; child != sentinel; child = child->next)
        found.push_back(child);
    return found;
}

inline clparse_node *add(clparse_node *parent, clparse_node *child)
{
    return clparse_append_child(parent, child) == 0 ? child : nullptr;
}

// The members of a container as text: tag:value, containers in their brackets, texts in quotes,
// null members as the tag alone, function nodes as tag:function.
inline std::string members(const clparse_node *container);

inline std::string shown(const clparse_node *node)
{
    std::string text = node->tag == nullptr ? "-" : node->tag;
    switch (node->type) {
    case CLPARSE_STRING:
        return text + ":" +
               (node->value.text ? "\"" + std::string(node->value.text) + "\"" : "none");
    case CLPARSE_NUMBER: return text + ":" + std::to_string(node->value.number);
    case CLPARSE_BOOLEAN: return text + ":" + (node->value.boolean ? "true" : "false");
    case CLPARSE_STRUCT: return text + ":{" + members(node) + "}";
    case CLPARSE_ARRAY: return text + ":[" + members(node) + "]";
    case CLPARSE_FUNCTION: return text + ":function";
    default: return text;
    }
}

inline std::string members(const clparse_node *container)
{
    std::string text;
    for (const clparse_node *child : children(container)) {
        if (!text.empty()) text += " ";
        text += shown(child);
    }
    return text;
}

// True when a list's links agree in both directions and each child names `container` its parent.
inline bool well_linked(const clparse_node *container)
{
    const clparse_node *const sentinel = container->value.children;
    for (const clparse_node *at = sentinel; at->next != sentinel; at = at->next)
        if (at->next->prev != at || at->next->parent != container) return false;
    return sentinel->prev->next == sentinel;
}

} // namespace shape
