// avx2.cpp - base32 four groups at a time: each quarter of a register holds five bytes, then eight
// symbols.
#include "base32/versions.h"

#if VN_CPU_X86

#include <cstring>

#include "support/x86_intrinsics.h"

#define VN_AVX2 __attribute__((target("avx2")))

namespace vn::base32 {
namespace {

using Row = std::array<uint8_t, 16>;

// The values of the 16 characters whose high nibble is `number`.
consteval Row row(size_t number)
{
    Row values{};
    for (size_t place = 0; place < values.size(); ++place)
        values[place] = kValues[16 * number + place];
    return values;
}
constexpr Row kDigits = row(3);
constexpr Row kLettersToO = row(4);
constexpr Row kLettersFromP = row(5);
static_assert(kLettersToO == row(6) && kLettersFromP == row(7)); // small letters

VN_AVX2 inline __m128i load_half(const void *from)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(from));
}

VN_AVX2 inline __m256i table(const void *entries)
{
    return _mm256_broadcastsi128_si256(load_half(entries));
}

VN_AVX2 inline __m256i picked(__m256i from, int64_t bits)
{
    return _mm256_and_si256(from, _mm256_set1_epi64x(bits));
}

// Five bytes to each quarter, read without touching a byte more: the second half has its ten at the
// end of what is loaded.
VN_AVX2 inline __m256i load_bytes(const uint8_t *in)
{
    const __m256i both =
        _mm256_inserti128_si256(_mm256_castsi128_si256(load_half(in)), load_half(in + 4), 1);
    return _mm256_shuffle_epi8(both, _mm256_setr_epi8(0, 1, 2, 3, 4, -1, -1, -1, 5, 6, 7, 8, 9, -1,
                                                      -1, -1, 6, 7, 8, 9, 10, -1, -1, -1, 11, 12,
                                                      13, 14, 15, -1, -1, -1));
}

// Eight values of five bits to the bytes of a quarter: halves move apart, then their halves.
VN_AVX2 inline __m256i spread(__m256i bits)
{
    bits =
        _mm256_or_si256(picked(bits, 0xFFFFF), _mm256_slli_epi64(picked(bits, 0xFFFFF00000), 12));
    bits = _mm256_or_si256(picked(bits, 0x000003FF000003FF),
                           _mm256_slli_epi64(picked(bits, 0x000FFC00000FFC00), 6));
    return _mm256_or_si256(picked(bits, 0x001F001F001F001F),
                           _mm256_slli_epi64(picked(bits, 0x03E003E003E003E0), 3));
}

VN_AVX2 inline __m256i symbols_of(__m256i values)
{
    const __m256i low = _mm256_shuffle_epi8(table(kAlphabet.data()), values);
    const __m256i high = _mm256_shuffle_epi8(table(kAlphabet.data() + 16), values);
    return _mm256_blendv_epi8(low, high, _mm256_slli_epi16(values, 3)); // by the bit that counts 16
}

VN_AVX2 inline __m256i values_in_rows(__m256i rows, char number, __m256i values)
{
    return _mm256_and_si256(_mm256_cmpeq_epi8(rows, _mm256_set1_epi8(number)), values);
}

VN_AVX2 inline __m256i values_of(__m256i text)
{
    const __m256i nibble = _mm256_set1_epi8(0x0F);
    const __m256i place = _mm256_and_si256(text, nibble);
    const __m256i rows = _mm256_and_si256(_mm256_srli_epi16(text, 4), nibble);
    const __m256i small = _mm256_or_si256(rows, _mm256_set1_epi8(2)); // rows of letters, 6 and 7
    const __m256i digits = _mm256_shuffle_epi8(table(kDigits.data()), place);
    const __m256i to_o = _mm256_shuffle_epi8(table(kLettersToO.data()), place);
    const __m256i from_p = _mm256_shuffle_epi8(table(kLettersFromP.data()), place);
    return _mm256_or_si256(
        values_in_rows(rows, 3, digits),
        _mm256_or_si256(values_in_rows(small, 6, to_o), values_in_rows(small, 7, from_p)));
}

// Eight values of each quarter to 40 bits, and the bytes of each half one after the other.
VN_AVX2 inline __m256i gathered(__m256i values)
{
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi16(0x2001));
    const __m256i fours = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x04000001));
    const __m256i bits = _mm256_or_si256(picked(fours, 0xFFFFF),
                                         _mm256_srli_epi64(picked(fours, ~0xFFFFFFFFll), 12));
    const __m256i order = _mm256_broadcastsi128_si256(
        _mm_setr_epi8(0, 1, 2, 3, 4, 8, 9, 10, 11, 12, -1, -1, -1, -1, -1, -1));
    return _mm256_shuffle_epi8(bits, order);
}

VN_AVX2 inline void store_ten(uint8_t *out, __m128i bytes)
{
    _mm_storel_epi64(reinterpret_cast<__m128i *>(out), bytes);
    const auto last = static_cast<uint16_t>(_mm_extract_epi16(bytes, 4));
    std::memcpy(out + 8, &last, sizeof last);
}

VN_AVX2 inline __m256i add_values(__m256i sums, __m256i values)
{
    return _mm256_add_epi64(sums, _mm256_sad_epu8(values, _mm256_setzero_si256()));
}

VN_AVX2 inline unsigned total(__m256i sums)
{
    uint64_t quarters[4];
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(quarters), sums);
    return static_cast<unsigned>(quarters[0] + quarters[1] + quarters[2] + quarters[3]);
}

} // namespace

VN_AVX2 unsigned encode_blocks_avx2(const uint8_t *in, char *out, size_t blocks)
{
    __m256i sums = _mm256_setzero_si256();
    for (; blocks != 0; --blocks, in += kBlockBytes, out += kBlockSymbols) {
        const __m256i values = spread(load_bytes(in));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), symbols_of(values));
        sums = add_values(sums, values);
    }
    return total(sums);
}

VN_AVX2 unsigned decode_blocks_avx2(const char *in, uint8_t *out, size_t blocks)
{
    __m256i sums = _mm256_setzero_si256();
    for (; blocks != 0; --blocks, in += kBlockSymbols, out += kBlockBytes) {
        const __m256i values = values_of(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(in)));
        const __m256i bytes = gathered(values);
        store_ten(out, _mm256_castsi256_si128(bytes));
        store_ten(out + kBlockBytes / 2, _mm256_extracti128_si256(bytes, 1));
        sums = add_values(sums, values);
    }
    return total(sums);
}

} // namespace vn::base32

#endif
