#include "vnlib/bits.h"

#include <cstring>
#include <random>

namespace {

// --- the plain meaning of each function, one bit at a time ---------------------------------------

unsigned slow_clz(uint32_t value)
{
    unsigned zeros = 32;
    for (; value != 0; value >>= 1) --zeros;
    return zeros;
}

unsigned slow_ctz(uint32_t value)
{
    unsigned zeros = 32;
    for (; value != 0; value <<= 1) --zeros;
    return zeros;
}

unsigned slow_ilog2(uint64_t value)
{
    unsigned log = 0;
    while ((value >>= 1) != 0) ++log;
    return log;
}

int slow_compare(uint64_t a, uint64_t b)
{
    const uint64_t ahead = a - b;
    if (ahead <= 1) return 0;
    return ahead < uint64_t{1} << 63 ? 1 : -1;
}

// Around every power of two, and a million values without a pattern.
std::vector<uint64_t> telling_values()
{
    std::vector<uint64_t> values;
    for (unsigned bit = 0; bit < 64; ++bit)
        for (uint64_t around = 0; around < 5; ++around)
            values.push_back((uint64_t{1} << bit) + around - 2);
    std::mt19937_64 random(1);
    for (int i = 0; i < 1'000'000; ++i) values.push_back(random() >> (random() % 64));
    return values;
}

void expect_32_bit_functions_agree(uint32_t value)
{
    ASSERT_EQ(clz(value), slow_clz(value)) << value;
    ASSERT_EQ(ctz(value), slow_ctz(value)) << value;
    ASSERT_EQ(vn_ilog2(value), slow_ilog2(value)) << value;
}

uint64_t big_endian(uint64_t value)
{
    unsigned char bytes[8];
    for (int i = 7; i >= 0; --i, value >>= 8) bytes[i] = static_cast<unsigned char>(value);
    uint64_t stored;
    memcpy(&stored, bytes, sizeof stored);
    return stored;
}

int compare_le(uint64_t a, uint64_t b)
{
    return cmpnumle64(&a, &b);
}

int compare_be(uint64_t a, uint64_t b)
{
    const uint64_t stored_a = big_endian(a), stored_b = big_endian(b);
    return cmpnumbe64(&stored_a, &stored_b);
}

// --- counts and logarithms -----------------------------------------------------------------------

TEST(BitCounts, LeadingZerosOfTheEdges)
{
    EXPECT_EQ(clz(0), 32u);
    EXPECT_EQ(clz(1), 31u);
    EXPECT_EQ(clz(0x8000'0000u), 0u);
    EXPECT_EQ(clz(UINT32_MAX), 0u);
}

TEST(BitCounts, TrailingZerosOfTheEdges)
{
    EXPECT_EQ(ctz(0), 32u);
    EXPECT_EQ(ctz(1), 0u);
    EXPECT_EQ(ctz(0x8000'0000u), 31u);
    EXPECT_EQ(ctz(UINT32_MAX), 0u);
}

TEST(BitLogarithms, OfTheEdges)
{
    EXPECT_EQ(vn_ilog2(0), 0u);
    EXPECT_EQ(vn_ilog2(1), 0u);
    EXPECT_EQ(vn_ilog2(255), 7u);
    EXPECT_EQ(vn_ilog2(256), 8u);
    EXPECT_EQ(vn_ilog2(65535), 15u);
    EXPECT_EQ(vn_ilog2(65536), 16u);
    EXPECT_EQ(vn_ilog2(UINT32_MAX), 31u);
    EXPECT_EQ(vn_ilog2_64(0), 0u);
    EXPECT_EQ(vn_ilog2_64(1), 0u);
    EXPECT_EQ(vn_ilog2_64(UINT32_MAX), 31u);
    EXPECT_EQ(vn_ilog2_64(uint64_t{1} << 32), 32u);
    EXPECT_EQ(vn_ilog2_64(UINT64_MAX), 63u);
}

TEST(BitCounts, AgreeWithCountingBitByBitForEvery20BitValueAtBothEndsOfTheWord)
{
    for (uint32_t value = 0; value < 1u << 20; ++value) {
        expect_32_bit_functions_agree(value);
        expect_32_bit_functions_agree(value << 12);
    }
}

TEST(BitCounts, AgreeWithCountingBitByBitForTellingValues)
{
    for (const uint64_t value : telling_values()) {
        expect_32_bit_functions_agree(static_cast<uint32_t>(value));
        ASSERT_EQ(vn_ilog2_64(value), slow_ilog2(value)) << value;
    }
}

// --- modular comparison --------------------------------------------------------------------------

struct Comparison {
    uint64_t a, b;
    int result;
};

constexpr Comparison kComparisons[] = {
    {5, 5, 0},
    {6, 5, 0}, // the successor counts as equal
    {7, 5, 1},
    {4, 5, -1}, // the predecessor does not
    {0, UINT64_MAX, 0},
    {1, UINT64_MAX, 1},
    {UINT64_MAX, 0, -1},
    {uint64_t{1} << 63, 0, -1},
    {0, uint64_t{1} << 63, -1},
    {(uint64_t{1} << 63) - 1, 0, 1},
};

TEST(ModularComparison, ReadsTheWrappedDifferenceAsSigned)
{
    for (const auto &[a, b, result] : kComparisons) {
        EXPECT_EQ(compare_le(a, b), result) << a << " " << b;
        EXPECT_EQ(compare_be(a, b), result) << a << " " << b;
    }
}

TEST(ModularComparison, OfStoredBigEndianBytes)
{
    const unsigned char a[8] = {0, 0, 0, 0, 0, 0, 0, 7}, b[8] = {0, 0, 0, 0, 0, 0, 0, 5};
    uint64_t stored_a, stored_b;
    memcpy(&stored_a, a, 8);
    memcpy(&stored_b, b, 8);
    EXPECT_EQ(cmpnumbe64(&stored_a, &stored_b), 1);
    EXPECT_EQ(cmpnumbe64(&stored_b, &stored_a), -1);
}

TEST(ModularComparison, AgreesWithItsDefinitionForTellingPairs)
{
    const std::vector<uint64_t> values = telling_values();
    for (size_t i = 1; i < values.size(); ++i) {
        ASSERT_EQ(compare_le(values[i], values[i - 1]), slow_compare(values[i], values[i - 1]));
        ASSERT_EQ(compare_be(values[i], values[i - 1]), slow_compare(values[i], values[i - 1]));
    }
}

TEST(ModularComparison, AgreesWithItsDefinitionForSmallDifferencesAtEveryBitWidth)
{
    for (const uint64_t base : telling_values()) {
        const uint64_t near = base - 3 + base % 7;
        ASSERT_EQ(compare_le(near, base), slow_compare(near, base)) << near << " " << base;
    }
}

// The pointer stands for bytes inside a message; UndefinedBehaviorSanitizer watches this test.
TEST(ModularComparison, ReadsNumbersAtAnyAlignment)
{
    alignas(8) unsigned char message[32] = {};
    for (size_t at = 0; at < 8; ++at) {
        const uint64_t a = 9, b = 5;
        memcpy(message + at, &a, 8);
        memcpy(message + at + 16, &b, 8);
        const void *const first = message + at, *const second = message + at + 16;
        EXPECT_EQ(
            cmpnumle64(static_cast<const uint64_t *>(first), static_cast<const uint64_t *>(second)),
            1);
        EXPECT_EQ(
            cmpnumle64(static_cast<const uint64_t *>(second), static_cast<const uint64_t *>(first)),
            -1);
    }
}

} // namespace
