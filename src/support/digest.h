// digest.h - what MD5, SHA-1 and SHA-256 have in common: a message is cut into blocks of 64 bytes,
// and the last block is filled up with a byte 80h, zeros and the message's length in bits.
//
//     | 64 bytes | 64 bytes | ... | rest 80 00 00 ... 00 | length |
//                                                        ^ byte 56 of the last block
//
// `compress` is what into() returns. The length is handed over as the eight bytes that are to be
// stored.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "support/bytes.h"
#include "support/small.h"

namespace vn::digest {

constexpr size_t kBlockSize = 64;
constexpr size_t kLengthSize = 8;
using Length = std::array<uint8_t, kLengthSize>;

// The length of a message of `bytes` bytes as SHA-1 and SHA-256 store it.
inline Length big_endian_bits(uint64_t bytes)
{
    Length stored;
    bytes::store_big(stored.data(), bytes * 8);
    return stored;
}

// The digest of SHA-1 and SHA-256: the chaining words one after the other.
template <size_t kWords>
inline void store_big_words(const uint32_t (&state)[kWords], uint8_t *digest)
{
    for (size_t i = 0; i < kWords; ++i) bytes::store_big(digest + 4 * i, state[i]);
}

using CompressFunction = void (*)(uint32_t *state, const uint8_t *blocks, size_t count);

struct AnyInto {
    uint32_t *state;
    CompressFunction compress;
    void operator()(const uint8_t *blocks, size_t count) const { compress(state, blocks, count); }
};

// Compresses whole blocks into the chaining words at `state`. Each digest has a type of its own for
// that, so that the functions below are made for each; in a small build they serve all.
template <CompressFunction kCompress>
auto into(uint32_t *state)
{
    struct Own {
        uint32_t *state;
        void operator()(const uint8_t *blocks, size_t count) const
        {
            kCompress(state, blocks, count);
        }
    };
    if constexpr (kSmall)
        return AnyInto{state, kCompress};
    else
        return Own{state};
}

// Takes `length` bytes in, after the `pending` bytes that wait in `buffer`. Whole blocks are
// compressed where they lie. Returns how many bytes wait in `buffer` now.
template <typename Compress>
inline size_t append(uint8_t *buffer, size_t pending, const uint8_t *data, size_t length,
                     Compress compress)
{
    if (length < kBlockSize - pending) {
        if (length != 0) std::memcpy(buffer + pending, data, length);
        return pending + length;
    }
    if (pending != 0) {
        const size_t missing = kBlockSize - pending;
        std::memcpy(buffer + pending, data, missing);
        compress(buffer, size_t{1});
        data += missing;
        length -= missing;
    }
    const size_t blocks = length / kBlockSize;
    if (blocks != 0) compress(data, blocks);
    const size_t rest = length % kBlockSize;
    if (rest != 0) std::memcpy(buffer, data + blocks * kBlockSize, rest);
    return rest;
}

// Ends the message whose last `pending` bytes wait in `buffer`, which has room for one block.
template <typename Compress>
inline void finish(uint8_t *buffer, size_t pending, const Length &bits, Compress compress)
{
    buffer[pending++] = 0x80;
    if (pending > kBlockSize - kLengthSize) {
        std::memset(buffer + pending, 0, kBlockSize - pending);
        compress(buffer, size_t{1});
        pending = 0;
    }
    std::memset(buffer + pending, 0, kBlockSize - kLengthSize - pending);
    std::memcpy(buffer + kBlockSize - kLengthSize, bits.data(), kLengthSize);
    compress(buffer, size_t{1});
}

// Sixteen bytes of a message's last blocks, in one register where the processor has such: a block
// function that loads what was stored in smaller pieces would have to wait for the memory.
struct Piece {
    static constexpr size_t kSize = 16;
    uint64_t first = 0; // in the order of memory, the first byte in the lowest place
    uint64_t second = 0;

    // The `length` bytes at `from`, fewer than 16, and the byte after the message.
    static Piece ended(const uint8_t *from, size_t length)
    {
        const auto end = [](size_t place) { return uint64_t{0x80} << 8 * place; };
        const auto both_ends = [=]<typename Number>(Number) { // they may overlap
            const size_t rest = length - sizeof(Number);
            return uint64_t{bytes::load_little<Number>(from)} |
                   uint64_t{bytes::load_little<Number>(from + rest)} << 8 * rest;
        };
        if (length > 8) {
            const uint64_t last = bytes::load_little<uint64_t>(from + length - 8);
            return {bytes::load_little<uint64_t>(from),
                    last >> 8 * (16 - length) | end(length - 8)};
        }
        if (length == 8) return {bytes::load_little<uint64_t>(from), end(0)};
        if (length >= 4) return {both_ends(uint32_t{}) | end(length), 0};
        if (length >= 2) return {both_ends(uint16_t{}) | end(length), 0};
        if (length == 1) return {*from | end(1), 0};
        return {end(0), 0};
    }

    void store(uint8_t *to) const
    {
        using Register [[gnu::vector_size(kSize)]] = uint64_t;
        const auto stored = [](uint64_t number) {
            return std::endian::native == std::endian::little ? number : bytes::swapped(number);
        };
        const Register both = {stored(first), stored(second)};
        std::memcpy(to, &both, kSize);
    }
};

// Takes in a whole message at once, from the first block to the last: no context, no copying but of
// the last bytes.
template <typename Compress>
inline void whole(const uint8_t *data, size_t length, const Length &bits, Compress compress)
{
    if constexpr (kSmall) {
        uint8_t buffer[kBlockSize];
        return finish(buffer, append(buffer, 0, data, length, compress), bits, compress);
    }
    const size_t blocks = length / kBlockSize;
    if (blocks != 0) compress(data, blocks);
    data += blocks * kBlockSize;
    const size_t rest = length % kBlockSize;
    const size_t last_blocks = rest < kBlockSize - kLengthSize ? 1 : 2;
    const size_t last_piece = last_blocks * kBlockSize - Piece::kSize;
    uint8_t last[2 * kBlockSize];
    size_t at = 0;
    for (; at + Piece::kSize <= rest; at += Piece::kSize)
        std::memcpy(last + at, data + at, Piece::kSize);
    Piece piece = Piece::ended(data + at, rest - at);
    for (; at != last_piece; at += Piece::kSize) {
        piece.store(last + at);
        piece = {};
    }
    piece.second = bytes::load_little<uint64_t>(bits.data());
    piece.store(last + last_piece);
    compress(last, last_blocks);
}

} // namespace vn::digest
