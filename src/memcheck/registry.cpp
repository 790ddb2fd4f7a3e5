// registry.cpp - recording, finding and checking live blocks; see registry.h.
#include "memcheck/registry.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "memcheck/guard.h"
#include "memcheck/ring.h"
#include "memcheck/screen.h"
#include "support/fnv1a.h"

namespace vn::memcheck {

namespace {

// How far the checker walks before it lets others in. Each block costs it three or four cache
// misses, so this is a fraction of a millisecond even on a small processor.
constexpr unsigned kStepsAtOnce = 512;

// How far it walks although somebody waits: without them a busy program would never be checked.
constexpr unsigned kStepsAtLeast = 16;

// What the next step will look at, and the record after it, are often in another processor's cache.
void fetch_ahead(const Block &block)
{
    __builtin_prefetch(block.raw());
    __builtin_prefetch(block.post());
    __builtin_prefetch(block.next);
}

} // namespace

Owned<Site> Registry::spare_site()
{
    Owned<Site> kept(spare_site_.exchange(nullptr, std::memory_order_acquire));
    return kept != nullptr ? std::move(kept) : new_site();
}

// One at a time puts it there, so it can be seen whether there is room: who takes it makes some.
void Registry::keep_spare(Owned<Site> &&site)
{
    if (spare_site_.load(std::memory_order_relaxed) == nullptr)
        spare_site_.store(site.release(), std::memory_order_release);
}

Owned<Block> Registry::unused_block()
{
    auto *const block = static_cast<Block *>(unused_);
    if (block == nullptr) return Owned<Block>(new_record<Block>());
    unused_ = block->chain;
    --unused_count_;
    return Owned<Block>(block);
}

// Gives the record back when there are enough; it is best released without the lock.
Owned<Block> Registry::keep_unused(Owned<Block> &&block)
{
    if (unused_count_ == kMostUnused) return std::move(block);
    ++unused_count_;
    block->chain = unused_;
    unused_ = block.release();
    return nullptr;
}

Block *Registry::take(const void *user)
{
    return static_cast<Block *>(by_user_.take(reinterpret_cast<uintptr_t>(user)));
}

// Null when there is no such site.
Site *Registry::known_site(const char *tag, uintptr_t hash)
{
    for (Entry *entry = by_tag_.find(hash); entry != nullptr; entry = Table::find_next(*entry)) {
        auto *const site = static_cast<Site *>(entry);
        if (strcmp(site->tag, tag) == 0) return site;
    }
    return nullptr;
}

// Null when the site is new and there is no memory for it.
Site *Registry::site_of(const char *tag, Owned<Site> &&spare)
{
    Site *&recent = recent_site(tag);
    Site *known = recent;
    uintptr_t hash = 0;
    if (known == nullptr || known->tag != tag) {
        hash = fnv1a::add_text(fnv1a::kBasis<uint32_t>, tag);
        known = known_site(tag, hash);
        if (known != nullptr && known->tag == tag) recent = known;
    }
    if (known != nullptr) {
        if (spare != nullptr) keep_spare(std::move(spare));
        sites_.raise(*known);
        return known;
    }
    if (spare == nullptr) spare = spare_site();
    if (spare == nullptr) return nullptr;
    Site *const fresh = spare.release();
    recent = fresh;
    fresh->key = hash;
    fresh->tag = tag;
    fresh->live_bytes = 0;
    make_empty(fresh->blocks);
    sites_.add(*fresh);
    walk_.site_appears(*fresh);
    by_tag_.insert(*fresh);
    return fresh;
}

bool Registry::add(const Particulars &block, const char *tag, Records &&records)
{
    const PoliteLock hold(mutex_);
    if (records.block == nullptr) records.block = unused_block();
    if (records.block == nullptr) return false;
    Site *const site = site_of(tag, std::move(records.site));
    if (site == nullptr) return false;
    Block &added = *records.block.release();
    added.fill(block);
    added.site = site;
    site->live_bytes += static_cast<uint32_t>(added.size);
    link_after(site->blocks, added);
    by_user_.insert(added);
    // The pass under way does not come back to the front of a list: a block that was resized away
    // from where it was still to be visited is visited here.
    if (walk_.under_way()) examine(added);
    return true;
}

// Takes the block off its site, and the site off the display with its last block.
void Registry::discharge(Block &block)
{
    Site &site = *block.site;
    walk_.block_leaves(block);
    unlink(block);
    site.live_bytes -= static_cast<uint32_t>(block.size);
    const bool last = site.live_count == 1;
    if (last) walk_.site_leaves(site);
    sites_.lower(site);
    if (last) {
        if (recent_site(site.tag) == &site) recent_site(site.tag) = nullptr;
        by_tag_.remove(site);
        keep_spare(Owned<Site>(&site));
    }
}

void *Registry::remove(const void *user)
{
    Owned<Block> surplus; // released last
    const PoliteLock hold(mutex_);
    Block *const block = take(user);
    if (block == nullptr) return nullptr;
    discharge(*block);
    surplus = keep_unused(Owned<Block>(block));
    return block->raw();
}

Block *Registry::lift(const void *user)
{
    const PoliteLock hold(mutex_);
    // Off the index too: the C library may give the old address to another thread at once.
    Block *const block = take(user);
    if (block != nullptr) block->lifted = true;
    return block;
}

void Registry::put_back(Block &block)
{
    const PoliteLock hold(mutex_);
    block.lifted = false;
    by_user_.insert(block);
}

Owned<Block> Registry::remove_lifted(Block &block)
{
    const PoliteLock hold(mutex_);
    discharge(block);
    return Owned<Block>(&block);
}

// The process ends with the registry locked, so that no other thread works on with damaged memory;
// what the program does on exit may release blocks and must not lock itself out.
void Registry::report_damage(const Block &block, const char *which, uint32_t word)
{
    mutex_.keep();
    last_words("%s LINE:%d, Size:%zu %s:%x", block.site->tag, static_cast<int>(block.line),
               static_cast<size_t>(static_cast<uint32_t>(block.size)), which, word);
}

void Registry::examine(const Block &block)
{
    if (block.kind != Kind::kGuarded || block.lifted) return;
    const uint32_t pre = read_marker(block.raw());
    const uint32_t post = read_marker(block.post());
    if (pre != kMarker) report_damage(block, "PreMarker", pre);
    if (post != pre) report_damage(block, "PostMarker", post);
}

// A stretch of the pass under way, shorter when others wait. False when it was the last one.
bool Registry::check_some()
{
    const PoliteLock hold(mutex_);
    for (unsigned step = 0; step < (mutex_.wanted() ? kStepsAtLeast : kStepsAtOnce); ++step) {
        Block *block = nullptr;
        if (!walk_.step(&block)) return false;
        if (block == nullptr) continue;
        fetch_ahead(*block->next);
        examine(*block);
    }
    return true;
}

void Registry::check_all()
{
    {
        const PoliteLock hold(mutex_);
        walk_.begin();
    }
    // Unlocking alone lets nobody in: the mutex would be taken back before a waiter wakes up.
    while (check_some()) usleep(1);
}

unsigned Registry::summarise(char (*lines)[kSummarySize], unsigned most)
{
    const PoliteLock hold(mutex_);
    unsigned count = 0;
    for (const Site *site = sites_.sentinel().prev; site != &sites_.sentinel() && count < most;
         site = site->prev)
        snprintf(lines[count++], kSummarySize, "Count %d \tAve Size:%zu\t:%s", site->live_count,
                 static_cast<size_t>(site->live_bytes) / static_cast<uint32_t>(site->live_count),
                 site->tag);
    return count;
}

} // namespace vn::memcheck
