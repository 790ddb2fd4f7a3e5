// x86.cpp - SHA-256's block function with the SHA extensions of x86-64 processors: two rounds an
// instruction, four words of the message schedule at a time.
//
// The instructions want the chaining words as two registers, ABEF and CDGH, A and C in the highest
// place, and after two rounds the two have changed roles.
#include "sha256/compress.h"

#if VN_CPU_X86

#include "support/x86_intrinsics.h"

#include <utility>

#include "support/digest.h"

#define VN_SHA __attribute__((target("sha,sse4.1")))

namespace vn::sha256 {
namespace {

constexpr size_t kGroups = 16; // of four rounds each

struct State {
    __m128i abef, cdgh;
};

VN_SHA inline __m128i load(const void *from)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(from));
}

VN_SHA inline __m128i load_words(const uint8_t *from)
{
    return _mm_shuffle_epi8(load(from), _mm_set_epi64x(0x0C0D0E0F08090A0B, 0x0405060700010203));
}

VN_SHA inline State load_state(const uint32_t *state)
{
    const __m128i cdab = _mm_shuffle_epi32(load(state), 0xB1);
    const __m128i efgh = _mm_shuffle_epi32(load(state + 4), 0x1B);
    return {_mm_alignr_epi8(cdab, efgh, 8), _mm_blend_epi16(efgh, cdab, 0xF0)};
}

VN_SHA inline void store_state(const State &from, uint32_t *state)
{
    const __m128i feba = _mm_shuffle_epi32(from.abef, 0x1B);
    const __m128i dchg = _mm_shuffle_epi32(from.cdgh, 0xB1);
    auto *to = reinterpret_cast<__m128i *>(state);
    _mm_storeu_si128(to, _mm_blend_epi16(feba, dchg, 0xF0));
    _mm_storeu_si128(to + 1, _mm_alignr_epi8(dchg, feba, 8));
}

// w holds the last 16 words of the schedule, four to an element.
template <size_t kGroup>
[[gnu::always_inline]] VN_SHA inline void rounds(State &state, __m128i (&w)[4],
                                                 const uint8_t *block)
{
    __m128i &words = w[kGroup % 4];
    if constexpr (kGroup < 4) {
        words = load_words(block + 16 * kGroup);
    } else {
        const __m128i last = w[(kGroup + 3) % 4];
        const __m128i sum = _mm_add_epi32(_mm_sha256msg1_epu32(words, w[(kGroup + 1) % 4]),
                                          _mm_alignr_epi8(last, w[(kGroup + 2) % 4], 4));
        words = _mm_sha256msg2_epu32(sum, last);
    }
    const __m128i added = _mm_add_epi32(words, load(&kRoundConstants[4 * kGroup]));
    state.cdgh = _mm_sha256rnds2_epu32(state.cdgh, state.abef, added);
    state.abef = _mm_sha256rnds2_epu32(state.abef, state.cdgh, _mm_shuffle_epi32(added, 0x0E));
}

template <size_t... kGroup>
[[gnu::always_inline]] VN_SHA inline void all_rounds(State &state, const uint8_t *block,
                                                     std::index_sequence<kGroup...>)
{
    __m128i w[4];
    (rounds<kGroup>(state, w, block), ...);
}

} // namespace

VN_SHA void compress_native(uint32_t *state, const uint8_t *blocks, size_t count)
{
    State now = load_state(state);
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        const State before = now;
        all_rounds(now, blocks, std::make_index_sequence<kGroups>{});
        now.abef = _mm_add_epi32(now.abef, before.abef);
        now.cdgh = _mm_add_epi32(now.cdgh, before.cdgh);
    }
    store_state(now, state);
}

} // namespace vn::sha256

#endif
