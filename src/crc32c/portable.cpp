// portable.cpp - CRC-32C by tables, several bytes at a time ("slicing": Kounavis and Berry, A
// Systematic Approach to Building High Performance Software-based CRC Generators, 2005).
//
// kRemainders[k][b] is the remainder of byte b followed by k zero bytes, so the contributions of
// several bytes can be looked up side by side and added.
#include "crc32c/extend.h"

#include <array>
#include <utility>

#include "support/bytes.h"

namespace vn::crc32c {
namespace {

constexpr size_t kWordSize = sizeof(uint32_t);

using Table = std::array<uint32_t, 256>;

template <size_t kSlices>
consteval std::array<Table, kSlices> make_tables()
{
    std::array<Table, kSlices> tables{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (crc & 1 ? kPolynomial : 0);
        tables[0][byte] = crc;
    }
    for (size_t slice = 1; slice < kSlices; ++slice)
        for (size_t byte = 0; byte < 256; ++byte) {
            const uint32_t before = tables[slice - 1][byte];
            tables[slice][byte] = (before >> 8) ^ tables[0][before & 0xFF];
        }
    return tables;
}
template <size_t kSlices>
constexpr auto kRemainders = make_tables<kSlices>();
static_assert(kRemainders<1>[0][1] == 0xF26B'8303u && kRemainders<1>[0][255] == 0xAD7D'5351u);

// The remainder of the four bytes in `word` followed by `kAfter` zero bytes.
template <size_t kSlices, size_t kAfter>
inline uint32_t word_remainder(uint32_t word)
{
    constexpr auto &kOf = kRemainders<kSlices>;
    return kOf[kAfter + 3][word & 0xFF] ^ kOf[kAfter + 2][word >> 8 & 0xFF] ^
           kOf[kAfter + 1][word >> 16 & 0xFF] ^ kOf[kAfter][word >> 24];
}

template <size_t kSlices, size_t... kWord>
inline uint32_t slice_remainder(uint32_t state, const uint8_t *data, std::index_sequence<kWord...>)
{
    return (word_remainder<kSlices, kSlices - kWordSize *(kWord + 1)>(
                bytes::load_little<uint32_t>(data + kWordSize * kWord) ^ (kWord == 0 ? state : 0)) ^
            ...);
}

} // namespace

template <size_t kSlices>
uint32_t extend_portable(uint32_t state, const uint8_t *data, size_t length)
{
    if constexpr (kSlices >= kWordSize) {
        constexpr auto kWords = std::make_index_sequence<kSlices / kWordSize>{};
        for (; length >= kSlices; length -= kSlices, data += kSlices)
            state = slice_remainder<kSlices>(state, data, kWords);
        for (; length >= kWordSize; length -= kWordSize, data += kWordSize)
            state = word_remainder<kSlices, 0>(bytes::load_little<uint32_t>(data) ^ state);
    }
    for (; length != 0; --length)
        state = (state >> 8) ^ kRemainders<kSlices>[0][(state ^ *data++) & 0xFF];
    return state;
}

template uint32_t extend_portable<kFastTables>(uint32_t, const uint8_t *, size_t);
template uint32_t extend_portable<1>(uint32_t, const uint8_t *, size_t);

} // namespace vn::crc32c
