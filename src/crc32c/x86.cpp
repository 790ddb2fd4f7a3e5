// x86.cpp - CRC-32C with the instructions of x86-64 processors.
//
// The CRC32 instruction takes eight bytes in, but each needs the remainder of the one before, and
// that takes three cycles. So long buffers are cut into stretches which are computed side by side:
//
//     |  stretch 0   |  stretch 1   |  stretch 2   |  stretch 3   |
//      state ------>  0 ----------->  0 ----------->  0 ----------->
//            |____________|______________|________________\_____ moved to the end and added
//
// Where AVX-512 multiplies without carry, long buffers are folded instead (Gopal et al., Fast CRC
// Computation for Generic Polynomials Using PCLMULQDQ Instruction, 2009): 16-byte lanes are
// multiplied to where the next block lies and added to it, which leaves 16 bytes with the same
// remainder as all that went before. Computing stretches beside the folding was tried: it keeps
// another part of the processor busy, and yet is a quarter slower.
#include "crc32c/extend.h"

#if VN_CPU_X86

#include <utility>

#include "crc32c/polynomial.h"
#include "support/bytes.h"
#include "support/x86_intrinsics.h"

#define VN_SSE42 __attribute__((target("sse4.2,pclmul")))
#define VN_AVX512                                                                                  \
    __attribute__((target("sse4.2,pclmul,vpclmulqdq,avx2,avx512f,avx512bw,avx512dq,avx512vl")))

