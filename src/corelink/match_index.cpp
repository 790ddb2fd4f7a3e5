#include "corelink/match_index.h"

#include <bit>
#include <cstdlib>
#include <new>

#include "corelink/tag_hash.h"
#include "corelink/tree.h"

namespace vn::corelink {

MatchIndex *MatchIndex::build(const clparse_node &list, size_t limit)
{
    size_t count = 0;
    for (const clparse_node *node = list.next; node != &list; node = node->next) {
        if (node == nullptr || ++count > limit || type_of(*node) == Type::kFunction) return nullptr;
    }
    void *const memory = std::malloc(sizeof(MatchIndex));
    if (memory == nullptr) return nullptr;
    auto *const index = new (memory) MatchIndex(list);
    if (!index->resize(std::bit_ceil(count * 2 + 2))) {
        destroy(index);
        return nullptr;
    }
    for (clparse_node *node = list.next; node != &list; node = node->next) index->enter(*node);
    return index;
}

void MatchIndex::destroy(MatchIndex *index)
{
    if (index == nullptr) return;
    std::free(index->slots_);
    std::free(index);
}

clparse_node *MatchIndex::find(const clparse_node &source)
{
    clparse_node *const first = first_with(source.tag);
    if (first == nullptr) return nullptr;
    expected_ = first->next;
    if (!is_container(source) || is_container(*first)) return first;
    return tags_differ_ ? nullptr : slot_of(source.tag, ~hash_of(source.tag)).child;
}

clparse_node *MatchIndex::first_with(const char *tag) const
{
    if (tags_differ_ && expected_ != &list_ && same_tag(expected_->tag, tag)) return expected_;
    return slot_of(tag, hash_of(tag)).child;
}

bool MatchIndex::add(clparse_node &child)
{
    if (used_ >= capacity_ / 2 && !resize(capacity_ * 2)) return false;
    enter(child);
    return true;
}

// There is room for it.
void MatchIndex::enter(clparse_node &child)
{
    uint32_t hash = hash_of(child.tag);
    Slot *slot = &slot_of(child.tag, hash);
    if (slot->child != nullptr) {
        tags_differ_ = false;
        hash = ~hash;
        slot = &slot_of(child.tag, hash);
        if (slot->child != nullptr || !is_container(child)) return;
    }
    *slot = {&child, hash};
    ++used_;
}

// The slot of a tag, or the free one where it belongs.
MatchIndex::Slot &MatchIndex::slot_of(const char *tag, uint32_t hash) const
{
    size_t place = hash & (capacity_ - 1);
    for (;; place = (place + 1) & (capacity_ - 1)) {
        Slot &slot = slots_[place];
        if (slot.child == nullptr) return slot;
        if (slot.hash == hash && same_tag(slot.child->tag, tag)) return slot;
    }
}

// Begun with the index's own address. An absent tag is a tag of its own.
uint32_t MatchIndex::hash_of(const char *tag) const
{
    const auto seed = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this) >> 4);
    return tag != nullptr ? hash_tag(tag, seed) : seed;
}

bool MatchIndex::resize(size_t capacity)
{
    auto *const slots = static_cast<Slot *>(std::calloc(capacity, sizeof(Slot)));
    if (slots == nullptr) return false;
    Slot *const old = slots_;
    const size_t old_capacity = capacity_;
    slots_ = slots;
    capacity_ = capacity;
    for (size_t i = 0; i < old_capacity; ++i) {
        if (old[i].child != nullptr) slot_of(old[i].child->tag, old[i].hash) = old[i];
    }
    std::free(old);
    return true;
}

} // namespace vn::corelink
