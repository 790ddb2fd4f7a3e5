// compress.h - the versions of SHA-1's block function: two portable, others for processors that
// have instructions for it. All take `count` blocks of 64 bytes into the five chaining words at
// `state`.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "support/cpu.h"
#include "support/small.h"

namespace vn::sha1 {

constexpr size_t kStateWords = 5;

// The round constants of FIPS 180-4, section 4.2.1, each for 20 rounds.
inline constexpr std::array<uint32_t, 4> kRoundConstants = {0x5A827999, 0x6ED9EBA1, 0x8F1BBCDC,
                                                            0xCA62C1D6};

void compress_unrolled(uint32_t *state, const uint8_t *blocks, size_t count);
void compress_looped(uint32_t *state, const uint8_t *blocks, size_t count); // the small one
#if VN_CPU_SHA
void compress_native(uint32_t *state, const uint8_t *blocks, size_t count);
#endif
#if VN_CPU_X86
void compress_avx512(uint32_t *state, const uint8_t *blocks, size_t count);
#endif

// Calls the best version that this processor has.
inline void compress(uint32_t *state, const uint8_t *blocks, size_t count)
{
#if VN_CPU_X86
    if (cpu::has(cpu::kSha1Avx512)) return compress_avx512(state, blocks, count);
#endif
#if VN_CPU_SHA
    if (cpu::has(cpu::kSha1)) return compress_native(state, blocks, count);
#endif
    return (kSmall ? compress_looped : compress_unrolled)(state, blocks, count);
}

} // namespace vn::sha1
