// table.h - a hash table that links the items themselves and grows one bucket at a time.
//
// Linear hashing (W. Litwin, "Linear hashing: a new tool for file and table addressing", VLDB
// 1980): whenever there are more items than buckets, one bucket is split in two. No insertion ever
// pays for a rehash of everything, so no thread waits for one.
//
//     buckets 0..63    64..127      128..255     256..511
//     | in the table | segment 0 |  segment 1  |  segment 2  ...   each allocated when first needed
//
// Insertion cannot fail: without memory for the next segment the chains grow longer instead.
// Equal items are found newest first. Segments are kept when the table empties.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace vn::memcheck {

// What an item of a table begins with. The key stays as it is while the item is in the table.
struct Entry {
    Entry *chain;
    uintptr_t key;
};

class Table {
public:
    void insert(Entry &item)
    {
        if (++items_ > buckets_) split_next();
        Entry *&head = bucket_of(item.key);
        item.chain = head;
        head = &item;
    }

    void remove(const Entry &item)
    {
        Entry **link = &bucket_of(item.key);
        while (*link != &item) link = &(*link)->chain;
        *link = item.chain;
        --items_;
    }

    // Removes the newest item with this key; null when there is none.
    Entry *take(uintptr_t key)
    {
        Entry **link = &bucket_of(key);
        while (*link != nullptr && (*link)->key != key) link = &(*link)->chain;
        Entry *const item = *link;
        if (item == nullptr) return nullptr;
        *link = item->chain;
        --items_;
        return item;
    }

    // The newest item with this key, or null; and the next older one after it.
    Entry *find(uintptr_t key) { return first_with(key, bucket_of(key)); }
    static Entry *find_next(const Entry &item) { return first_with(item.key, item.chain); }

private:
    static constexpr size_t kInTable = 64;
    static constexpr size_t kSegments = 24; // the last one ends at 2^30 buckets

    static Entry *first_with(uintptr_t key, Entry *item)
    {
        while (item != nullptr && item->key != key) item = item->chain;
        return item;
    }

    // Fibonacci hashing of the bits that differ between blocks, folded so that the low bits, which
    // choose the bucket, depend on all of them.
    static uint32_t hash(uintptr_t key)
    {
        const auto mixed = static_cast<uint32_t>(key >> 2) * 0x9E3779B1u;
        return mixed ^ (mixed >> 15);
    }

    Entry *&bucket_of(uintptr_t key)
    {
        const size_t index = hash(key) & (2 * round_ - 1);
        return bucket(index < buckets_ ? index : index - round_);
    }

    Entry *&bucket(size_t index)
    {
        if (index < kInTable) return in_table_[index];
        return segments_[segment_of(index)][index - std::bit_floor(index)];
    }

    // Segment by segment the table doubles: each starts at a power of two and is as long as that.
    static size_t segment_of(size_t index)
    {
        return static_cast<size_t>(std::bit_width(index) - std::bit_width(kInTable));
    }

    // Half of bucket `buckets_ - round_` moves to the new last bucket; both keep their order.
    [[gnu::noinline]] void split_next()
    {
        const size_t segment = segment_of(buckets_);
        if (segment >= kSegments) return;
        Entry **&memory = segments_[segment];
        if (memory == nullptr) memory = static_cast<Entry **>(calloc(round_, sizeof(void *)));
        if (memory == nullptr) return;
        Entry **stay = &bucket(buckets_ - round_);
        Entry **move = &bucket(buckets_);
        for (Entry *item = *stay; item != nullptr; item = item->chain) {
            Entry **&tail = (hash(item->key) & round_) != 0 ? move : stay;
            *tail = item;
            tail = &item->chain;
        }
        *stay = *move = nullptr;
        if (++buckets_ == 2 * round_) round_ = buckets_;
    }

    size_t items_ = 0;
    size_t buckets_ = kInTable;
    size_t round_ = kInTable; // the largest power of two that is not above the buckets
    std::array<Entry *, kInTable> in_table_{};
    std::array<Entry **, kSegments> segments_{};
};

} // namespace vn::memcheck
