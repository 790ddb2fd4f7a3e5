// polynomial.h - arithmetic modulo Castagnoli's polynomial for the versions that multiply.
//
// A remainder is a polynomial of degree 31 at most, written bit-reflected: x^0 is the highest bit.
#pragma once

#include <cstddef>
#include <cstdint>

#include "crc32c/extend.h"

namespace vn::crc32c {

constexpr uint32_t times_x(uint32_t remainder)
{
    return (remainder >> 1) ^ (remainder & 1 ? kPolynomial : 0);
}

constexpr uint32_t power_of_x(size_t exponent)
{
    uint32_t remainder = 0x8000'0000u; // x^0
    for (size_t i = 0; i < exponent; ++i) remainder = times_x(remainder);
    return remainder;
}

// The factor that a carry-less multiplication of 64 reflected bits needs to move them `bits`
// further up in the message. The product of two reflected numbers comes out shifted by one, so the
// factor is one power short.
constexpr uint64_t fold_factor(size_t bits)
{
    return uint64_t{power_of_x(bits - 1)} << 32;
}

} // namespace vn::crc32c
