#include "corelink/match_index.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <utility>

#include "corelink/tag_hash.h"
#include "corelink/tree.h"

namespace vn::corelink {

namespace {

// The first blocks are of a size that the C library still keeps at hand: a larger one makes it sort
// whatever was released, which takes longer than a merge.
constexpr uint32_t kFirstCapacity = 64, kChainsPerEntry = 4, kNone = UINT32_MAX;

bool suits(const clparse_node &child, const clparse_node &source)
{
    return !is_container(source) || is_container(child);
}

} // namespace

MatchIndex *MatchIndex::of(const clparse_node &list)
{
    void *const memory = std::malloc(sizeof(MatchIndex));
    if (memory == nullptr) return nullptr;
    auto *const index = new (memory) MatchIndex(list);
    if (index->resize(kFirstCapacity)) return index;
    destroy(index);
    return nullptr;
}

void MatchIndex::destroy(MatchIndex *index)
{
    if (index == nullptr) return;
    std::free(index->entries_);
    std::free(index->chains_);
    std::free(index);
}

MatchIndex::Answer MatchIndex::find(const clparse_node &source, clparse_node *&found)
{
    found = expected_;
    if (!tags_differ_ || expected_ == next_ || !same_tag(expected_->tag, source.tag) ||
        !suits(*expected_, source)) {
        missed_ = hash_of(source.tag);
        found = entered_for(source, missed_);
        if (found == nullptr) {
            const Answer answer = enter_up_to(source, missed_, found);
            if (answer != Answer::kFound) return answer;
        }
    }
    expected_ = found->next;
    return Answer::kFound;
}

// What the table knows of a tag.
clparse_node *MatchIndex::entered(const char *tag, uint32_t hash) const
{
    for (uint32_t at = chain_of(hash); at != kNone; at = entries_[at].next) {
        const Entry &entry = entries_[at];
        if (entry.hash == hash && same_tag(entry.child->tag, tag)) return entry.child;
    }
    return nullptr;
}

clparse_node *MatchIndex::entered_for(const clparse_node &source, uint32_t hash) const
{
    clparse_node *const first = entered(source.tag, hash);
    return first == nullptr || suits(*first, source) ? first : entered(source.tag, hash | 1);
}

// Enters the other children, up to the one that is looked for.
MatchIndex::Answer MatchIndex::enter_up_to(const clparse_node &source, uint32_t hash,
                                           clparse_node *&found)
{
    while (next_ != &list_) {
        clparse_node *const child = next_;
        if (child == nullptr || type_of(*child) == Type::kFunction) return Answer::kUnknown;
        const bool as_expected = child == expected_ && same_tag(child->tag, source.tag);
        const uint32_t its_hash = as_expected ? hash : hash_of(child->tag);
        if (!enter(*child, its_hash)) return Answer::kUnknown;
        next_ = child->next;
        if (its_hash == hash && (as_expected || same_tag(child->tag, source.tag)) &&
            suits(*child, source)) {
            found = child;
            return Answer::kFound;
        }
    }
    return Answer::kMissing;
}

// Without memory it remains for the next search to enter.
void MatchIndex::add(clparse_node &child)
{
    if (next_ == &list_ && !enter(child, missed_)) next_ = &child;
}

// False when memory is short.
bool MatchIndex::enter(clparse_node &child, uint32_t hash)
{
    if (used_ == capacity_ && !resize(capacity_ * 2)) return false;
    if (entered(child.tag, hash) != nullptr) {
        tags_differ_ = false;
        hash |= 1;
        if (!is_container(child) || entered(child.tag, hash) != nullptr) return true;
    }
    entries_[used_] = {&child, hash, kNone};
    link(used_++);
    return true;
}

void MatchIndex::link(uint32_t entry)
{
    entries_[entry].next = std::exchange(chain_of(entries_[entry].hash), entry);
}

// Begun with the index's own address. An absent tag is a tag of its own.
uint32_t MatchIndex::hash_of(const char *tag) const
{
    const auto seed = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this) >> 4);
    return (tag != nullptr ? hash_tag(tag, seed) : seed) & ~1u;
}

bool MatchIndex::resize(uint32_t capacity)
{
    if (capacity > std::min<size_t>(kNone, PTRDIFF_MAX / sizeof(Entry)) / kChainsPerEntry)
        return false;
    void *const entries = std::realloc(entries_, capacity * sizeof *entries_);
    if (entries == nullptr) return false;
    entries_ = static_cast<Entry *>(entries);
    const size_t size = size_t{capacity} * kChainsPerEntry * sizeof *chains_;
    void *const chains = std::malloc(size);
    if (chains == nullptr) return false;
    std::free(chains_);
    chains_ = static_cast<uint32_t *>(std::memset(chains, 0xFF, size));
    capacity_ = capacity;
    mask_ = capacity * kChainsPerEntry - 1;
    for (uint32_t entry = 0; entry < used_; ++entry) link(entry);
    return true;
}

} // namespace vn::corelink
