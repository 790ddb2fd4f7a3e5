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
#include <functional>

namespace vn::memcheck {

// `next` is the item's link in this table, `hash` its member that tells its hash, which does not
// change while the item is in the table.
template <typename T, T *T::*next, auto hash>
class Table {
public:
    void insert(T &item)
    {
        if (++items_ > buckets_) split_next();
        T *&head = bucket_of(hash_of(item));
        item.*next = head;
        head = &item;
    }

    void remove(T &item)
    {
        T **link = &bucket_of(hash_of(item));
        while (*link != &item) link = &((*link)->*next);
        *link = item.*next;
        --items_;
    }

    // The newest item with this hash of which `matches(item)` is true, or null. Others may have the
    // same place in the table: the answer must not be true for them.
    template <typename Matches>
    T *find(uint32_t hash_wanted, Matches matches)
    {
        T *item = bucket_of(hash_wanted);
        while (item != nullptr && !matches(*item)) item = item->*next;
        return item;
    }

private:
    static uint32_t hash_of(const T &item)
    {
        return static_cast<uint32_t>(std::invoke(hash, item));
    }

    static constexpr size_t kInTable = 64;
    static constexpr size_t kSegments = 24; // the last one ends at 2^30 buckets

    T *&bucket_of(uint32_t hash_wanted)
    {
        const size_t round = std::bit_floor(buckets_);
        const size_t index = hash_wanted & (2 * round - 1);
        return bucket(index < buckets_ ? index : index - round);
    }

    T *&bucket(size_t index)
    {
        if (index < kInTable) return in_table_[index];
        return segments_[segment_of(index)][index - std::bit_floor(index)];
    }

    // Segment by segment the table doubles: each starts at a power of two and is as long as that.
    static size_t segment_of(size_t index)
    {
        return static_cast<size_t>(std::bit_width(index) - std::bit_width(kInTable));
    }

    bool have_bucket(size_t index)
    {
        const size_t segment = segment_of(index);
        if (segment >= kSegments) return false;
        if (segments_[segment] == nullptr)
            segments_[segment] = static_cast<T **>(calloc(kInTable << segment, sizeof(T *)));
        return segments_[segment] != nullptr;
    }

    // Half of bucket `buckets_ - round` moves to the new last bucket; both keep their order.
    void split_next()
    {
        if (!have_bucket(buckets_)) return;
        const size_t round = std::bit_floor(buckets_);
        T **stay = &bucket(buckets_ - round);
        T **move = &bucket(buckets_);
        for (T *item = *stay; item != nullptr; item = item->*next) {
            T **&tail = (hash_of(*item) & round) != 0 ? move : stay;
            *tail = item;
            tail = &(item->*next);
        }
        *stay = *move = nullptr;
        ++buckets_;
    }

    size_t items_ = 0;
    size_t buckets_ = kInTable;
    std::array<T *, kInTable> in_table_{};
    std::array<T **, kSegments> segments_{};
};

} // namespace vn::memcheck
