// compress.h - MD5's block function. Takes `count` blocks of 64 bytes into the four chaining words
// at `state`.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/small.h"

namespace vn::md5 {

constexpr size_t kStateWords = 4;

void compress_unrolled(uint32_t *state, const uint8_t *blocks, size_t count);
void compress_looped(uint32_t *state, const uint8_t *blocks, size_t count); // the small one

inline void compress(uint32_t *state, const uint8_t *blocks, size_t count)
{
    return (kSmall ? compress_looped : compress_unrolled)(state, blocks, count);
}

} // namespace vn::md5
