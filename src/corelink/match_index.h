// match_index.h - the children of one wide container by their tags, for the length of a merge.
//
//     first .. last found | expected .. entered | next to enter .. last
//     `------------- in the table -------------'
//
// A merge asks for the first child with a tag or, where the source brings members of its own, for
// the first container with it. It can turn the first child of a tag into a leaf, no other; so those
// two answers need just two nodes a tag: the first, and the first container behind it.
//
// A search enters children until it meets the one that it looks for, as a walk over them would: so
// none is hashed in vain, nor twice. Trees that are merged often have their members in the same
// order: as long as no two children have the same tag, the child behind the last one found is
// looked at before any hash is computed.
//
// The table is chained, with few children a chain: most searches for what is not there end at an
// empty one, as the processor expects. Entries stand in the order in which they were made, so that
// a larger table is made of them in one go. The index is only a short cut: whoever cannot have one
// walks the list.
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
    // Of a child list, given by its sentinel. Null when memory is short.
    static MatchIndex *of(const clparse_node &list);
    static void destroy(MatchIndex *index);

    enum class Answer {
        kFound,
        kMissing,
        kUnknown // memory is short, or a search came to a function node, whose tag does not say
                 // what it yields, or to where the list is broken
    };
    // Looks for the child that a merge finds for a source node.
    [[nodiscard]] Answer find(const clparse_node &source, clparse_node *&found);

    // Takes in a child that was appended to the container because find() had missed its tag.
    void add(clparse_node &child);

private:
    struct Entry {
        clparse_node *child;
        uint32_t hash; // of its tag; odd, for the first container behind the first child
        uint32_t next; // in its chain
    };

    explicit MatchIndex(const clparse_node &list)
        : list_(list), next_(list.next), expected_(list.next)
    {
    }

    [[nodiscard]] uint32_t hash_of(const char *tag) const;
    [[nodiscard]] uint32_t &chain_of(uint32_t hash) const { return chains_[hash / 2 & mask_]; }
    [[nodiscard]] clparse_node *entered(const char *tag, uint32_t hash) const;
    [[nodiscard]] clparse_node *entered_for(const clparse_node &source, uint32_t hash) const;
    Answer enter_up_to(const clparse_node &source, uint32_t hash, clparse_node *&found);
    bool enter(clparse_node &child, uint32_t hash);
    void link(uint32_t entry);
    bool resize(uint32_t capacity);

    const clparse_node &list_; // the sentinel
    clparse_node *next_;       // the first child that is not entered; the sentinel when all are
    clparse_node *expected_;   // the child behind the last one found
    bool tags_differ_ = true;  // those of all entered
    uint32_t missed_ = 0;      // the hash of the last tag that was looked for in the table
    uint32_t used_ = 0, capacity_ = 0, mask_ = 0;
    Entry *entries_ = nullptr;
    uint32_t *chains_ = nullptr; // each one's last entry, or kNone
};

} // namespace vn::corelink
