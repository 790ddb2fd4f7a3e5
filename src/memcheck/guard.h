// guard.h - the markers around every tracked block.
//
//     | marker | caller's bytes ... | marker |
//     ^ raw    ^ user               ^ post
//
// Invariant: both markers hold kMarker from allocation until release; the checker relies on it.
// Beware:    neither marker need be aligned, and the second follows the last byte without padding.
// Not here:  who allocated the block (registry.h), the terminal screen (screen.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vn::memcheck {

constexpr uint32_t kMarker =
    0xDEADBEAF; // not the usual DEADBEEF: nobody else's pattern passes for it
constexpr size_t kMarkerSize = sizeof kMarker;
constexpr size_t kGuardSize = 2 * kMarkerSize;
constexpr size_t kLargestGuarded = SIZE_MAX - kGuardSize;

inline uint32_t read_marker(const void *at)
{
    uint32_t word;
    memcpy(&word, at, sizeof word);
    return word;
}

inline void write_marker(void *at)
{
    memcpy(at, &kMarker, sizeof kMarker);
}

} // namespace vn::memcheck
