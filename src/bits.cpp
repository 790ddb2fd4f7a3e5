// bits.cpp - bit counts and logarithms come from <bit>, whose functions are one instruction each
// where the processor has one; the edge values of our interface are proved below at compile time.
#include "vnlib/bits.h"

#include <bit>
#include <cstring>

namespace vn::bits {
namespace {

// The logarithm of 0 is answered as that of 1, as a table lookup would.
constexpr unsigned log2_floor(uint64_t value)
{
    return static_cast<unsigned>(std::bit_width(value | 1)) - 1;
}
static_assert(log2_floor(0) == 0 && log2_floor(1) == 0 && log2_floor(255) == 7);
static_assert(log2_floor(256) == 8 && log2_floor(~uint64_t{0}) == 63);

// A successor counts as equal: a peer that has just stepped its counter is not ahead yet.
constexpr int compare_modular(uint64_t a, uint64_t b)
{
    const auto ahead = static_cast<int64_t>(a - b);
    return ahead < 0 ? -1 : ahead > 1;
}
static_assert(compare_modular(5, 5) == 0 && compare_modular(6, 5) == 0);
static_assert(compare_modular(7, 5) == 1 && compare_modular(4, 5) == -1);
static_assert(compare_modular(0, ~uint64_t{0}) == 0 && compare_modular(uint64_t{1} << 63, 0) == -1);

static_assert(std::endian::native == std::endian::little, "cmpnumle64 reads the native order");

// Counters sit in packed messages, at any address.
uint64_t load(const void *from)
{
    uint64_t value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

} // namespace
} // namespace vn::bits

using namespace vn::bits;

extern "C" {

unsigned clz(uint32_t value)
{
    return static_cast<unsigned>(std::countl_zero(value));
}

unsigned ctz(uint32_t value)
{
    return static_cast<unsigned>(std::countr_zero(value));
}

unsigned vn_ilog2(uint32_t value)
{
    return log2_floor(value);
}

unsigned vn_ilog2_64(uint64_t value)
{
    return log2_floor(value);
}

int cmpnumle64(const uint64_t *a, const uint64_t *b)
{
    return compare_modular(load(a), load(b));
}

int cmpnumbe64(const uint64_t *a, const uint64_t *b)
{
    return compare_modular(__builtin_bswap64(load(a)), __builtin_bswap64(load(b)));
}

} // extern "C"
