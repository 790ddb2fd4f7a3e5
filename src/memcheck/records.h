// records.h - what is written down about every live block, and about every site that has some.
//
//     site "replace_char" -> block, block, block      (newest first)
//     site "clparse_start" -> block
//
// Both records come from the C library, never from a caller's allocator. Counts and sizes are 32
// bits wide, as the display shows them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

#include "memcheck/guard.h"
#include "memcheck/table.h"

namespace vn::memcheck {

enum class Kind : uint8_t {
    kDevice = 1,  // for device transfer: exactly the size asked for, no markers
    kGuarded = 2, // markers at both ends
};

struct Site;

// What an allocation says about a block.
struct Particulars {
    void *raw; // what the allocator returned
    Kind kind;
    size_t size;   // what the caller asked for
    uint32_t line; // source line of the allocation; 0 for device blocks
};

// One exists for every live block: what can be told from the other members is not kept. Its key is
// the address that the caller was given.
struct Block : Entry {
    Block *next, *prev; // in the site's list
    Site *site;
    size_t size;   // what the caller asked for
    uint32_t line; // source line of the allocation; 0 for device blocks
    Kind kind;
    bool lifted; // in the C library's hands, which resizes it: nobody else may look at it

    void fill(const Particulars &told)
    {
        size = told.size;
        line = told.line;
        kind = told.kind;
        lifted = false;
        key = reinterpret_cast<uintptr_t>(told.raw) + guard_size();
    }
    // What the caller was given.
    [[nodiscard]] unsigned char *user() const { return reinterpret_cast<unsigned char *>(key); }
    // What the allocator returned.
    [[nodiscard]] unsigned char *raw() const { return user() - guard_size(); }
    // Where the second marker of a guarded block starts.
    [[nodiscard]] unsigned char *post() const { return user() + size; }

private:
    [[nodiscard]] size_t guard_size() const { return kind == Kind::kGuarded ? kMarkerSize : 0; }
};

// Sites of equal live count; see SiteOrder.
struct Run {
    Site *first, *last;
    Run *next_unused;
};

struct Site : Entry {  // its key is the hash of its tag
    Site *next, *prev; // in the list of all sites
    Run *run;          // in the list: its run; out of it: one that it brings along
    const char *tag;   // the caller's text, not a copy: it outlives the blocks recorded here
    int32_t live_count;
    uint32_t live_bytes;
    uint32_t last_pass; // the checker's pass that has visited this site; see Walk
    Block blocks;       // sentinel of the site's blocks
};

struct FreeWithLibc {
    void operator()(Block *block) const { free(block); }
    void operator()(Site *site) const
    {
        free(site->run);
        free(site);
    }
};

template <typename T>
using Owned = std::unique_ptr<T, FreeWithLibc>;

template <typename T>
T *new_record()
{
    void *const memory = malloc(sizeof(T));
    return memory != nullptr ? new (memory) T() : nullptr;
}

inline Owned<Site> new_site()
{
    Owned<Site> site(new_record<Site>());
    if (site != nullptr) site->run = new_record<Run>();
    if (site != nullptr && site->run == nullptr) site = nullptr;
    return site;
}

// Memory for all that recording a block can take.
struct Records {
    Owned<Block> block;
    Owned<Site> site;
};

} // namespace vn::memcheck
