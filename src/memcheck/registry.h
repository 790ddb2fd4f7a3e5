// registry.h - every live block, by its address and by the site that asked for it.
//
//     by_user_:  address -> Block ----.          one lock for all of it
//     by_tag_:   text -> Site -> its Blocks
//     sites_:    all Sites, fewest live blocks first
//
// No operation depends on how many blocks or sites there are. Who cannot undo an allocation brings
// the memory for the records along, and recording a block cannot fail then.
//
// Lock order: this lock before the screen's.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "memcheck/polite_mutex.h"
#include "memcheck/records.h"
#include "memcheck/site_order.h"
#include "memcheck/table.h"
#include "memcheck/walk.h"
#include "support/mutex.h"

namespace vn::memcheck {

class Registry {
public:
    Registry() : walk_(sites_) {}
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;

    // Memory for the record of a site, or null. One is always kept at hand.
    Owned<Site> spare_site();

    // Records a block under `tag`. What `records` does not bring along is obtained here; false when
    // there is no memory for it.
    bool add(const Particulars &block, const char *tag, Records &&records) VN_EXCLUDES(mutex_);
    // Strikes out the block that the caller knows as `user`, and returns what its allocator did;
    // null when there is no such block.
    void *remove(const void *user) VN_EXCLUDES(mutex_);

    // Resizing. lift() hides the block from the checker and from every search, but leaves it
    // counted where it was (null when there is none); then either put_back(), as if nothing had
    // happened, or remove_lifted().
    Block *lift(const void *user) VN_EXCLUDES(mutex_);
    void put_back(Block &block) VN_EXCLUDES(mutex_);
    Owned<Block> remove_lifted(Block &block) VN_EXCLUDES(mutex_);

    // One pass of the checker over all guarded blocks. Ends the process at a damaged marker.
    void check_all() VN_EXCLUDES(mutex_);

    // Writes one line about each of the `most` busiest sites, the busiest first; returns how many.
    static constexpr size_t kSummarySize = 256;
    unsigned summarise(char (*lines)[kSummarySize], unsigned most) VN_EXCLUDES(mutex_);

    PoliteMutex &mutex() VN_RETURN_CAPABILITY(mutex_) { return mutex_; } // for fork

private:
    Block *take(const void *user) VN_REQUIRES(mutex_);
    Owned<Block> unused_block() VN_REQUIRES(mutex_);
    Owned<Block> keep_unused(Owned<Block> &&block) VN_REQUIRES(mutex_);
    void keep_spare(Owned<Site> &&site) VN_REQUIRES(mutex_);
    Site *known_site(const char *tag, uintptr_t hash) VN_REQUIRES(mutex_);
    Site *site_of(const char *tag, Owned<Site> &&spare) VN_REQUIRES(mutex_);
    Site *&recent_site(const char *tag) VN_REQUIRES(mutex_)
    {
        return recent_sites_[reinterpret_cast<uintptr_t>(tag) / 4 % kRecentSites];
    }
    void discharge(Block &block) VN_REQUIRES(mutex_);
    void examine(const Block &block) VN_REQUIRES(mutex_);
    [[noreturn]] void report_damage(const Block &block, const char *which, uint32_t word)
        VN_REQUIRES(mutex_);
    bool check_some() VN_EXCLUDES(mutex_);

    PoliteMutex mutex_;
    SiteOrder sites_ VN_GUARDED_BY(mutex_);
    Walk walk_ VN_GUARDED_BY(mutex_);
    Table by_tag_ VN_GUARDED_BY(mutex_);
    // Sites by where their tag is, as most calls come with a literal that was seen before.
    static constexpr size_t kRecentSites = 64;
    Site *recent_sites_[kRecentSites] VN_GUARDED_BY(mutex_) = {};
    Table by_user_ VN_GUARDED_BY(mutex_);
    // A few records of blocks that are gone, through their chains.
    static constexpr unsigned kMostUnused = 64;
    Entry *unused_ VN_GUARDED_BY(mutex_) = nullptr;
    unsigned unused_count_ VN_GUARDED_BY(mutex_) = 0;
    std::atomic<Site *> spare_site_ = nullptr; // taken by anybody, put here under the lock
};

} // namespace vn::memcheck
