// ssse3.cpp - base64 in blocks of 12 bytes and 16 symbols.
#include "base64/versions.h"

#if VN_CPU_X86

#include "support/x86_intrinsics.h"

#include <cstring>

#include "base64/nibbles.h"

#define VN_TARGET __attribute__((target("ssse3")))
#include "base64/blocks.h"

namespace vn::base64 {
namespace {

VN_TARGET inline __m128i table(const Nibbles &nibbles)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(nibbles.data()));
}

struct Block {
    static constexpr size_t kBytes = 12;
    static constexpr size_t kSymbols = 16;
    using Text = __m128i;

    VN_TARGET static void encode(const uint8_t *in, char *out)
    {
        const __m128i text = symbols_of(split(load_bytes(in)));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), text);
    }

    static void encode_rest(const uint8_t *in, size_t length, char *out)
    {
        encode_run_portable(in, length, out);
    }

    VN_TARGET static Text load(const char *in)
    {
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(in));
    }

    VN_TARGET static uint64_t strays(Text text)
    {
        const __m128i places = _mm_and_si128(text, _mm_set1_epi8(0x0F));
        const __m128i kinds = _mm_and_si128(_mm_shuffle_epi8(table(kRowKind), rows(text)),
                                            _mm_shuffle_epi8(table(kStrayKinds), places));
        const __m128i clean = _mm_cmpeq_epi8(kinds, _mm_setzero_si128());
        return static_cast<uint64_t>(_mm_movemask_epi8(clean)) ^ 0xFFFF;
    }

    VN_TARGET static bool has_padding(Text text)
    {
        return _mm_movemask_epi8(_mm_cmpeq_epi8(text, _mm_set1_epi8(kPadding))) != 0;
    }

    VN_TARGET static Text spliced(Text text, Text next, size_t first)
    {
        const __m128i places = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        const __m128i keep = _mm_cmplt_epi8(places, _mm_set1_epi8(static_cast<char>(first)));
        return _mm_or_si128(_mm_and_si128(keep, text), _mm_andnot_si128(keep, next));
    }

    VN_TARGET static void store(Text text, uint8_t *out)
    {
        const __m128i bytes = merged(values_of(text));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out), bytes);
        const int last = _mm_cvtsi128_si32(_mm_srli_si128(bytes, 8));
        std::memcpy(out + 8, &last, sizeof last);
    }

    static void decode_rest(Cursor &cursor) { decode_clean_portable(cursor); }

private:
    VN_TARGET static __m128i load_bytes(const uint8_t *in)
    {
        int last;
        std::memcpy(&last, in + 8, sizeof last);
        return _mm_unpacklo_epi64(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(in)),
                                  _mm_cvtsi32_si128(last));
    }

    // Spreads each three bytes over four, six bits in each: every pair of symbols is brought into a
    // word of 16 bits and its bits are shifted into place by multiplication.
    VN_TARGET static __m128i split(__m128i bytes)
    {
        const __m128i pairs = _mm_shuffle_epi8(
            bytes, _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
        const __m128i even = _mm_mulhi_epu16(_mm_and_si128(pairs, _mm_set1_epi32(0x0FC0FC00)),
                                             _mm_set1_epi32(0x04000040));
        const __m128i odd = _mm_mullo_epi16(_mm_and_si128(pairs, _mm_set1_epi32(0x003F03F0)),
                                            _mm_set1_epi32(0x01000010));
        return _mm_or_si128(even, odd);
    }

    VN_TARGET static __m128i symbols_of(__m128i values)
    {
        const __m128i capital = _mm_cmplt_epi8(values, _mm_set1_epi8(26));
        const __m128i kind = _mm_or_si128(_mm_subs_epu8(values, _mm_set1_epi8(51)),
                                          _mm_and_si128(capital, _mm_set1_epi8(kCapitals)));
        return _mm_add_epi8(values, _mm_shuffle_epi8(table(kSymbolSteps), kind));
    }

    VN_TARGET static __m128i rows(Text text)
    {
        return _mm_and_si128(_mm_srli_epi32(text, 4), _mm_set1_epi8(0x0F));
    }

    VN_TARGET static __m128i values_of(Text text)
    {
        const __m128i slash = _mm_cmpeq_epi8(text, _mm_set1_epi8('/')); // -1: one row up
        const __m128i row = _mm_add_epi8(rows(text), slash);
        return _mm_add_epi8(text, _mm_shuffle_epi8(table(kValueSteps), row));
    }

    // Joins each four values of six bits to three bytes, and the threes to twelve.
    VN_TARGET static __m128i merged(__m128i values)
    {
        const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
        const __m128i fours = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
        return _mm_shuffle_epi8(
            fours, _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
    }
};

} // namespace

VN_TARGET void encode_run_ssse3(const uint8_t *in, size_t length, char *out)
{
    encode_run<Block>(in, length, out);
}

VN_TARGET void encode_lines_ssse3(const uint8_t *in, size_t lines, char *out)
{
    encode_lines<Block>(in, lines, out);
}

VN_TARGET void decode_clean_ssse3(Cursor &cursor)
{
    decode_clean<Block>(cursor);
}

} // namespace vn::base64

#endif
