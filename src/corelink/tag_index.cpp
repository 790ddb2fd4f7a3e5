// tag_index.cpp - an open-addressing table of nodes, keyed by parent and tag.
#include "corelink/tag_index.h"

#include <cstring>
#include <ctime>

#include "corelink/tag_hash.h"
#include "corelink/tree.h"
#include "vnlib/memcheck.h"

namespace vn::corelink {

namespace {

constexpr unsigned kNear = 16; // children looked at before the table is asked
constexpr size_t kFirstSize = 64;

bool has_tag(const clparse_node &node, const char *tag)
{
    return node.tag != nullptr && strcmp(node.tag, tag) == 0;
}

// Walks back from the last child, over `limit` children at most. Stores where the walk ended: at
// the sentinel, when the whole level has been seen.
clparse_node *search_back(clparse_node *&at, const clparse_node *sentinel, const char *tag,
                          size_t limit)
{
    for (at = sentinel->prev; at != sentinel && limit > 0; at = at->prev, --limit)
        if (has_tag(*at, tag)) return at;
    return nullptr;
}

} // namespace

TagIndex::TagIndex()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    seed_ = static_cast<size_t>(now.tv_nsec) ^ reinterpret_cast<uintptr_t>(this);
}

TagIndex::~TagIndex()
{
    if (slots_ != nullptr) vn_memcheck_free(vn_free, slots_, VN_CORELINK_HERE);
}

clparse_node *TagIndex::last_tagged(const clparse_node &container, const char *tag)
{
    const clparse_node *const sentinel = container.value.children;
    clparse_node *at;
    clparse_node *const near = search_back(at, sentinel, tag, kNear);
    if (near != nullptr || at == sentinel) return near;
    if (cover(container)) return find(&container, tag);
    return search_back(at, sentinel, tag, SIZE_MAX); // no memory for the table: slower, not wrong
}

size_t TagIndex::hash(const clparse_node *container, const char *tag) const
{
    return hash_tag(tag,
                    static_cast<uint32_t>(seed_ ^ (reinterpret_cast<uintptr_t>(container) >> 3)));
}

// The slot of the child with that tag, or the free one where it would stand.
clparse_node *&TagIndex::find(const clparse_node *container, const char *tag) const
{
    size_t slot = hash(container, tag) & (size_ - 1);
    while (slots_[slot] != nullptr &&
           (slots_[slot]->parent != container || !has_tag(*slots_[slot], tag)))
        slot = (slot + 1) & (size_ - 1);
    return slots_[slot];
}

// Enters the children that were appended since the last time. False without memory.
bool TagIndex::cover(const clparse_node &container)
{
    clparse_node *const sentinel = container.value.children;
    clparse_node *&entered = sentinel->parent;
    clparse_node *child = entered == nullptr ? sentinel->next : entered->next;
    for (; child != sentinel; child = child->next) {
        if (!enter(*child)) return false;
        entered = child;
    }
    return true;
}

bool TagIndex::enter(clparse_node &child)
{
    if (child.tag == nullptr) return true; // an array's element
    if (!make_room()) return false;
    clparse_node *&slot = find(child.parent, child.tag);
    if (slot == nullptr) ++used_;
    slot = &child; // of equal tags the last one is found
    return true;
}

bool TagIndex::make_room()
{
    if (2 * (used_ + 1) <= size_) return true;
    const size_t size = size_ == 0 ? kFirstSize : 2 * size_;
    auto *const slots = static_cast<clparse_node **>(
        vn_memcheck_malloc(vn_malloc, size * sizeof(void *), "clparse_start", __LINE__));
    if (slots == nullptr) return false;
    clparse_node **const old = slots_;
    const size_t old_size = size_;
    slots_ = slots;
    size_ = size;
    for (size_t i = 0; i < old_size; ++i)
        if (old[i] != nullptr) find(old[i]->parent, old[i]->tag) = old[i];
    if (old != nullptr) vn_memcheck_free(vn_free, old, VN_CORELINK_HERE);
    return true;
}

} // namespace vn::corelink
