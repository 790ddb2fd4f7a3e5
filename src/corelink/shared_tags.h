// shared_tags.h - counts the tags that more than one node holds.
//
// A tag is a plain block of exactly its text's size, so its holders are counted beside it: a hash
// table from the tag's address to the number of holders beyond the first. Nothing is shared most of
// the time, and then a release costs one load of a flag.
//
// All threads: two trees that share tags may be released at the same time.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "support/mutex.h"

namespace vn::corelink {

class SharedTags {
public:
    // One more holder of `tag`. False, and nothing has changed, when memory is short.
    bool add(const char *tag) VN_EXCLUDES(mutex_);

    // One holder less. False when it was the only one: the tag is then the caller's to release.
    bool drop(const char *tag) VN_EXCLUDES(mutex_)
    {
        return any_.load(std::memory_order_acquire) && drop_shared(tag);
    }

private:
    struct Entry {
        const char *tag; // null in a free slot
        size_t others;   // holders beyond the first
    };

    bool drop_shared(const char *tag) VN_EXCLUDES(mutex_);
    [[nodiscard]] size_t home(const char *tag) const VN_REQUIRES(mutex_);
    [[nodiscard]] size_t find(const char *tag) const VN_REQUIRES(mutex_);
    static void gather(Entry *slots, size_t count);
    bool make_room() VN_REQUIRES(mutex_);
    void erase(size_t slot) VN_REQUIRES(mutex_);

    Mutex mutex_;
    Entry *slots_ VN_GUARDED_BY(mutex_) = nullptr; // open addressing, at most half full
    unsigned bits_ VN_GUARDED_BY(mutex_) = 0;      // there are 2^bits_ slots, or none
    size_t used_ VN_GUARDED_BY(mutex_) = 0;
    std::atomic<bool> any_{false}; // used_ > 0, for a look without the lock
};

} // namespace vn::corelink
