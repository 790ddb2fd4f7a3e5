// division.h - division for 32-bit ARM processors that have no instruction for it.
#pragma once

#include <cstdint>

namespace vn {

// A double holds both numbers exactly. Cutting off what follows the point of their quotient is
// exact too: where the true quotient is no integer, it is at least 1 / divisor below the next one,
// which is 2^-32 of it or more, and a double is rounded by 2^-52 at most.
template <typename Integer> // of 32 bits
constexpr Integer divided(Integer number, Integer divisor)
{
    return static_cast<Integer>(static_cast<double>(number) / static_cast<double>(divisor));
}

// Divides a number by ten and returns what is left, as on paper, with 16 bits in each place: what
// is left of the places above and the next place are 20 bits. The places leave the number at its
// top, and their quotients enter it at the bottom.
constexpr uint32_t take_last_digit(uint64_t &number)
{
    uint32_t rest = 0;
    for (int place = 0; place < 4; ++place) {
        rest = rest << 16 | static_cast<uint32_t>(number >> 48);
        number = number << 16 | rest / 10;
        rest %= 10;
    }
    return rest;
}

} // namespace vn
