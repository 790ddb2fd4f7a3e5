// x86.cpp - CRC-32C with the instructions of x86-64 processors.
//
// Short buffers go through the CRC32 instruction, eight bytes at a time: each needs the remainder
// of the one before, three cycles long. Longer ones are folded (Gopal et al., Fast CRC Computation
// for Generic Polynomials Using PCLMULQDQ Instruction, 2009): several accumulators of 128 bits are
// each multiplied to where the next block lies and added to it, none waiting for another:
//
//     | block 0 | block 1 | block 2 | block 3 | block 4 | ...
//     acc 0 -------- * x^(4 blocks) --------> + acc 0
//
// In the end the accumulators are moved onto the last one, and what is left of the message is 16
// bytes with the same remainder as all that went before, which the CRC32 instruction finishes.
#include "crc32c/extend.h"

#if VN_CPU_X86

#include <immintrin.h>

#include "crc32c/polynomial.h"
#include "support/bytes.h"

#define VN_SSE42 __attribute__((target("sse4.2,pclmul")))
#define VN_AVX512                                                                                  \
    __attribute__((target("sse4.2,pclmul,vpclmulqdq,avx2,avx512f,avx512bw,avx512dq,avx512vl")))

namespace vn::crc32c {
namespace {

constexpr size_t kWord = sizeof(uint64_t);
constexpr size_t kLane = 16; // bytes in an accumulator of 128 bits
constexpr size_t kWide = 64; // bytes in four accumulators side by side

uint64_t load(const uint8_t *from)
{
    return bytes::load_little<uint64_t>(from);
}

VN_SSE42 inline uint32_t extend_word(uint32_t state, uint64_t word)
{
    return static_cast<uint32_t>(_mm_crc32_u64(state, word));
}

// The last `length` bytes, fewer than 8, of a message that has at least 8. A remainder that has
// nothing before it may be taken over leading zeros, so the bytes are moved to the end of a word,
// and the part of `state` that the few bytes do not reach is added afterwards.
VN_SSE42 inline uint32_t extend_tail(uint32_t state, const uint8_t *end, size_t length)
{
    if (length == 0) return state;
    const unsigned absent = static_cast<unsigned>(8 * (kWord - length));
    const uint64_t tail = load(end - kWord) >> absent ^ state;
    return extend_word(0, tail << absent) ^ static_cast<uint32_t>(uint64_t{state} >> (8 * length));
}

// A message shorter than 8 bytes.
VN_SSE42 inline uint32_t extend_few(uint32_t state, const uint8_t *data, size_t length)
{
    if ((length & 4) != 0) {
        state = _mm_crc32_u32(state, bytes::load_little<uint32_t>(data));
        data += 4;
    }
    if ((length & 2) != 0) {
        state = _mm_crc32_u16(state, bytes::load_little<uint16_t>(data));
        data += 2;
    }
    return (length & 1) != 0 ? _mm_crc32_u8(state, *data) : state;
}

// What is left of a message of at least 8 bytes.
VN_SSE42 inline uint32_t extend_words(uint32_t state, const uint8_t *data, size_t length)
{
    for (; length >= kWord; length -= kWord, data += kWord) state = extend_word(state, load(data));
    return extend_tail(state, data + length, length);
}

VN_SSE42 inline uint32_t extend_short(uint32_t state, const uint8_t *data, size_t length)
{
    return length < kWord ? extend_few(state, data, length) : extend_words(state, data, length);
}

VN_SSE42 inline __m128i load_lane(const uint8_t *from)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}

// The factors that move an accumulator kBytes up: for its low (earlier) and its high half.
template <size_t kBytes>
VN_SSE42 inline __m128i lane_factors()
{
    constexpr auto kLow = static_cast<int64_t>(fold_factor(8 * kBytes + 64));
    constexpr auto kHigh = static_cast<int64_t>(fold_factor(8 * kBytes));
    return _mm_set_epi64x(kHigh, kLow);
}

VN_SSE42 inline __m128i folded(__m128i lane, __m128i factors, __m128i onto)
{
    const __m128i low = _mm_clmulepi64_si128(lane, factors, 0x00);
    const __m128i high = _mm_clmulepi64_si128(lane, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), onto);
}

