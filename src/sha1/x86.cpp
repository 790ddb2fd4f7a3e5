// x86.cpp - SHA-1's block function with the SHA extensions of x86-64 processors: four rounds and
// four words of the message schedule at a time.
#include "sha1/compress.h"

#if VN_CPU_X86

#include "support/x86_intrinsics.h"

#include <utility>

#include "support/digest.h"

#define VN_SHA __attribute__((target("sha,sse4.1")))

namespace vn::sha1 {
namespace {

constexpr size_t kGroups = 20; // of four rounds each
constexpr size_t kStageGroups = 5;

VN_SHA inline __m128i load(const void *from)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(from));
}

// Four message words, the first in the highest place, where the instructions want it.
VN_SHA inline __m128i load_words(const uint8_t *from)
{
    return _mm_shuffle_epi8(load(from), _mm_set_epi64x(0x0001020304050607, 0x08090A0B0C0D0E0F));
}

struct State {
    __m128i abcd; // a in the highest place
    __m128i e;    // in the first group E in the highest place, later the abcd before the last group
};

// w holds the last 16 words of the schedule, four to an element.
template <size_t kGroup>
[[gnu::always_inline]] VN_SHA inline void rounds(State &state, __m128i (&w)[4],
                                                 const uint8_t *block)
{
    __m128i &words = w[kGroup % 4];
    if constexpr (kGroup < 4) {
        words = load_words(block + 16 * kGroup);
    } else {
        const __m128i sum =
            _mm_xor_si128(_mm_sha1msg1_epu32(words, w[(kGroup + 1) % 4]), w[(kGroup + 2) % 4]);
        words = _mm_sha1msg2_epu32(sum, w[(kGroup + 3) % 4]);
    }
    const __m128i before = state.abcd;
    const __m128i added =
        kGroup == 0 ? _mm_add_epi32(state.e, words) : _mm_sha1nexte_epu32(state.e, words);
    state.abcd = _mm_sha1rnds4_epu32(before, added, kGroup / kStageGroups);
    state.e = before;
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
    constexpr int kReverse = 0x1B;
    State now = {_mm_shuffle_epi32(load(state), kReverse),
                 _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0)};
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        const State before = now;
        all_rounds(now, blocks, std::make_index_sequence<kGroups>{});
        now.e = _mm_sha1nexte_epu32(now.e, before.e);
        now.abcd = _mm_add_epi32(now.abcd, before.abcd);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state), _mm_shuffle_epi32(now.abcd, kReverse));
    state[4] = static_cast<uint32_t>(_mm_extract_epi32(now.e, 3));
}

} // namespace vn::sha1

#endif
