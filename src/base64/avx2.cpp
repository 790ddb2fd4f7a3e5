// avx2.cpp - base64 in blocks of 24 bytes and 32 symbols: ssse3.cpp's steps, two at a time.
#include "base64/versions.h"

#if VN_CPU_X86

#include "support/x86_intrinsics.h"

#include "base64/nibbles.h"

#define VN_TARGET __attribute__((target("avx2,bmi")))
#include "base64/blocks.h"

namespace vn::base64 {
namespace {

VN_TARGET inline __m128i load_half(const void *from)
{
    return _mm_loadu_si128(static_cast<const __m128i *>(from));
}

VN_TARGET inline __m256i table(const Nibbles &nibbles)
{
    return _mm256_broadcastsi128_si256(load_half(nibbles.data()));
}

struct Block {
    static constexpr size_t kBytes = 24;
    static constexpr size_t kSymbols = 32;
    using Text = __m256i;

    VN_TARGET static void encode(const uint8_t *in, char *out)
    {
        const __m256i text = symbols_of(split(load_bytes(in)));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), text);
    }

    static void encode_rest(const uint8_t *in, size_t length, char *out)
    {
        encode_run_ssse3(in, length, out);
    }

    VN_TARGET static Text load(const char *in)
    {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in));
    }

    VN_TARGET static uint64_t strays(Text text)
    {
        const __m256i places = _mm256_and_si256(text, _mm256_set1_epi8(0x0F));
        const __m256i kinds = _mm256_and_si256(_mm256_shuffle_epi8(table(kRowKind), rows(text)),
                                               _mm256_shuffle_epi8(table(kStrayKinds), places));
        const __m256i clean = _mm256_cmpeq_epi8(kinds, _mm256_setzero_si256());
        return static_cast<uint32_t>(~_mm256_movemask_epi8(clean));
    }

    VN_TARGET static bool has_padding(Text text)
    {
        return _mm256_movemask_epi8(_mm256_cmpeq_epi8(text, _mm256_set1_epi8(kPadding))) != 0;
    }

    VN_TARGET static Text spliced(Text text, Text next, size_t first)
    {
        const __m256i places =
            _mm256_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19,
                             20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31);
        const __m256i keep = _mm256_cmpgt_epi8(_mm256_set1_epi8(static_cast<char>(first)), places);
        return _mm256_blendv_epi8(next, text, keep);
    }

    VN_TARGET static void store(Text text, uint8_t *out)
    {
        const __m256i bytes = merged(values_of(text));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm256_castsi256_si128(bytes));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 16), _mm256_extracti128_si256(bytes, 1));
    }

    static void decode_rest(Cursor &cursor) { decode_clean_ssse3(cursor); }

private:
    // 12 bytes for each half, read without touching a byte more: the second half has its twelve at
    // the end of what is loaded.
    VN_TARGET static __m256i load_bytes(const uint8_t *in)
    {
        return _mm256_inserti128_si256(_mm256_castsi128_si256(load_half(in)), load_half(in + 8), 1);
    }

    VN_TARGET static __m256i split(__m256i bytes)
    {
        const __m256i pairs = _mm256_shuffle_epi8(
            bytes, _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 5, 4, 6, 5,
                                    8, 7, 9, 8, 11, 10, 12, 11, 14, 13, 15, 14));
        const __m256i even = _mm256_mulhi_epu16(
            _mm256_and_si256(pairs, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
        const __m256i odd = _mm256_mullo_epi16(
            _mm256_and_si256(pairs, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
        return _mm256_or_si256(even, odd);
    }

    VN_TARGET static __m256i symbols_of(__m256i values)
    {
        const __m256i capital = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
        const __m256i kind =
            _mm256_or_si256(_mm256_subs_epu8(values, _mm256_set1_epi8(51)),
                            _mm256_and_si256(capital, _mm256_set1_epi8(kCapitals)));
        return _mm256_add_epi8(values, _mm256_shuffle_epi8(table(kSymbolSteps), kind));
    }

    VN_TARGET static __m256i rows(Text text)
    {
        return _mm256_and_si256(_mm256_srli_epi32(text, 4), _mm256_set1_epi8(0x0F));
    }

    VN_TARGET static __m256i values_of(Text text)
    {
        const __m256i slash = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('/')); // -1: one row up
        const __m256i row = _mm256_add_epi8(rows(text), slash);
        return _mm256_add_epi8(text, _mm256_shuffle_epi8(table(kValueSteps), row));
    }

    VN_TARGET static __m256i merged(__m256i values)
    {
        const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
        const __m256i fours = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
        const __m256i twelves = _mm256_shuffle_epi8(
            fours, _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2, 1, 0,
                                    6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
        return _mm256_permutevar8x32_epi32(twelves, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    }
};

} // namespace

VN_TARGET void encode_run_avx2(const uint8_t *in, size_t length, char *out)
{
    encode_run<Block>(in, length, out);
}

VN_TARGET void encode_lines_avx2(const uint8_t *in, size_t lines, char *out)
{
    encode_lines<Block>(in, lines, out);
}

VN_TARGET void decode_clean_avx2(Cursor &cursor)
{
    decode_clean<Block>(cursor);
}

} // namespace vn::base64

#endif