VN_SSE42 inline uint32_t lane_remainder(__m128i lane)
{
    const auto low = static_cast<uint64_t>(_mm_cvtsi128_si64(lane));
    const auto high = static_cast<uint64_t>(_mm_extract_epi64(lane, 1));
    return extend_word(extend_word(0, low), high);
}

VN_AVX512 inline __m512i load_wide(const uint8_t *from)
{
    return _mm512_loadu_si512(from);
}

VN_AVX512 inline __m512i folded(__m512i wide, __m512i factors, __m512i onto)
{
    constexpr int kSum = 0x96; // a ^ b ^ c
    const __m512i low = _mm512_clmulepi64_epi128(wide, factors, 0x00);
    const __m512i high = _mm512_clmulepi64_epi128(wide, factors, 0x11);
    return _mm512_ternarylogic_epi64(low, high, onto, kSum);
}

template <size_t kBytes>
VN_AVX512 inline __m512i wide_factors()
{
    return _mm512_broadcast_i32x4(lane_factors<kBytes>());
}

// Moves the first three lanes onto the fourth.
VN_AVX512 inline __m128i joined(__m512i wide)
{
    const __m128i last = _mm512_extracti32x4_epi32(wide, 3);
    const __m128i third = folded(_mm512_extracti32x4_epi32(wide, 2), lane_factors<kLane>(), last);
    const __m128i second =
        folded(_mm512_extracti32x4_epi32(wide, 1), lane_factors<2 * kLane>(), third);
    return folded(_mm512_castsi512_si128(wide), lane_factors<3 * kLane>(), second);
}

} // namespace

VN_SSE42 uint32_t extend_sse42(uint32_t state, const uint8_t *data, size_t length)
{
    if (length < 2 * kWide) return extend_short(state, data, length);

    const uint8_t *const end = data + length;
    const __m128i start = _mm_cvtsi32_si128(static_cast<int>(state));
    __m128i lane0 = _mm_xor_si128(load_lane(data), start);
    __m128i lane1 = load_lane(data + kLane);
    __m128i lane2 = load_lane(data + 2 * kLane);
    __m128i lane3 = load_lane(data + 3 * kLane);
    const __m128i by_four = lane_factors<4 * kLane>();
    for (data += kWide; data + kWide <= end; data += kWide) {
        lane0 = folded(lane0, by_four, load_lane(data));
        lane1 = folded(lane1, by_four, load_lane(data + kLane));
        lane2 = folded(lane2, by_four, load_lane(data + 2 * kLane));
        lane3 = folded(lane3, by_four, load_lane(data + 3 * kLane));
    }
    lane3 = folded(
        lane0, lane_factors<3 * kLane>(),
        folded(lane1, lane_factors<2 * kLane>(), folded(lane2, lane_factors<kLane>(), lane3)));
    return extend_words(lane_remainder(lane3), data, static_cast<size_t>(end - data));
}

VN_AVX512 uint32_t extend_avx512(uint32_t state, const uint8_t *data, size_t length)
{
    if (length < 4 * kWide) return extend_sse42(state, data, length);

    const uint8_t *const end = data + length;
    const __m512i start = _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(state)));
    __m512i wide0 = _mm512_xor_si512(load_wide(data), start);
    __m512i wide1 = load_wide(data + kWide);
    __m512i wide2 = load_wide(data + 2 * kWide);
    __m512i wide3 = load_wide(data + 3 * kWide);
    const __m512i by_four = wide_factors<4 * kWide>();
    for (data += 4 * kWide; data + 4 * kWide <= end; data += 4 * kWide) {
        wide0 = folded(wide0, by_four, load_wide(data));
        wide1 = folded(wide1, by_four, load_wide(data + kWide));
        wide2 = folded(wide2, by_four, load_wide(data + 2 * kWide));
        wide3 = folded(wide3, by_four, load_wide(data + 3 * kWide));
    }
    wide3 = folded(
        wide0, wide_factors<3 * kWide>(),
        folded(wide1, wide_factors<2 * kWide>(), folded(wide2, wide_factors<kWide>(), wide3)));
    const __m512i by_one = wide_factors<kWide>();
    for (; data + kWide <= end; data += kWide) wide3 = folded(wide3, by_one, load_wide(data));
    return extend_words(lane_remainder(joined(wide3)), data, static_cast<size_t>(end - data));
}

} // namespace vn::crc32c

#endif
