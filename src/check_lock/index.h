// index.h - finds a record by its 64-bit key in a time that does not grow with their number.
//
//     buckets:  | o | o | o | ... |         each bucket is a chain through the records' own links
//                 |       |
//                 A -> C  B
//
// Records need a `uint64_t key` and a `Record *chain`; linking one allocates nothing, so it cannot
// fail. When doubling the buckets fails, the chains just grow longer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <utility>

namespace vn::check_lock {

template <typename Record>
class Index {
public:
    constexpr Index() = default;
    Index(const Index &) = delete;
    Index &operator=(const Index &) = delete;

    // Null when there is none.
    [[nodiscard]] Record *find(uint64_t key) { return *link_to(key); }

    void add(Record &record)
    {
        if (count_ >= size() / 2) grow();
        link(record);
        ++count_;
    }

    // As find(), but the record is no longer in the index afterwards.
    Record *take(uint64_t key)
    {
        Record **const place = link_to(key);
        Record *const record = *place;
        if (record == nullptr) return nullptr;
        *place = record->chain;
        --count_;
        return record;
    }

    // Hands every record to `release` and is empty, without memory of its own, afterwards.
    template <typename Release>
    void clear(Release release)
    {
        for (size_t i = 0; i < size(); ++i)
            while (Record *const record = buckets()[i]) {
                buckets()[i] = record->chain;
                release(*record);
            }
        free(grown_);
        grown_ = nullptr;
        bits_ = kFewBits;
        count_ = 0;
    }

private:
    static constexpr unsigned kFewBits = 6;

    [[nodiscard]] size_t size() const { return size_t{1} << bits_; }
    [[nodiscard]] Record **buckets() { return grown_ != nullptr ? grown_ : few_; }

    // Multiplicative hashing (Knuth 3, section 6.4): the high bits of a product with 2^64 / phi.
    [[nodiscard]] Record *&bucket_of(uint64_t key)
    {
        return buckets()[static_cast<size_t>(key * 0x9E37'79B9'7F4A'7C15u >> (64 - bits_))];
    }

    // The link that holds the record with this key, or the null that ends its chain.
    [[nodiscard]] Record **link_to(uint64_t key)
    {
        Record **place = &bucket_of(key);
        while (*place != nullptr && (*place)->key != key) place = &(*place)->chain;
        return place;
    }

    void link(Record &record)
    {
        Record *&bucket = bucket_of(record.key);
        record.chain = bucket;
        bucket = &record;
    }

    void grow()
    {
        auto **const wider = static_cast<Record **>(calloc(size() * 2, sizeof(Record *)));
        if (wider == nullptr) return;
        Record **const old = buckets();
        Record **const released = std::exchange(grown_, wider);
        const size_t old_size = size();
        ++bits_;
        for (size_t i = 0; i < old_size; ++i)
            while (Record *const record = old[i]) {
                old[i] = record->chain;
                link(*record);
            }
        free(released);
    }

    Record *few_[size_t{1} << kFewBits] = {};
    Record **grown_ = nullptr;
    unsigned bits_ = kFewBits;
    size_t count_ = 0;
};

} // namespace vn::check_lock
