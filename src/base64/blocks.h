// blocks.h - base64 by vector registers: what the versions for particular processors share.
//
// A version defines a Block, which says how one register full of symbols is read, judged, converted
// and stored, and gets its loops from here. All is compiled under the version's own target: the
// including file defines VN_TARGET first.
//
//     struct Block {
//         static constexpr size_t kBytes, kSymbols;      // what one block converts
//         using Text = ...;                              // kSymbols characters
//         static void encode(const uint8_t *in, char *out);
//         static void encode_rest(const uint8_t *in, size_t length, char *out);   // < kBytes
//         static Text load(const char *in);
//         static uint64_t strays(Text);                  // bit i: character i is no symbol
//         static bool has_padding(Text);
//         static Text spliced(Text, Text next, size_t first);    // from `first` on those of next
//         static void store(Text, uint8_t *out);         // kBytes, of a text without strays
//         static void decode_rest(Cursor &);             // decode_clean(), for less than a block
//     };
#pragma once

#include <bit>

#include "base64/versions.h"

namespace vn::base64 {
namespace {

template <typename Block>
VN_TARGET inline void encode_run(const uint8_t *in, size_t length, char *out)
{
    for (; length >= Block::kBytes; length -= Block::kBytes) {
        Block::encode(in, out);
        in += Block::kBytes;
        out += Block::kSymbols;
    }
    if (length != 0) Block::encode_rest(in, length, out);
}

template <typename Block>
VN_TARGET inline void encode_lines(const uint8_t *in, size_t lines, char *out)
{
    static_assert(kLineBytes % Block::kBytes == 0);
    for (; lines != 0; --lines) {
        for (size_t block = 0; block < kLineBytes / Block::kBytes; ++block)
            Block::encode(in + block * Block::kBytes, out + block * Block::kSymbols);
        out[kLineSymbols] = '\n';
        in += kLineBytes;
        out += kLineSymbols + 1;
    }
}

// Nearly every gap is a line feed. Where the next block begins then follows from a branch that the
// processor foresees, not from this block's characters, which it would have to wait for; the empty
// statement keeps the compiler from turning the branch into arithmetic.
VN_TARGET inline size_t foreseen(size_t gap)
{
    if (gap != 1) return gap;
    size_t one = 1;
    __asm__ volatile("" : "+r"(one));
    return one;
}

// Closes the first gap in `text`: a run of strays, such as the end of a line, is left out and as
// many characters move up from behind the block. Returns how many were left out, or 0 if that does
// not make a clean block.
template <typename Block>
VN_TARGET inline size_t close_gap(const Cursor &cursor, typename Block::Text &text, uint64_t strays)
{
    const auto first = static_cast<size_t>(std::countr_zero(strays));
    const size_t gap = foreseen(static_cast<size_t>(std::countr_one(strays >> first)));
    if (cursor.left() < Block::kSymbols + gap || Block::has_padding(text)) return 0;
    text = Block::spliced(text, Block::load(cursor.in + gap), first);
    return Block::strays(text) == 0 ? gap : 0;
}

template <typename Block>
VN_TARGET inline void decode_clean(Cursor &cursor)
{
    while (cursor.left() >= Block::kSymbols) {
        auto text = Block::load(cursor.in);
        const uint64_t strays = Block::strays(text);
        if (__builtin_expect(strays != 0, 0)) {
            const size_t gap = close_gap<Block>(cursor, text, strays);
            if (gap == 0) break;
            cursor.in += gap;
        }
        Block::store(text, cursor.out);
        cursor.in += Block::kSymbols;
        cursor.out += Block::kBytes;
    }
    Block::decode_rest(cursor);
}

} // namespace
} // namespace vn::base64
