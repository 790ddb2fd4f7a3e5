// registry.cpp - which source location holds which lock.
//
//     sites, newest first:   s.c:12 count=2  <->  t.c:40 count=1
//                               ^     ^              ^
//     references:            lock A  lock B       lock C
//
// Invariant: a site's count is the number of its references plus the number of times that a lock
//            already held was taken there again; a site whose count falls to 0 is dropped.
// Beware:    a site is known by the hash of its "file:line" text alone.
#include "vnlib/check_lock.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include "check_lock/index.h"
#include "memcheck/debugger.h"
#include "support/fnv1a.h"
#include "support/mutex.h"
#include "vnlib/memcheck.h"
#include "vnlib/vnstrings.h"

namespace vn::check_lock {
namespace {

struct Site : Entry {  // in one block with its copy of the file name
    Site *next, *prev; // in the order in which the table is printed
    size_t line;
    uint32_t tag; // kept for whoever looks at the registry in a debugger
    size_t count;

    [[nodiscard]] char *file() { return reinterpret_cast<char *>(this + 1); }
};

struct Reference : Entry { // its key is the identity of the lock
    Site *site;
};

uint64_t identity(const void *lock)
{
    return reinterpret_cast<uintptr_t>(lock);
}

// ":" and the digits of a line; printf would cost more than all the rest of an add.
class LineText {
public:
    explicit LineText(size_t line)
    {
        *text_ = '\0';
        do *--text_ = static_cast<char>('0' + line % 10);
        while ((line /= 10) != 0);
        *--text_ = ':';
    }
    LineText(const LineText &) = delete; // text_ points into itself
    LineText &operator=(const LineText &) = delete;

    [[nodiscard]] const char *get() const { return text_; }

private:
    char bytes_[22]; // 2^64 - 1 has 20 digits
    char *text_ = std::end(bytes_) - 1;
};

// Puts the text "file:line" on the tracker's record for a moment, as every text we make. Nobody
// sees it while the tracker is off, so it is not made then.
bool show_to_tracker(const char *file, size_t line)
{
    char *text = nullptr;
    if (__vn_asprintf(&text, "check_lock_add", 110, "%s:%zu", file, line) < 0) return false;
    vn_memcheck_free(vn_free, text, "check_lock:112");
    return true;
}

// The key of "file:line".
uint64_t site_key(const char *file, size_t line)
{
    const uint64_t key = fnv1a::add_text(fnv1a::kBasis<uint64_t>, file);
    return fnv1a::add_text(key, LineText(line).get());
}

class Registry {
public:
    constexpr Registry() = default;
    Registry(const Registry &) = delete;
    Registry &operator=(const Registry &) = delete;

    // Lock wrappers call us also while nobody wants the registry; that must cost next to nothing.
    [[nodiscard]] bool running() const { return running_.load(std::memory_order_relaxed); }

    void start() VN_EXCLUDES(mutex_)
    {
        const MutexLock hold(mutex_);
        clear();
        running_.store(true, std::memory_order_relaxed);
    }

    void stop() VN_EXCLUDES(mutex_)
    {
        const MutexLock hold(mutex_);
        running_.store(false, std::memory_order_relaxed);
        clear();
    }

    // Returns whether it is time to print the table.
    bool add(const char *file, size_t line, uint64_t lock, uint32_t tag) VN_EXCLUDES(mutex_);
    void remove(uint64_t lock) VN_EXCLUDES(mutex_);
    void dump() VN_EXCLUDES(mutex_);

private:
    Site *find_or_make(uint64_t key, const char *file, size_t line, uint32_t tag)
        VN_REQUIRES(mutex_);
    bool record(uint64_t lock, Site &site) VN_REQUIRES(mutex_);
    void count_one_less(Site &site) VN_REQUIRES(mutex_);
    void clear() VN_REQUIRES(mutex_);

    std::atomic<bool> running_ = false;
    Mutex mutex_;
    Site *newest_ VN_GUARDED_BY(mutex_) = nullptr;
    Index sites_ VN_GUARDED_BY(mutex_);
    Index references_ VN_GUARDED_BY(mutex_);
    Reference *spare_ VN_GUARDED_BY(mutex_) = nullptr; // the last one removed: most locks are short
};

Site *Registry::find_or_make(uint64_t key, const char *file, size_t line, uint32_t tag)
{
    if (Entry *const known = sites_.find(key)) return static_cast<Site *>(known);
    const size_t name_size = strlen(file) + 1;
    void *const memory = malloc(sizeof(Site) + name_size);
    if (memory == nullptr) return nullptr;
    auto *const site = new (memory) Site{{key, nullptr}, newest_, nullptr, line, tag, 0};
    memcpy(site->file(), file, name_size);
    if (newest_ != nullptr) newest_->prev = site;
    newest_ = site;
    sites_.add(*site);
    return site;
}

bool Registry::record(uint64_t lock, Site &site)
{
    void *const memory =
        spare_ != nullptr ? std::exchange(spare_, nullptr) : malloc(sizeof(Reference));
    if (memory == nullptr) return false;
    references_.add(*new (memory) Reference{{lock, nullptr}, &site});
    return true;
}

void Registry::count_one_less(Site &site)
{
    if (--site.count > 0) return;
    (site.prev != nullptr ? site.prev->next : newest_) = site.next;
    if (site.next != nullptr) site.next->prev = site.prev;
    sites_.take(site.key);
    free(&site);
}

bool Registry::add(const char *file, size_t line, uint64_t lock, uint32_t tag)
{
    if (memcheck::tracking() != nullptr && !show_to_tracker(file, line)) return false;
    const uint64_t key = site_key(file, line);
    const MutexLock hold(mutex_);
    if (!running()) return false;
    Site *const site = find_or_make(key, file, line, tag);
    if (site == nullptr) return false;
    const size_t count = ++site->count; // also for a lock that is held: each attempt shows
    if (references_.find(lock) != nullptr) {
        fprintf(stdout, "Multiple references found %s:%zu\n", file, line);
        return false;
    }
    if (!record(lock, *site)) {
        count_one_less(*site);
        return false;
    }
    return count % 10 == 0;
}

void Registry::remove(uint64_t lock)
{
    {
        const MutexLock hold(mutex_);
        if (!running()) return;
        if (Entry *const entry = references_.take(lock)) {
            auto *const reference = static_cast<Reference *>(entry);
            count_one_less(*reference->site);
            free(std::exchange(spare_, reference));
            return;
        }
    }
    fputs("Could not find reference to remove\n", stdout);
}

void Registry::dump()
{
    const MutexLock hold(mutex_);
    for (Site *site = newest_; site != nullptr; site = site->next)
        fprintf(stdout, "%s:%zu count=%zu\n", site->file(), site->line, site->count);
}

void Registry::clear()
{
    references_.clear();
    sites_.clear();
    free(std::exchange(spare_, nullptr));
    newest_ = nullptr;
}

constinit Registry registry;

} // namespace
} // namespace vn::check_lock

using vn::check_lock::identity;
using vn::check_lock::registry;

extern "C" {

int check_lock_init(void)
{
    registry.start();
    return 0;
}

void check_lock_add(const char *file, size_t line, const void *lock, uint32_t tag)
{
    if (!registry.running()) return;
    if (registry.add(file == nullptr ? "(null)" : file, line, identity(lock), tag)) registry.dump();
}

void check_lock_remove(const void *lock)
{
    if (registry.running()) registry.remove(identity(lock));
}

void check_lock_dump(void)
{
    registry.dump();
}

void check_lock_exit(void)
{
    registry.stop();
}
}
