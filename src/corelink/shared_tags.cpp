// shared_tags.cpp - an open-addressing table with linear probing.
#include "corelink/shared_tags.h"

#include <climits>
#include <cstdlib>

namespace vn::corelink {

namespace {

constexpr unsigned kFirstBits = 4;

constexpr size_t slots_of(unsigned bits)
{
    return bits == 0 ? 0 : size_t{1} << bits;
}

} // namespace

// Multiplicative hashing (Knuth, TAOCP vol. 3, 6.4): the upper bits of the product depend on all
// bits of the address, the lower ones of which are always zero.
size_t SharedTags::home(const char *tag) const
{
    constexpr auto kGolden = static_cast<uintptr_t>(0x9E37'79B9'7F4A'7C15u);
    return (reinterpret_cast<uintptr_t>(tag) * kGolden) >> (sizeof(uintptr_t) * CHAR_BIT - bits_);
}

// The slot of `tag`, or the free one where it would stand.
size_t SharedTags::find(const char *tag) const
{
    size_t slot = home(tag);
    while (slots_[slot].tag != nullptr && slots_[slot].tag != tag)
        slot = (slot + 1) & (slots_of(bits_) - 1);
    return slot;
}

// Moves the entries in use to the front. Nobody can foresee which those are, the processor least of
// all: each is moved, and the next one overwrites it if it was a free one.
void SharedTags::gather(Entry *slots, size_t count)
{
    size_t used = 0;
    for (size_t i = 0; i < count; ++i) {
        slots[used] = slots[i];
        used += slots[i].tag != nullptr ? 1 : 0;
    }
}

bool SharedTags::make_room()
{
    if (2 * (used_ + 1) <= slots_of(bits_)) return true;
    const unsigned bits = bits_ == 0 ? kFirstBits : bits_ + 1;
    auto *const slots = static_cast<Entry *>(calloc(size_t{1} << bits, sizeof(Entry)));
    if (slots == nullptr) return false;
    Entry *const old = slots_;
    gather(old, slots_of(bits_));
    slots_ = slots;
    bits_ = bits;
    for (size_t i = 0; i < used_; ++i) slots_[find(old[i].tag)] = old[i];
    free(old);
    return true;
}

bool SharedTags::add(const char *tag)
{
    const MutexLock hold(mutex_);
    if (!make_room()) return false;
    Entry &entry = slots_[find(tag)];
    if (entry.tag == nullptr) {
        entry.tag = tag;
        ++used_;
    }
    ++entry.others;
    any_.store(true, std::memory_order_release);
    return true;
}

bool SharedTags::drop_shared(const char *tag)
{
    const MutexLock hold(mutex_);
    if (used_ == 0) return false;
    const size_t slot = find(tag);
    if (slots_[slot].tag == nullptr) return false;
    if (--slots_[slot].others == 0) erase(slot);
    return true;
}

// Closes the gap, so that a probe never meets a free slot before the entry it looks for.
void SharedTags::erase(size_t slot)
{
    const size_t mask = slots_of(bits_) - 1;
    for (size_t next = (slot + 1) & mask; slots_[next].tag != nullptr; next = (next + 1) & mask) {
        const size_t probed = (next - home(slots_[next].tag)) & mask; // steps from its home to here
        if (probed < ((next - slot) & mask)) continue;                // its home lies after the gap
        slots_[slot] = slots_[next];
        slot = next;
    }
    slots_[slot] = {};
    if (--used_ > 0) return;
    free(slots_);
    slots_ = nullptr;
    bits_ = 0;
    any_.store(false, std::memory_order_release);
}

} // namespace vn::corelink
