// index.h - finds a record by its 64-bit key in a time that does not grow with their number.
//
//     buckets:  | o | o | o | ... |         each bucket is a chain through the records' own links
//                 |       |
//                 A -> C  B
//
// Records are Entries with something behind them; linking one allocates nothing, so it cannot fail.
// When doubling the buckets fails, the chains just grow longer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace vn::check_lock {

struct Entry {
    uint64_t key;
    Entry *chain;
};

class Index {
public:
    constexpr Index() = default;
    Index(const Index &) = delete;
    Index &operator=(const Index &) = delete;

    // Null when there is none.
    [[nodiscard]] Entry *find(uint64_t key) { return *link_to(key); }

    void add(Entry &entry)
    {
        if (count_ >= size() / 2) grow();
        link(entry);
        ++count_;
    }

    // As find(), but the record is no longer in the index afterwards.
    Entry *take(uint64_t key)
    {
        Entry **const place = link_to(key);
        Entry *const entry = *place;
        if (entry == nullptr) return nullptr;
        *place = entry->chain;
        --count_;
        return entry;
    }

    // Gives every record back to the C library, and the memory of the index itself.
    void clear()
    {
        for (size_t i = 0; i < size(); ++i)
            while (Entry *const entry = buckets()[i]) {
                buckets()[i] = entry->chain;
                free(entry);
            }
        free(grown_);
        grown_ = nullptr;
        doublings_ = 0;
        count_ = 0;
    }

private:
    static constexpr unsigned kFewBits = 6;

    [[nodiscard]] size_t size() const { return size_t{1} << (kFewBits + doublings_); }
    [[nodiscard]] Entry **buckets() { return grown_ != nullptr ? grown_ : few_; }

    // Multiplicative hashing (Knuth 3, section 6.4): the high bits of a product with 2^64 / phi.
    [[nodiscard]] Entry *&bucket_of(uint64_t key)
    {
        const uint64_t product = key * 0x9E37'79B9'7F4A'7C15u;
        return buckets()[static_cast<size_t>(product >> (64 - kFewBits - doublings_))];
    }

    // The link that holds the record with this key, or the null that ends its chain.
    [[nodiscard]] Entry **link_to(uint64_t key)
    {
        Entry **place = &bucket_of(key);
        while (*place != nullptr && (*place)->key != key) place = &(*place)->chain;
        return place;
    }

    void link(Entry &entry)
    {
        Entry *&bucket = bucket_of(entry.key);
        entry.chain = bucket;
        bucket = &entry;
    }

    [[gnu::noinline]] void grow()
    {
        auto **const wider = static_cast<Entry **>(calloc(size() * 2, sizeof(void *)));
        if (wider == nullptr) return;
        Entry **const old = buckets();
        Entry **const released = std::exchange(grown_, wider);
        const size_t old_size = size();
        ++doublings_;
        for (size_t i = 0; i < old_size; ++i)
            while (Entry *const entry = old[i]) {
                old[i] = entry->chain;
                link(*entry);
            }
        free(released);
    }

    Entry *few_[size_t{1} << kFewBits] = {};
    Entry **grown_ = nullptr;
    unsigned doublings_ = 0; // a zero, as all of a new index: it takes no space in the file
    size_t count_ = 0;
};

} // namespace vn::check_lock
