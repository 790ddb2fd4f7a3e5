// tag_index.h - finds the last child with a tag, while a text is parsed.
//
// Every dotted name asks its level for its first word. A level of thousands of dotted names would
// cost quadratic time if each search walked it, so only the last few children are looked at one by
// one; beyond them a hash table answers, into which each child is entered once, and only when a
// search has come past it. Texts without long levels of dotted names never make the table.
//
// Limits: children are appended, never removed, as long as the index lives. A level's sentinel
//         remembers in its unused `parent` which child was entered last.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vnlib/corelink.h"

namespace vn::corelink {

class TagIndex {
public:
    TagIndex();
    ~TagIndex();
    TagIndex(const TagIndex &) = delete;
    TagIndex &operator=(const TagIndex &) = delete;

    // The last child of `container` with that tag, or null.
    clparse_node *last_tagged(const clparse_node &container, const char *tag);

private:
    [[nodiscard]] size_t hash(const clparse_node *container, const char *tag) const;
    clparse_node *&find(const clparse_node *container, const char *tag) const;
    bool cover(const clparse_node &container);
    bool enter(clparse_node &child);
    bool make_room();

    clparse_node **slots_ = nullptr; // open addressing, at most half full; null in a free slot
    size_t size_ = 0;                // a power of two, or 0
    size_t used_ = 0;
    size_t seed_; // so that nobody can write a text whose tags all meet in one slot
};

} // namespace vn::corelink
