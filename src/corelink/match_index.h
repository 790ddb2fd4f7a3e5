// match_index.h - the children of one wide container by their tags, for the length of a merge.
//
// A merge asks for the first child with a tag or, where the source brings members of its own, for
// the first container with it. It can turn the first child of a tag into a leaf, no other; so those
// two answers need just two nodes a tag: the first, and the first container behind it.
//
// Trees that are merged often have their members in the same order. So, as long as no two children
// have the same tag, the child behind the last one found is looked at before any hash is computed.
//
// The index is an open-addressing table, at most half full. It is only a short cut: whoever cannot
// have one walks the list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vnlib/corelink.h"

namespace vn::corelink {

// Two absent tags are equal, as array elements that the parser made have none.
inline bool same_tag(const char *left, const char *right)
{
    if (left == nullptr || right == nullptr) return left == right;
    return std::strcmp(left, right) == 0;
}

class MatchIndex {
public:
    // Indexes the nodes of a child list. Null when there are more than `limit`, when one of them is
    // a function node, whose tag does not say what it yields, or when memory is short.
    static MatchIndex *build(const clparse_node &list, size_t limit);
    static void destroy(MatchIndex *index);

    // The child that a merge finds for a source node, or null.
    [[nodiscard]] clparse_node *find(const clparse_node &source);

    // Takes in a child that was appended to the container; false when memory is short.
    [[nodiscard]] bool add(clparse_node &child);

private:
    struct Slot {
        clparse_node *child; // null: the slot is free
        uint32_t hash;       // of its tag; inverted, for the first container behind the first child
    };

    explicit MatchIndex(const clparse_node &list) : list_(list), expected_(list.next) {}

    [[nodiscard]] uint32_t hash_of(const char *tag) const;
    [[nodiscard]] Slot &slot_of(const char *tag, uint32_t hash) const;
    [[nodiscard]] clparse_node *first_with(const char *tag) const;
    void enter(clparse_node &child);
    bool resize(size_t capacity);

    const clparse_node &list_; // the sentinel
    clparse_node *expected_;   // the child behind the last one found
    bool tags_differ_ = true;  // all of them
    Slot *slots_ = nullptr;
    size_t capacity_ = 0; // a power of two
    size_t used_ = 0;
};

} // namespace vn::corelink
