#define OPENSSL_SUPPRESS_DEPRECATED // the peer's context, whose counters can be set
#include <openssl/sha.h>

#include <cstddef>

#include "support/digest_suite.h"
#include "vnlib/sha1.h"

struct Sha1 {
    using Context = sha1_ctx;
    using Length = unsigned;
    static constexpr size_t kSize = 20;
    static constexpr auto init = sha1_init;
    static constexpr auto append = sha1_append;
    static constexpr auto finish = sha1_finish;
    static constexpr auto single = sha1_single;
    static const EVP_MD *peer() { return EVP_sha1(); }
    static std::vector<std::pair<std::string, std::string>> vectors() // FIPS 180 and its examples
    {
        return {{"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
                {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
                {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
                 "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
                {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                 "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
                 "a49b2446a02c645bf419f995b67091253a04a259"}};
    }
    static constexpr const char *kMillionLetters = "34aa973cd4c4daa4f61eeb2bdbad27316534016f";
};

namespace {

DIGEST_SUITE(Sha1)
LONG_DIGEST_TEST(Sha1)

TEST(Sha1, HasTheRecordThatCallersRelyOn)
{
    EXPECT_EQ(offsetof(sha1_ctx, state), 0u);
    EXPECT_EQ(offsetof(sha1_ctx, pending), 20u);
    EXPECT_EQ(offsetof(sha1_ctx, total), 24u);
    EXPECT_EQ(offsetof(sha1_ctx, block), 32u);
    EXPECT_EQ(sizeof(sha1_ctx), 96u);
}

TEST(Sha1, ClearsItsRecordFirst)
{
    sha1_ctx context;
    memset(&context, 0xAA, sizeof context);
    sha1_init(&context);
    sha1_ctx expected{};
    const uint32_t words[] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    memcpy(expected.state, words, sizeof words);
    EXPECT_EQ(memcmp(&context, &expected, sizeof context), 0);
}

TEST(Sha1, CountsTheBytesAndThoseThatWait)
{
    sha1_ctx context;
    sha1_init(&context);
    sha1_append(&context, test::random_bytes(100).data(), 100);
    EXPECT_EQ(context.total, 100u);
    EXPECT_EQ(context.pending, 36u);
}

TEST(Sha1, KeepsItsContextAfterTheEnd)
{
    sha1_ctx context;
    sha1_init(&context);
    std::array<uint8_t, 20> digest{};
    sha1_finish(&context, digest.data());
    EXPECT_EQ(context.state[0], 0xDA39'A3EEu);
    EXPECT_EQ(context.state[4], 0xAFD8'0709u);
}

TEST(Sha1, CarriesItsLengthBeyondThirtyTwoBits)
{
    const test::Bytes bytes = test::random_bytes(256);
    for (const uint64_t before :
         {0x1FFF'FF80ull, 0x1FFF'FFC0ull, 0xFFFF'FFC0ull, 0x12'3456'7880ull}) {
        sha1_ctx context;
        sha1_init(&context);
        context.total = before;
        SHA_CTX other;
        SHA1_Init(&other);
        other.Nl = static_cast<uint32_t>(before << 3);
        other.Nh = static_cast<uint32_t>(before >> 29);
        for (const unsigned length : {100u, 156u, 1u, 64u, 77u}) {
            sha1_append(&context, bytes.data(), length);
            SHA1_Update(&other, bytes.data(), length);
        }
        std::array<uint8_t, 20> digest{};
        std::array<uint8_t, 20> expected{};
        sha1_finish(&context, digest.data());
        SHA1_Final(expected.data(), &other);
        EXPECT_EQ(digest, expected);
    }
}

} // namespace
