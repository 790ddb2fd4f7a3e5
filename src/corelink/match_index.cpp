#include "corelink/match_index.h"

#include <bit>
#include <cstdlib>
#include <new>

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
    auto *const index = new (memory) MatchIndex;
    if (index->resize(std::bit_ceil(count * 4 + 2)) && index->add_all(list)) return index;
    destroy(index);
    return nullptr;
}

bool MatchIndex::add_all(const clparse_node &list)
{
    for (clparse_node *node = list.next; node != &list; node = node->next) {
        if (!add(*node)) return false;
    }
    return true;
}

void MatchIndex::destroy(MatchIndex *index)
{
    if (index == nullptr) return;
    std::free(index->slots_);
    std::free(index);
}

clparse_node *MatchIndex::find(const clparse_node &source) const
{
    const Slot &slot = slot_of(source.tag, hash_of(source.tag));
    if (slot.first == nullptr || !is_container(source) || is_container(*slot.first)) {
        return slot.first;
    }
    return slot.later_container;
}

bool MatchIndex::add(clparse_node &child)
{
    if (used_ >= capacity_ / 2 && !resize(capacity_ * 2)) return false;
    const uint32_t hash = hash_of(child.tag);
    Slot &slot = slot_of(child.tag, hash);
    if (slot.first == nullptr) {
        slot = {&child, nullptr, hash};
        ++used_;
    } else if (slot.later_container == nullptr && is_container(child)) {
        slot.later_container = &child;
    }
    return true;
}

// The slot of a tag, or the free one where it belongs.
MatchIndex::Slot &MatchIndex::slot_of(const char *tag, uint32_t hash) const
{
    size_t place = hash & (capacity_ - 1);
    for (;; place = (place + 1) & (capacity_ - 1)) {
        Slot &slot = slots_[place];
        if (slot.first == nullptr) return slot;
        if (slot.hash == hash && same_tag(slot.first->tag, tag)) return slot;
    }
}

// FNV-1a (Fowler, Noll, Vo), begun with the index's own address, so that nobody can write a text
// whose tags all meet in one slot. An absent tag is a tag of its own.
uint32_t MatchIndex::hash_of(const char *tag) const
{
    auto hash = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this) >> 4);
    if (tag == nullptr) return hash;
    for (; *tag != '\0'; ++tag) hash = (hash ^ static_cast<unsigned char>(*tag)) * 0x0100'0193u;
    return hash ^ (hash >> 15);
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
        if (old[i].first != nullptr) slot_of(old[i].first->tag, old[i].hash) = old[i];
    }
    std::free(old);
    return true;
}

} // namespace vn::corelink
