// blocks.h - copying text in blocks, for processors that compare many bytes at a time.
//
// It is worth its code where a block is 16 bytes. In words of 4 or 8 it gains too little: four
// comparisons a word cost as much as a look-up for each byte.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#if defined __SSE2__ && !defined VNLIB_PORTABLE_ONLY
#include <bit>
#include <emmintrin.h>
#endif

namespace vn::sax {

// The characters that end a run; the last is repeated where there are fewer.
using Stoppers = std::array<uint8_t, 4>;

// Copies up to the first stopper, or less: what would not fill a block is left to the caller. Line
// feeds are stoppers that are copied and counted on the way. Says how many bytes were copied.
#if defined __SSE2__ && !defined VNLIB_PORTABLE_ONLY

inline size_t copy_blocks(char *to, std::span<const unsigned char> from, Stoppers stoppers,
                          unsigned &line_feeds)
{
    using Block = __m128i;
    const auto repeat = [](uint8_t byte) { return _mm_set1_epi8(static_cast<char>(byte)); };
    const Block stopper[] = {repeat(stoppers[0]), repeat(stoppers[1]), repeat(stoppers[2]),
                             repeat(stoppers[3])};
    size_t length = 0;
    while (from.size() - length >= sizeof(Block)) {
        const Block block = _mm_loadu_si128(reinterpret_cast<const Block *>(&from[length]));
        _mm_storeu_si128(reinterpret_cast<Block *>(to + length), block);
        const Block found = _mm_or_si128(
            _mm_or_si128(_mm_cmpeq_epi8(block, stopper[0]), _mm_cmpeq_epi8(block, stopper[1])),
            _mm_or_si128(_mm_cmpeq_epi8(block, stopper[2]), _mm_cmpeq_epi8(block, stopper[3])));
        const auto places = static_cast<unsigned>(_mm_movemask_epi8(found));
        if (places == 0) {
            length += sizeof(Block);
            continue;
        }
        length += static_cast<size_t>(std::countr_zero(places));
        if (from[length] != '\n') break;
        ++line_feeds;
        ++length;
    }
    return length;
}

#else

inline size_t copy_blocks(char *, std::span<const unsigned char>, Stoppers, unsigned &)
{
    return 0;
}

#endif

} // namespace vn::sax
