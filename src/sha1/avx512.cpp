// avx512.cpp - SHA-1's block function for processors that have AVX-512 beside the SHA extensions:
// what rotates in one instruction leaves nothing to wait for but the rounds themselves. See x86.h.
#include "support/cpu.h"

#if VN_CPU_X86

#define VN_TARGET __attribute__((target("sha,sse4.1,avx512f,avx512vl")))

#include "sha1/x86.h"

namespace vn::sha1 {
namespace {

struct Avx512 {
    VN_TARGET static __m128i rotated_by_2(__m128i words) { return _mm_rol_epi32(words, 2); }

    VN_TARGET static __m128i plus_e(__m128i words, __m128i abcd)
    {
        constexpr __mmask8 kHighest = 0b1000;
        return _mm_add_epi32(words, _mm_maskz_rol_epi32(kHighest, abcd, 30));
    }
};

} // namespace

VN_TARGET void compress_avx512(uint32_t *state, const uint8_t *blocks, size_t count)
{
    compress_by<Avx512>(state, blocks, count);
}

} // namespace vn::sha1

#endif
