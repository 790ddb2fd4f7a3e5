// records.h - what is written down about every live block, and about every site that has some.
//
//     site "replace_char" -> block, block, block      (newest first)
//     site "clparse_start" -> block
//
// Both records come from the C library, never from a caller's allocator. Counts and sizes are 32
// bits wide, as the display shows them.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "memcheck/table.h"

namespace vn::memcheck {

enum class Kind : uint32_t {
    kDevice = 1,  // for device transfer: exactly the size asked for, no markers
    kGuarded = 2, // markers at both ends
};

struct Site;

struct Block {
    void *raw;           // what the allocator returned
    unsigned char *post; // where the second marker starts (guarded blocks)
    void *user;          // what the caller was given
    Block *next, *prev;  // in the site's list
    uint32_t size;       // what the caller asked for
    Kind kind;
    bool lifted;   // in the C library's hands, which resizes it: nobody else may look at it
    uint32_t line; // source line of the allocation; 0 for device blocks
    Site *site;
    Hook<Block> by_user;
};

struct Site {
    Site *next, *prev; // in the list of all sites
    const char *tag;   // the caller's text, not a copy: it outlives the blocks recorded here
    int32_t live_count;
    uint32_t live_bytes;
    Block blocks;       // sentinel of the site's blocks
    Site *run_last;     // see SiteOrder; valid in the first site of a run
    uint32_t last_pass; // the checker's pass that has visited this site; see Walk
    Hook<Site> by_tag;
    Hook<Site> by_count;
};

struct FreeWithLibc {
    void operator()(void *record) const { free(record); }
};

template <typename T>
using Owned = std::unique_ptr<T, FreeWithLibc>;

template <typename T>
Owned<T> new_record()
{
    return Owned<T>(static_cast<T *>(calloc(1, sizeof(T))));
}

} // namespace vn::memcheck
