// x86.cpp - SHA-1's block function for all processors with the SHA extensions; see x86.h.
#include "support/cpu.h"

#if VN_CPU_X86

#define VN_TARGET __attribute__((target("sha,sse4.1")))

#include "sha1/x86.h"

namespace vn::sha1 {
namespace {

struct Sse {
    VN_TARGET static __m128i rotated_by_2(__m128i words)
    {
        return _mm_or_si128(_mm_slli_epi32(words, 2), _mm_srli_epi32(words, 30));
    }

    VN_TARGET static __m128i plus_e(__m128i words, __m128i abcd)
    {
        return _mm_sha1nexte_epu32(abcd, words);
    }
};

} // namespace

VN_TARGET void compress_native(uint32_t *state, const uint8_t *blocks, size_t count)
{
    compress_by<Sse>(state, blocks, count);
}

} // namespace vn::sha1

#endif
