// x86.h - SHA-1's block function with the SHA extensions of x86-64 processors: four rounds and four
// words of the message schedule at a time.
//
// The instruction that ends a step of the schedule, sha1msg2, keeps Intel's vector units busy
// longer than the rounds that wait for it. From the ninth group on plain operations do its work:
// the schedule's rule, put into itself, reaches back six words at least,
//
//     w[t] = rotate(w[t-6] ^ w[t-16] ^ w[t-28] ^ w[t-32], 2)
//
// so that no word needs another one of its group. How to rotate, and how to add the next E, is left
// to each version, which is a class with
//
//     static __m128i rotated_by_2(__m128i words);
//     static __m128i plus_e(__m128i words, __m128i abcd); // to the highest word, a rotated by 30
//
// All is compiled under the version's own target: the including file defines VN_TARGET first.
#pragma once

#include "support/x86_intrinsics.h"

#include <utility>

#include "sha1/compress.h"
#include "support/digest.h"

namespace vn::sha1 {
namespace {

inline constexpr size_t kGroups = 20; // of four rounds each
inline constexpr size_t kStageGroups = 5;
inline constexpr size_t kKept = 8; // groups of the schedule

VN_TARGET inline __m128i load(const void *from)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(from));
}

// Four message words, the first in the highest place, where the instructions want it.
VN_TARGET inline __m128i load_words(const uint8_t *from)
{
    return _mm_shuffle_epi8(load(from), _mm_set_epi64x(0x0001020304050607, 0x08090A0B0C0D0E0F));
}

struct State {
    __m128i abcd; // a in the highest place
    __m128i e;    // in the first group E in the highest place, later the abcd before the last group
};

// The group's words of the schedule; w holds the last eight groups of them.
template <typename Version, size_t kGroup>
[[gnu::always_inline]] VN_TARGET inline __m128i schedule(const __m128i (&w)[kKept],
                                                         const uint8_t *block)
{
    if constexpr (kGroup < 4) return load_words(block + 16 * kGroup);
    const __m128i four_ago = w[(kGroup - 4) % kKept];
    const __m128i two_ago = w[(kGroup - 2) % kKept];
    const __m128i last = w[(kGroup - 1) % kKept];
    if constexpr (kGroup < kKept) {
        const __m128i three_ago = w[kGroup - 3];
        const __m128i sum = _mm_xor_si128(_mm_sha1msg1_epu32(four_ago, three_ago), two_ago);
        return _mm_sha1msg2_epu32(sum, last);
    }
    const __m128i oldest = _mm_xor_si128(w[kGroup % kKept], w[(kGroup + 1) % kKept]);
    const __m128i six_words_ago = _mm_alignr_epi8(two_ago, last, 8);
    return Version::rotated_by_2(_mm_xor_si128(oldest, _mm_xor_si128(four_ago, six_words_ago)));
}

template <typename Version, size_t kGroup>
[[gnu::always_inline]] VN_TARGET inline void rounds(State &state, __m128i (&w)[kKept],
                                                    const uint8_t *block)
{
    const __m128i words = schedule<Version, kGroup>(w, block);
    w[kGroup % kKept] = words;
    const __m128i before = state.abcd;
    const __m128i added =
        kGroup == 0 ? _mm_add_epi32(words, state.e) : Version::plus_e(words, state.e);
    state.abcd = _mm_sha1rnds4_epu32(before, added, kGroup / kStageGroups);
    state.e = before;
}

template <typename Version, size_t... kGroup>
[[gnu::always_inline]] VN_TARGET inline void all_rounds(State &state, const uint8_t *block,
                                                        std::index_sequence<kGroup...>)
{
    __m128i w[kKept];
    (rounds<Version, kGroup>(state, w, block), ...);
}

template <typename Version>
VN_TARGET inline void compress_by(uint32_t *state, const uint8_t *blocks, size_t count)
{
    constexpr int kReverse = 0x1B;
    State now = {_mm_shuffle_epi32(load(state), kReverse),
                 _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0)};
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        const State before = now;
        all_rounds<Version>(now, blocks, std::make_index_sequence<kGroups>{});
        now.e = Version::plus_e(before.e, now.e);
        now.abcd = _mm_add_epi32(now.abcd, before.abcd);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state), _mm_shuffle_epi32(now.abcd, kReverse));
    state[4] = static_cast<uint32_t>(_mm_extract_epi32(now.e, 3));
}

} // namespace
} // namespace vn::sha1
