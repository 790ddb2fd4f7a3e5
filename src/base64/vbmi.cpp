// vbmi.cpp - base64 in blocks of 48 bytes and 64 symbols, a whole line each, for processors that
// permute bytes across a register of 512 bits (Mula and Lemire, Base64 encoding and decoding at
// almost the speed of a memory copy, 2019).
//
// The last, incomplete block is handled like the others, with the absent bytes masked out: masked
// loads and stores do not touch them.
#include "base64/versions.h"

#if VN_CPU_X86

#include "support/vbmi.h"

#define VN_TARGET VN_VBMI
#include "base64/blocks.h"

namespace vn::base64 {
namespace {

using vbmi::load_table;
using vbmi::make_table;
using vbmi::Table;

constexpr uint8_t kStray = 0x80;

// Each three bytes b0 b1 b2 are laid out as b1 b0 b2 b1, so that every symbol's six bits lie
// together.
constexpr Table kSpread = make_table([](size_t place) {
    constexpr size_t kOrder[4] = {1, 0, 2, 1};
    return place / 4 * 3 + kOrder[place % 4];
});
// Where in each eight such bytes the six bits of its eight symbols begin.
constexpr Table kShifts = make_table([](size_t place) {
    constexpr size_t kBits[4] = {10, 4, 22, 16};
    return place % 8 / 4 * 32 + kBits[place % 4];
});
constexpr Table kSymbolTable = make_table([](size_t value) { return kAlphabet[value]; });

// The values of the first and the second 64 characters.
constexpr uint8_t value_or_stray(size_t character)
{
    return kValues[character] < kAlphabet.size() ? kValues[character] : kStray;
}
constexpr Table kLowValues = make_table(value_or_stray);
constexpr Table kHighValues = make_table([](size_t place) { return value_or_stray(place + 64); });
// Three bytes of every four, the highest first.
constexpr Table kGather =
    make_table([](size_t place) { return place < kLineBytes ? place / 3 * 4 + 2 - place % 3 : 0; });

constexpr __mmask64 first(size_t count) // fewer than 64
{
    return (__mmask64{1} << count) - 1;
}

struct Block {
    static constexpr size_t kBytes = kLineBytes;
    static constexpr size_t kSymbols = kLineSymbols;
    using Text = __m512i;

    // A line of 65 characters leaves its store straddling two cache lines. Beyond the first-level
    // cache it would wait for the second one each time, so that one is fetched early.
    VN_TARGET static void encode(const uint8_t *in, char *out)
    {
        constexpr size_t kAhead = 8 * kSymbols;
        __builtin_prefetch(out + kAhead, 1);
        const __m256i low = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 32));
        const __m512i bytes = _mm512_inserti32x4(_mm512_castsi256_si512(low), high, 2);
        _mm512_storeu_si512(out, symbols_of(bytes));
    }

    VN_TARGET static void encode_rest(const uint8_t *in, size_t length, char *out)
    {
        const size_t symbols = (length * 8 + 5) / 6;
        const __m512i bytes = _mm512_maskz_loadu_epi8(first(length), in);
        const __m512i text =
            _mm512_mask_blend_epi8(first(symbols), _mm512_set1_epi8(kPadding), symbols_of(bytes));
        const __mmask64 written = length > kBytes - 3 ? ~__mmask64{0} : first(symbols_for(length));
        _mm512_mask_storeu_epi8(out, written, text);
    }

    VN_TARGET static Text load(const char *in) { return _mm512_loadu_si512(in); }

    VN_TARGET static uint64_t strays(Text text)
    {
        return _mm512_movepi8_mask(_mm512_or_si512(values_of(text), text));
    }

    VN_TARGET static bool has_padding(Text text)
    {
        return _mm512_cmpeq_epi8_mask(text, _mm512_set1_epi8(kPadding)) != 0;
    }

    VN_TARGET static Text spliced(Text text, Text next, size_t count)
    {
        return _mm512_mask_blend_epi8(first(count), next, text);
    }

    VN_TARGET static void store(Text text, uint8_t *out)
    {
        const __m512i bytes = merged(values_of(text));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm512_castsi512_si256(bytes));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out + 32),
                         _mm512_extracti32x4_epi32(bytes, 2));
    }

    // The whole groups before the first stray or the text's end.
    VN_TARGET static void decode_rest(Cursor &cursor)
    {
        const __mmask64 present = cursor.left() < kSymbols ? first(cursor.left()) : ~__mmask64{0};
        const __m512i text = _mm512_maskz_loadu_epi8(present, cursor.in);
        const auto clean = static_cast<size_t>(std::countr_zero(strays(text) | ~present));
        const size_t groups = clean / 4;
        _mm512_mask_storeu_epi8(cursor.out, first(3 * groups), merged(values_of(text)));
        cursor.in += 4 * groups;
        cursor.out += 3 * groups;
    }

private:
    VN_TARGET static __m512i symbols_of(__m512i bytes)
    {
        const __m512i spread = _mm512_permutexvar_epi8(load_table(kSpread), bytes);
        const __m512i values = _mm512_multishift_epi64_epi8(load_table(kShifts), spread);
        return _mm512_permutexvar_epi8(values, load_table(kSymbolTable));
    }

    // Of a character above 127 the value of the one 128 below.
    VN_TARGET static __m512i values_of(Text text)
    {
        return _mm512_permutex2var_epi8(load_table(kLowValues), text, load_table(kHighValues));
    }

    VN_TARGET static __m512i merged(__m512i values)
    {
        const __m512i pairs = _mm512_maddubs_epi16(values, _mm512_set1_epi32(0x01400140));
        const __m512i fours = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x00011000));
        return _mm512_permutexvar_epi8(load_table(kGather), fours);
    }
};

} // namespace

VN_TARGET void encode_run_vbmi(const uint8_t *in, size_t length, char *out)
{
    encode_run<Block>(in, length, out);
}

VN_TARGET void encode_lines_vbmi(const uint8_t *in, size_t lines, char *out)
{
    encode_lines<Block>(in, lines, out);
}

VN_TARGET void decode_clean_vbmi(Cursor &cursor)
{
    decode_clean<Block>(cursor);
}

} // namespace vn::base64

#endif