namespace vn::crc32c {
namespace {

constexpr size_t kWord = sizeof(uint64_t);
constexpr size_t kLane = 16;   // bytes in an accumulator of 128 bits
constexpr size_t kWide = 64;   // bytes in four lanes side by side
constexpr size_t kShort = 256; // from here on it pays to compute side by side, or to fold

uint64_t load(const uint8_t *from)
{
    return bytes::load_little<uint64_t>(from);
}

// A remainder, as wide as the instruction has it, so that nothing stands between two of them.
using Remainder = uint64_t;

VN_SSE42 inline Remainder extend_word(Remainder state, uint64_t word)
{
    return _mm_crc32_u64(state, word);
}

// The last `length` bytes, fewer than 8, of a message that has at least 8. A remainder that has
// nothing before it may be taken over leading zeros, so the bytes are moved to the end of a word,
// and the part of `state` that the few bytes do not reach is added afterwards.
VN_SSE42 inline Remainder extend_tail(Remainder state, const uint8_t *end, size_t length)
{
    if (length == 0) return state;
    const unsigned absent = static_cast<unsigned>(8 * (kWord - length));
    const uint64_t tail = load(end - kWord) >> absent ^ state;
    return extend_word(0, tail << absent) ^ state >> (8 * length);
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
VN_SSE42 inline Remainder extend_words(Remainder state, const uint8_t *data, size_t length)
{
    constexpr size_t kFour = 4 * kWord;
    for (; length >= kFour; length -= kFour, data += kFour) {
        state = extend_word(state, load(data));
        state = extend_word(state, load(data + kWord));
        state = extend_word(state, load(data + 2 * kWord));
        state = extend_word(state, load(data + 3 * kWord));
    }
    for (; length >= kWord; length -= kWord, data += kWord) state = extend_word(state, load(data));
    return extend_tail(state, data + length, length);
}

VN_SSE42 inline Remainder extend_short(Remainder state, const uint8_t *data, size_t length)
{
    if (length < kWord) return extend_few(static_cast<uint32_t>(state), data, length);
    return extend_words(state, data, length);
}

// The remainder that is left when kBytes zero bytes follow.
template <size_t kBytes>
VN_SSE42 inline Remainder moved(Remainder remainder)
{
    if constexpr (kBytes == 0) return remainder;
    constexpr auto kFactor = static_cast<int>(move_factor(8 * kBytes));
    const __m128i product = _mm_clmulepi64_si128(_mm_cvtsi64_si128(static_cast<int64_t>(remainder)),
                                                 _mm_cvtsi32_si128(kFactor), 0x00);
    return extend_word(0, static_cast<uint64_t>(_mm_cvtsi128_si64(product)));
}

// Stretches of kBytes bytes each, one after the other in the message, and their remainders.
template <size_t kBytes, size_t... kIndex>
struct Stretches {
    Remainder remainder[sizeof...(kIndex)] = {};

    // Takes in the word at `data` and those in the same place of the other stretches.
    VN_SSE42 void extend(const uint8_t *data)
    {
        ((remainder[kIndex] = extend_word(remainder[kIndex], load(data + kIndex * kBytes))), ...);
    }
    [[nodiscard]] VN_SSE42 Remainder joined() const
    {
        return (moved<(sizeof...(kIndex) - 1 - kIndex) * kBytes>(remainder[kIndex]) ^ ...);
    }
};
template <size_t kBytes, size_t... kIndex>
Stretches<kBytes, kIndex...> stretches_of(std::index_sequence<kIndex...>);
template <size_t kCount, size_t kBytes>
using SideBySide = decltype(stretches_of<kBytes>(std::make_index_sequence<kCount>{}));

// Takes in as many chunks of kCount stretches as there are.
template <size_t kCount, size_t kBytes>
VN_SSE42 inline Remainder extend_stretches(Remainder state, const uint8_t *&data, size_t &length)
{
    constexpr size_t kChunk = kCount * kBytes;
    for (; length >= kChunk; length -= kChunk, data += kChunk) {
        SideBySide<kCount, kBytes> stretches{{state}};
        for (size_t at = 0; at < kBytes; at += kWord) stretches.extend(data + at);
        state = stretches.joined();
    }
    return state;
}

// The factors that move an accumulator kBytes up: for its low (earlier) and its high half.
template <size_t kBytes>
VN_SSE42 inline __m128i lane_factors()
{
    constexpr auto kLow = static_cast<int64_t>(fold_factor(8 * kBytes + 64));
    constexpr auto kHigh = static_cast<int64_t>(fold_factor(8 * kBytes));
    return _mm_set_epi64x(kHigh, kLow);
}

VN_SSE42 inline Remainder lane_remainder(__m128i lane)
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

// Moves the first three lanes onto the fourth, all with one multiplication.
VN_AVX512 inline __m128i joined(__m512i wide)
{
    alignas(64) static constexpr uint64_t kFactors[8] = {
        fold_factor(24 * kLane + 64), fold_factor(24 * kLane),     fold_factor(16 * kLane + 64),
        fold_factor(16 * kLane),      fold_factor(8 * kLane + 64), fold_factor(8 * kLane)};
    constexpr __mmask8 kLast = 0xC0;
    const __m512i lanes =
        folded(wide, _mm512_load_si512(kFactors), _mm512_maskz_mov_epi64(kLast, wide));
    const __m256i pair =
        _mm256_xor_si256(_mm512_castsi512_si256(lanes), _mm512_extracti64x4_epi64(lanes, 1));
    return _mm_xor_si128(_mm256_castsi256_si128(pair), _mm256_extracti128_si256(pair, 1));
}

// At least four blocks are folded into one; what is left is less than a block.
VN_AVX512 inline Remainder extend_folded(Remainder state, const uint8_t *data, size_t length)
{
    const __m512i start = _mm512_zextsi128_si512(_mm_cvtsi64_si128(static_cast<int64_t>(state)));
    __m512i wide0 = _mm512_xor_si512(load_wide(data), start);
    __m512i wide1 = load_wide(data + kWide);
    __m512i wide2 = load_wide(data + 2 * kWide);
    __m512i wide3 = load_wide(data + 3 * kWide);
    const uint8_t *const end = data + length;
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

// Kept out of line so that short buffers do not pay for the registers that long ones need.
[[gnu::noinline]] VN_SSE42 Remainder extend_long_sse42(Remainder state, const uint8_t *data,
                                                       size_t length)
{
    state = extend_stretches<8, 512>(state, data, length);
    state = extend_stretches<8, 128>(state, data, length);
    state = extend_stretches<4, 64>(state, data, length);
    return extend_words(state, data, length);
}

} // namespace

VN_SSE42 uint32_t extend_sse42(uint32_t state, const uint8_t *data, size_t length)
{
    if (length < kShort) return static_cast<uint32_t>(extend_short(state, data, length));
    return static_cast<uint32_t>(extend_long_sse42(state, data, length));
}

VN_AVX512 uint32_t extend_avx512(uint32_t state, const uint8_t *data, size_t length)
{
    if (length < kShort) return static_cast<uint32_t>(extend_short(state, data, length));
    return static_cast<uint32_t>(extend_folded(state, data, length));
}

} // namespace vn::crc32c

#endif
