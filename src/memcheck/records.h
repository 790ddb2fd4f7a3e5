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

namespace vn::memcheck {

// Fibonacci hashing of the bits that differ between blocks, folded so that the low bits, which
// choose the bucket, depend on all of them.
inline uint32_t hash_address(const void *address)
{
    const auto value = reinterpret_cast<uintptr_t>(address);
    const auto mixed = static_cast<uint32_t>(value >> 2) * 0x9E3779B1u;
    return mixed ^ (mixed >> 15);
}

enum class Kind : uint8_t {
    kDevice = 1,  // for device transfer: exactly the size asked for, no markers
    kGuarded = 2, // markers at both ends
};

struct Site;

// One exists for every live block: what can be told from the other members is not kept.
struct Block {
    unsigned char *raw; // what the allocator returned
    Block *next, *prev; // in the site's list
    Site *site;
    Block *next_by_user; // in the index by address
    size_t size;         // what the caller asked for
    uint32_t line;       // source line of the allocation; 0 for device blocks
    Kind kind;
    bool lifted; // in the C library's hands, which resizes it: nobody else may look at it

    // What the caller was given.
    [[nodiscard]] unsigned char *user() const
    {
        return kind == Kind::kGuarded ? raw + kMarkerSize : raw;
    }
    // Where the second marker of a guarded block starts.
    [[nodiscard]] unsigned char *post() const { return user() + size; }
    [[nodiscard]] uint32_t hash() const { return hash_address(user()); }
};

struct Site {
    Site *next, *prev; // in the list of all sites
    const char *tag;   // the caller's text, not a copy: it outlives the blocks recorded here
    uint32_t tag_hash;
    int32_t live_count;
    uint32_t live_bytes;
    uint32_t last_pass; // the checker's pass that has visited this site; see Walk
    Block blocks;       // sentinel of the site's blocks
    Site *run_last;     // see SiteOrder; valid in the first site of a run
    Site *next_by_tag, *next_by_count;
};

struct FreeWithLibc {
    void operator()(void *record) const { free(record); }
};

template <typename T>
using Owned = std::unique_ptr<T, FreeWithLibc>;

template <typename T>
Owned<T> new_record()
{
    void *const memory = malloc(sizeof(T));
    return Owned<T>(memory != nullptr ? new (memory) T() : nullptr);
}

} // namespace vn::memcheck
