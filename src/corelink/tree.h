// tree.h - nodes, their child lists, and who releases what. The typed core below corelink.h.
//
//     container ── children ──> sentinel ⇄ first ⇄ ... ⇄ last ⇄ (back to the sentinel)
//
// Invariant: a container always has a sentinel; a node is in one list at most, and a node in no
//            list has null links or links to itself.
// Sharing:   after an insert two nodes may hold the same tag and the same child list. Each holder
//            gives up its own hold (release_tag, release_children); the last one releases the part.
//            A node of a shared list names one of the holders as its parent, which may be gone: do
//            not follow `parent` out of the tree at hand. And one node can then be reached from two
//            trees: code that copies from a source to a target must allow both to be the same node.
// Beware:    no function here recurses, and releasing needs no memory; keep it so. Input chooses
//            the depth of a tree.
#pragma once

#include <cstdint>
#include <utility>

#include "vnlib/corelink.h"

// The site text of a release, "corelink:" and a line: here the line it stands on.
#define VN_CORELINK_STRING(x) #x
#define VN_CORELINK_AT(line) "corelink:" VN_CORELINK_STRING(line)
#define VN_CORELINK_HERE VN_CORELINK_AT(__LINE__)

namespace vn::corelink {

enum class Type : uint32_t {
    kNull = CLPARSE_NULL,
    kString = CLPARSE_STRING,
    kNumber = CLPARSE_NUMBER,
    kBoolean = CLPARSE_BOOLEAN,
    kStruct = CLPARSE_STRUCT,
    kArray = CLPARSE_ARRAY,
    kFunction = CLPARSE_FUNCTION,
};

inline Type type_of(const clparse_node &node)
{
    return static_cast<Type>(node.type);
}

inline void set_type(clparse_node &node, Type type)
{
    node.type = static_cast<uint32_t>(type);
}

inline bool is_container(const clparse_node &node)
{
    return type_of(node) == Type::kStruct || type_of(node) == Type::kArray;
}

// The children of a container in order; none for a node that is no container. The loop's own child
// must stay in the list until the loop has moved on.
class Children {
public:
    class Iterator {
    public:
        explicit Iterator(clparse_node *node) : node_(node) {}
        clparse_node &operator*() const { return *node_; }
        Iterator &operator++()
        {
            node_ = node_->next;
            return *this;
        }
        bool operator==(const Iterator &) const = default;

    private:
        clparse_node *node_;
    };

    explicit Children(const clparse_node &container)
        : sentinel_(is_container(container) ? container.value.children : nullptr)
    {
    }
    [[nodiscard]] Iterator begin() const
    {
        return Iterator(sentinel_ == nullptr ? nullptr : sentinel_->next);
    }
    [[nodiscard]] Iterator end() const { return Iterator(sentinel_); }
    [[nodiscard]] bool empty() const { return begin() == end(); }

private:
    clparse_node *sentinel_;
};

// A zero-filled record whose reference count is prepared, charged to `site`; null without memory.
clparse_node *new_record(const char *site, unsigned line);
clparse_node *new_node();                                    // what every node is charged to
clparse_node *new_sentinel();                                // the same, linked to itself
clparse_node *new_sentinel(const char *site, unsigned line); // charged to `site`

// A copy of `text` as a tracked block of its exact size; null without memory.
char *copy_text(const char *text, const char *site, unsigned line);

// Links `child`, which is in no list, as the last child of a container.
inline void append(clparse_node &container, clparse_node &child)
{
    clparse_node &sentinel = *container.value.children;
    child.parent = &container;
    child.next = &sentinel;
    child.prev = sentinel.prev;
    sentinel.prev->next = &child;
    sentinel.prev = &child;
}

// Takes a node out of its list, if it is in one; its links then lead to itself.
void unlink(clparse_node &node);

// What becomes of the private pointers of function nodes that are released.
enum class Privates { kKeep, kRelease };

// Each releases what the node holds (or its hold, when shared) and leaves null in its place.
// `where` is the site text of the release.
void release_text(char *&text, const char *where);
void release_tag(clparse_node &node, const char *where);
void release_children(clparse_node &node, Privates privates); // the sentinel too
void release_value(clparse_node &node, Privates privates);    // whatever the type says

void release_record(clparse_node *record, const char *where); // the bare record
void release_node(clparse_node *node, Privates privates);     // value, tag and record

// For a container that goes while its children stay: each child is left in no list, the sentinel is
// released. A list that others hold stays as it is.
void orphan_children(clparse_node &container);

// For a node whose record is about to be copied: counts one more holder of its tag (false when
// there is no memory to count it) or of its child list.
bool share_tag(const clparse_node &node);
void share_children(const clparse_node &node);

// Holds a list, given by its sentinel, for as long as it is read while a container that has it may
// give it up; the last to let go of it releases it.
void hold_list(clparse_node &sentinel);
void let_go_of_list(clparse_node &sentinel);
bool is_shared(const clparse_node &sentinel); // by more than one holder

// A node with one owner, released with everything below it unless release() lets it go.
class OwnedNode {
public:
    explicit OwnedNode(clparse_node *node) : node_(node) {}
    ~OwnedNode()
    {
        if (node_ != nullptr) release_node(node_, Privates::kKeep);
    }
    OwnedNode(const OwnedNode &) = delete;
    OwnedNode &operator=(const OwnedNode &) = delete;

    explicit operator bool() const { return node_ != nullptr; }
    clparse_node *operator->() const { return node_; }
    clparse_node &operator*() const { return *node_; }
    clparse_node *release() { return std::exchange(node_, nullptr); } // ownership leaves by name

private:
    clparse_node *node_;
};

// Whom a head's blocks are charged to, and at which lines.
struct HeadSite {
    const char *function;
    unsigned head, sentinel, tag;
};
clparse_head *new_head(const HeadSite &site);             // an empty tree, or null without memory
void release_head(clparse_head *head, const char *where); // the tree, the scanner and the head

} // namespace vn::corelink
