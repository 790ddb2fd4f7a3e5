// post_order.h - visits every node of a tree after both of its subtrees.
//
//              4           The path is the way down from the root to the node at hand. It lies
//            /   \         on the stack as long as the tree is no deeper than a red-black tree
//          2       3       can be, then on the heap.
//         /                If the heap gives no more, the subtree below the path is walked by
//        1                 turning its links: a link taken downwards leads back up meanwhile.
//
// Why not simply recurse: plain search trees may be as deep as they have nodes, and our threads
// have small stacks. Why not always turn links: several threads may read a tree at a time.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "support/errno_guard.h"
#include "support/small.h"
#include "vnlib/red_black_tree.h"

namespace vn::red_black_tree {

class Path {
public:
    Path() = default;
    ~Path() { release(); }
    Path(const Path &) = delete;
    Path &operator=(const Path &) = delete;

    [[nodiscard]] bool empty() const { return size_ == 0; }
    [[nodiscard]] rb_node *last() const { return nodes_[size_ - 1]; }
    void pop() { --size_; }
    // False, with nothing changed, when there is no memory for one more.
    [[nodiscard]] bool push(rb_node *node)
    {
        if (size_ == capacity_ && !grow()) return false;
        nodes_[size_++] = node;
        return true;
    }

private:
    // A red-black tree of n nodes is at most 2 * log2(n + 1) high, and no memory holds 2^64 nodes.
    static constexpr size_t kRedBlackHeight = sizeof(void *) * 8 * 2;

    bool grow()
    {
        const ErrnoGuard keep; // nothing fails for the caller
        auto *const more = static_cast<rb_node **>(std::malloc(2 * capacity_ * sizeof(void *)));
        if (more == nullptr) return false;
        std::memcpy(more, nodes_, size_ * sizeof(void *));
        release();
        nodes_ = more;
        capacity_ *= 2;
        return true;
    }
    void release()
    {
        if (nodes_ != on_stack_) std::free(nodes_);
    }

    rb_node *on_stack_[kRedBlackHeight];
    rb_node **nodes_ = on_stack_;
    size_t size_ = 0;
    size_t capacity_ = kRedBlackHeight;
};

// Links that lead up. On the way through a left subtree it is the left link that does; in a right
// subtree it is the right one, and its lowest bit, which no node's address has, says so.
inline rb_node *marked(rb_node *up)
{
    return reinterpret_cast<rb_node *>(reinterpret_cast<uintptr_t>(up) | 1);
}
inline bool is_marked(const rb_node *link)
{
    return (reinterpret_cast<uintptr_t>(link) & 1) != 0;
}
inline rb_node *unmarked(rb_node *link)
{
    return reinterpret_cast<rb_node *>(reinterpret_cast<uintptr_t>(link) & ~uintptr_t{1});
}

// Needs no memory, but the tree for itself. All links of a node are restored when it is visited.
template <typename Visit>
void visit_turning_links(rb_node *node, Visit &visit)
{
    rb_node *up = nullptr;
    for (;;) {
        while (node != nullptr) {
            rb_node *const left = std::exchange(node->link[0], up);
            up = std::exchange(node, left);
        }
        while (up != nullptr && is_marked(up->link[1])) {
            rb_node *const above = unmarked(std::exchange(up->link[1], node));
            visit(*up);
            node = std::exchange(up, above);
        }
        if (up == nullptr) return;
        rb_node *const above = std::exchange(up->link[0], node);
        node = std::exchange(up->link[1], marked(above));
    }
}

template <typename Visit>
void walk_post_order(rb_node *node, Visit visit)
{
    Path path;
    for (;;) {
        while (node != nullptr && path.push(node)) node = node->link[0];
        if (node != nullptr) visit_turning_links(node, visit);
        const rb_node *done = node;
        while (!path.empty()) {
            rb_node *const last = path.last();
            if (last->link[1] != nullptr && last->link[1] != done) break;
            if (!visit(*last)) return;
            done = last;
            path.pop();
        }
        if (path.empty()) return;
        node = path.last()->link[1];
    }
}

// Any visitor, called through a pointer.
class AnyVisit {
public:
    template <typename Visit>
    explicit AnyVisit(Visit &visit)
        : visit_(&visit), call_([](void *any, const rb_node &node) -> bool {
              return (*static_cast<Visit *>(any))(node);
          })
    {
    }
    bool operator()(const rb_node &node) const { return call_(visit_, node); }

private:
    void *visit_;
    bool (*call_)(void *visit, const rb_node &node);
};

// Calls visit(node) for every node below and including `node` (null for none). `visit` returns
// whether it wants more; it may be called again all the same. Each visitor has a walk of its own;
// in a small build one walk serves them all.
template <typename Visit>
void visit_post_order(rb_node *node, Visit &&visit)
{
    if constexpr (kSmall)
        walk_post_order(node, AnyVisit(visit));
    else
        walk_post_order(node, [&visit](const rb_node &each) { return visit(each); });
}

} // namespace vn::red_black_tree
