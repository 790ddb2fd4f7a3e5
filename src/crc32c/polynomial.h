// polynomial.h - arithmetic modulo Castagnoli's polynomial, at compile time, for the versions that
// compute stretches of a message side by side and then move their remainders to where they belong.
//
// A remainder is a polynomial of degree 31 at most, written bit-reflected: x^0 is the highest bit.
#pragma once

#include <cstddef>
#include <cstdint>

#include "crc32c/extend.h"

namespace vn::crc32c {

constexpr uint32_t product(uint32_t a, uint32_t b)
{
    uint32_t sum = 0;
    for (uint32_t bit = 0x8000'0000u; bit != 0; bit >>= 1) {
        if ((b & bit) != 0) sum ^= a;
        a = (a >> 1) ^ (a & 1 ? kPolynomial : 0); // a times x
    }
    return sum;
}

constexpr uint32_t power_of_x(size_t exponent)
{
    uint32_t power = 0x8000'0000u;  // x^0
    uint32_t square = 0x4000'0000u; // x^1, x^2, x^4, ...
    for (; exponent != 0; exponent /= 2) {
        if (exponent % 2 != 0) power = product(power, square);
        square = product(square, square);
    }
    return power;
}
static_assert(power_of_x(31) == 1 && power_of_x(32) == kPolynomial);

// What 64 reflected bits are carry-less multiplied by to get `bits` further up in the message: the
// result has 128 bits and the same remainder. The product of two reflected numbers comes out one
// bit up, so the factor is one power short.
constexpr uint64_t fold_factor(size_t bits)
{
    return uint64_t{power_of_x(bits - 1)} << 32;
}

// What a remainder is multiplied by so that the 64-bit product, taken in by the CRC instruction,
// which itself moves it 32 bits up, is the remainder of as much followed by `bits` zero bits.
constexpr uint32_t move_factor(size_t bits)
{
    return power_of_x(bits - 33);
}

} // namespace vn::crc32c
