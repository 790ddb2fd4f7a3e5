// vbmi.cpp - base32 eight groups at a time, 40 bytes and 64 symbols, for processors that permute
// bytes across a register of 512 bits and shift each to a place of its own.
//
// The last, incomplete block is handled like the others, with the absent bytes masked out: masked
// loads and stores do not touch them. A text that fits into half a register is converted there, and
// in no loop: its sum has half as many parts, and what is short is mostly set-up.
#include "base32/versions.h"

#if VN_CPU_X86

#include <algorithm>

#include "support/vbmi.h"

namespace vn::base32 {
namespace {

using vbmi::load_half;
using vbmi::load_table;
using vbmi::make_table;
using vbmi::Table;

constexpr size_t kSymbols = 64;
constexpr size_t kBytes = 40;
constexpr size_t kShortSymbols = kSymbols / 2;

// Five bytes at the low end of every eight, and back.
constexpr Table kSpread = make_table([](size_t place) {
    return place / 8 * 5 + place % 8; // what lies above the five is not used
});
constexpr Table kGather =
    make_table([](size_t place) { return place < kBytes ? place / 5 * 8 + place % 5 : 0; });
// Where in each eight bytes the bits of its eight symbols begin.
constexpr Table kShifts = make_table([](size_t place) { return place % 8 * 5; });
constexpr Table kSymbolTable =
    make_table([](size_t value) { return kAlphabet[value % kAlphabet.size()]; });
// The values of the first and the second 64 characters; those above are none.
constexpr Table kLowValues = make_table([](size_t place) { return kValues[place]; });
constexpr Table kHighValues = make_table([](size_t place) { return kValues[place + 64]; });

VN_VBMI inline __mmask64 first(size_t count)
{
    return _bzhi_u64(~uint64_t{0}, static_cast<unsigned>(count));
}

VN_VBMI inline __m512i add_values(__m512i sums, __m512i values)
{
    return _mm512_add_epi64(sums, _mm512_sad_epu8(values, _mm512_setzero_si512()));
}

VN_VBMI inline unsigned total(__m512i sums)
{
    return static_cast<unsigned>(_mm512_reduce_add_epi64(sums));
}

VN_VBMI inline unsigned total_of(__m256i values)
{
    const __m256i sums = _mm256_sad_epu8(values, _mm256_setzero_si256());
    const __m128i two =
        _mm_add_epi64(_mm256_castsi256_si128(sums), _mm256_extracti128_si256(sums, 1));
    return static_cast<unsigned>(_mm_cvtsi128_si32(two) + _mm_extract_epi32(two, 2));
}

// Eight values of five bits in each 64 to 40 bits: pairs, fours, all.
VN_VBMI inline __m512i gathered(__m512i values)
{
    const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi16(0x2001));
    const __m512i fours = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x04000001));
    const __m512i low = _mm512_and_si512(fours, _mm512_set1_epi64(0xFFFFF));
    const __m512i high = _mm512_slli_epi64(_mm512_srli_epi64(fours, 32), 20);
    return _mm512_permutexvar_epi8(load_table(kGather), _mm512_or_si512(low, high));
}

// What encode_vbmi() does, for no more than 32 symbols.
VN_VBMI inline unsigned encode_short(const uint8_t *in, char *out, size_t symbols, size_t bytes)
{
    const auto there = static_cast<__mmask32>(first(std::min(bytes, bytes_touched_by(symbols))));
    const auto wanted = static_cast<__mmask32>(first(symbols));
    const __m256i data = _mm256_maskz_loadu_epi8(there, in);
    const __m256i groups = _mm256_permutexvar_epi8(load_half(kSpread), data);
    const __m256i bits = _mm256_multishift_epi64_epi8(load_half(kShifts), groups);
    const __m256i values = _mm256_and_si256(bits, _mm256_set1_epi8(31));
    _mm256_mask_storeu_epi8(out, wanted, _mm256_permutexvar_epi8(values, load_half(kSymbolTable)));
    return total_of(_mm256_maskz_mov_epi8(wanted, values));
}

} // namespace

VN_VBMI unsigned encode_vbmi(const uint8_t *in, char *out, size_t symbols, size_t bytes)
{
    if (symbols <= kShortSymbols) return encode_short(in, out, symbols, bytes);
    __m512i sums = _mm512_setzero_si512();
    while (symbols != 0) {
        const size_t count = std::min(symbols, kSymbols);
        const __mmask64 there = first(std::min(bytes, bytes_touched_by(count)));
        const __m512i data = _mm512_maskz_loadu_epi8(there, in);
        const __m512i groups = _mm512_permutexvar_epi8(load_table(kSpread), data);
        const __m512i bits = _mm512_multishift_epi64_epi8(load_table(kShifts), groups);
        const __m512i values = _mm512_and_si512(bits, _mm512_set1_epi8(31));
        const __m512i present = _mm512_maskz_mov_epi8(first(count), values);
        sums = add_values(sums, present);
        _mm512_mask_storeu_epi8(out, first(count),
                                _mm512_permutexvar_epi8(values, load_table(kSymbolTable)));
        in += kBytes;
        bytes -= std::min(bytes, kBytes);
        out += kSymbols;
        symbols -= count;
    }
    return total(sums);
}

VN_VBMI unsigned decode_vbmi(const char *in, uint8_t *out, size_t symbols)
{
    __m512i sums = _mm512_setzero_si512();
    while (symbols != 0) {
        const size_t count = std::min(symbols, kSymbols);
        const __m512i text = _mm512_maskz_loadu_epi8(first(count), in);
        const __m512i values = _mm512_maskz_permutex2var_epi8(
            ~_mm512_movepi8_mask(text), load_table(kLowValues), text, load_table(kHighValues));
        sums = add_values(sums, values);
        _mm512_mask_storeu_epi8(out, first(bytes_touched_by(count)), gathered(values));
        in += kSymbols;
        out += kBytes;
        symbols -= count;
    }
    return total(sums);
}

} // namespace vn::base32

#endif
