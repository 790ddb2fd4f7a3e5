#include "vnlib/hash.h"

#include <cstring>

namespace {

constexpr uint32_t kBasis32 = 0x811C9DC5;
constexpr uint64_t kBasis64 = 0xCBF29CE484222325;

struct Vector {
    const char *text;
    uint32_t hash32;
    uint64_t hash64;
};

// From the test vectors published with the algorithm.
const Vector kVectors[] = {
    {"", 0x811C9DC5, 0xCBF29CE484222325},       {"a", 0xE40C292C, 0xAF63DC4C8601EC8C},
    {"b", 0xE70C2DE5, 0xAF63DF4C8601F1A5},      {"fo", 0x6222E842, 0x08985907B541D342},
    {"foobar", 0xBF9CF968, 0x85944171F73967E8},
};

TEST(HashStr, GivesThePublishedVectors)
{
    for (const Vector &vector : kVectors) {
        EXPECT_EQ(hash_str(vector.text), vector.hash32) << vector.text;
        EXPECT_EQ(hash_str_64(vector.text), vector.hash64) << vector.text;
    }
}

TEST(HashStr, GivesTheBasisForNoText)
{
    EXPECT_EQ(hash_str_64(nullptr), kBasis64);
    EXPECT_EQ(hash_str(nullptr), kBasis32);
}

TEST(HashStr, TakesBytesAsUnsigned)
{
    EXPECT_EQ(hash_str("\xFF"), (kBasis32 ^ 0xFFu) * 0x01000193u);
    EXPECT_EQ(hash_str_64("\xFF"), (kBasis64 ^ 0xFFu) * 0x100000001B3u);
}

TEST(HashBuf, GivesThePublishedVectors)
{
    for (const Vector &vector : kVectors) {
        const auto length = static_cast<uint32_t>(strlen(vector.text));
        EXPECT_EQ(hash_buf(vector.text, length), vector.hash32) << vector.text;
        EXPECT_EQ(hash_buf_64(vector.text, length), vector.hash64) << vector.text;
    }
}

TEST(HashBuf, CountsZeroBytes)
{
    const char zeros[3] = {};
    EXPECT_EQ(hash_buf(zeros, 1), kBasis32 * 0x01000193u);
    EXPECT_EQ(hash_buf_64(zeros, 1), kBasis64 * 0x100000001B3u);
    EXPECT_NE(hash_buf(zeros, 2), hash_buf(zeros, 3));
}

TEST(HashBuf, GivesTheBasisForNothing)
{
    EXPECT_EQ(hash_buf("abc", 0), kBasis32);
    EXPECT_EQ(hash_buf_64("abc", 0), kBasis64);
    EXPECT_EQ(hash_buf(nullptr, 0), kBasis32);
    EXPECT_EQ(hash_buf_64(nullptr, 0), kBasis64);
    EXPECT_EQ(hash_buf(nullptr, 4), kBasis32);
}

TEST(HashBuf, GivesTheBasisForARangeThatWraps)
{
    const void *const last_bytes = reinterpret_cast<const void *>(UINTPTR_MAX - 15);
    EXPECT_EQ(hash_buf(last_bytes, 16), kBasis32);
    EXPECT_EQ(hash_buf_64(last_bytes, 16), kBasis64);
    EXPECT_EQ(hash_buf(last_bytes, UINT32_MAX), kBasis32);
    EXPECT_EQ(hash_buf_64(last_bytes, 1000), kBasis64);
}

TEST(HashBuf, ReadsExactlyTheGivenBytes)
{
    const std::vector<unsigned char> bytes(1000, 0xA5); // an overread shows under the sanitizer
    const auto length = static_cast<uint32_t>(bytes.size());
    uint32_t hash = kBasis32;
    for (const unsigned char byte : bytes) hash = (hash ^ byte) * 0x01000193u;
    EXPECT_EQ(hash_buf(bytes.data(), length), hash);
    EXPECT_NE(hash_buf_64(bytes.data(), length), hash_buf_64(bytes.data(), length - 1));
}

} // namespace
