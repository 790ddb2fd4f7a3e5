// bytes.h - numbers in memory: unaligned, in a stated byte order.
#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <cstring>

namespace vn::bytes {

constexpr uint16_t swapped(uint16_t value)
{
    return __builtin_bswap16(value);
}
constexpr uint32_t swapped(uint32_t value)
{
    return __builtin_bswap32(value);
}
constexpr uint64_t swapped(uint64_t value)
{
    return __builtin_bswap64(value);
}

template <std::unsigned_integral Number>
inline Number load_little(const uint8_t *from)
{
    Number value;
    std::memcpy(&value, from, sizeof value);
    return std::endian::native == std::endian::little ? value : swapped(value);
}

template <std::unsigned_integral Number>
inline Number load_big(const uint8_t *from)
{
    Number value;
    std::memcpy(&value, from, sizeof value);
    return std::endian::native == std::endian::big ? value : swapped(value);
}

template <std::unsigned_integral Number>
inline void store_little(uint8_t *to, Number value)
{
    if constexpr (std::endian::native != std::endian::little) value = swapped(value);
    std::memcpy(to, &value, sizeof value);
}

template <std::unsigned_integral Number>
inline void store_big(uint8_t *to, Number value)
{
    if constexpr (std::endian::native != std::endian::big) value = swapped(value);
    std::memcpy(to, &value, sizeof value);
}

} // namespace vn::bytes
