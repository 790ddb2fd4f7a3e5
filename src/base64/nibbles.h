// nibbles.h - the alphabet cut up for instructions that look up 16 bytes at a time (Mula and
// Lemire, Faster Base64 Encoding and Decoding Using AVX2 Instructions, 2018).
//
// ASCII in rows of 16: a character's high nibble is its row, its low nibble the place in the row.
//
//     2_  . . . . . . . . . . . + . . . /        4_, 6_  . letters ................
//     3_  0 1 2 3 4 5 6 7 8 9 . . . . . .        5_, 7_  letters ....... . . . . .
#pragma once

#include <array>
#include <cstdint>

#include "base64/versions.h"

namespace vn::base64 {

using Nibbles = std::array<uint8_t, 16>;

constexpr bool is_symbol(size_t row, size_t place)
{
    return row < 8 && kValues[16 * row + place] < kAlphabet.size();
}

// Rows with symbols in the same places are of one kind; each kind has a bit.
constexpr Nibbles kRowKind = {16, 16, 1, 2, 4, 8, 4, 8, 16, 16, 16, 16, 16, 16, 16, 16};

// For each place, the kinds of rows that have no symbol there: a character is a stray exactly if
// its row's kind is among those of its place.
consteval Nibbles stray_kinds()
{
    Nibbles kinds{};
    for (size_t row = 0; row < 16; ++row)
        for (size_t place = 0; place < 16; ++place)
            if (!is_symbol(row, place)) kinds[place] |= kRowKind[row];
    return kinds;
}
constexpr Nibbles kStrayKinds = stray_kinds();

// What to add to a symbol of each row to get its value. Row 2 has two symbols with different
// differences; "/" is looked up in row 1, which has no symbol of its own.
consteval Nibbles value_steps()
{
    Nibbles steps{};
    for (size_t row = 0; row < 8; ++row)
        for (size_t place = 0; place < 16; ++place) {
            const size_t symbol = 16 * row + place;
            if (is_symbol(row, place))
                steps[symbol == '/' ? row - 1 : row] =
                    static_cast<uint8_t>(kValues[symbol] - symbol);
        }
    return steps;
}
constexpr Nibbles kValueSteps = value_steps();

// What to add to a value to get its symbol, by the kind of symbol: 0 for small letters, 1 to 10 for
// the digits, 11 and 12 for "+" and "/", 13 for capitals.
constexpr size_t kCapitals = 13;
consteval Nibbles symbol_steps()
{
    Nibbles steps{};
    for (size_t value = 26; value < 64; ++value)
        steps[value < 52 ? 0 : value - 51] =
            static_cast<uint8_t>(uint8_t(kAlphabet[value]) - value);
    steps[kCapitals] = 'A';
    return steps;
}
constexpr Nibbles kSymbolSteps = symbol_steps();

} // namespace vn::base64
