#define OPENSSL_SUPPRESS_DEPRECATED // the peer's context, whose counters can be set
#include <openssl/sha.h>

#include <cstddef>

#include "support/digest_suite.h"
#include "vnlib/sha256.h"

struct Sha256 {
    using Context = sha256_ctx;
    using Length = unsigned;
    static constexpr size_t kSize = 32;
    static constexpr auto init = sha256_init;
    static constexpr auto append = sha256_append;
    static constexpr auto finish = sha256_finish;
    static constexpr auto single = sha256_single;
    static const EVP_MD *peer() { return EVP_sha256(); }
    static std::vector<std::pair<std::string, std::string>> vectors() // FIPS 180 and its examples
    {
        return {{"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
                {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
                {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
                 "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
                {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                 "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
                 "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"}};
    }
    static constexpr const char *kMillionLetters =
        "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0";
};

namespace {

DIGEST_SUITE(Sha256)
LONG_DIGEST_TEST(Sha256)

TEST(Sha256, HasTheRecordThatCallersRelyOn)
{
    EXPECT_EQ(offsetof(sha256_ctx, state), 0u);
    EXPECT_EQ(offsetof(sha256_ctx, bytes), 32u);
    EXPECT_EQ(offsetof(sha256_ctx, pending), 40u);
    EXPECT_EQ(offsetof(sha256_ctx, block), 44u);
    EXPECT_EQ(sizeof(sha256_ctx), 108u);
    sha256_ctx context;
    memset(&context, 0xAA, sizeof context);
    sha256_init(&context);
    const uint32_t words[] = {0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A,
                              0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19,
                              0,          0,          0};
    EXPECT_EQ(memcmp(&context, words, sizeof words), 0);
}

TEST(Sha256, KeepsItsContextAfterTheEnd)
{
    sha256_ctx context;
    sha256_init(&context);
    std::array<uint8_t, 32> digest{};
    sha256_finish(&context, digest.data());
    EXPECT_EQ(context.state[0], 0xE3B0'C442u);
    EXPECT_EQ(context.state[7], 0x7852'B855u);
}

TEST(Sha256, CarriesItsLengthIntoTheHighWord)
{
    const test::Bytes bytes = test::random_bytes(256);
    for (const uint64_t before :
         {0x1FFF'FF80ull, 0xFFFF'FF80ull, 0xFFFF'FFC0ull, 0x12'3456'7880ull}) {
        sha256_ctx context;
        sha256_init(&context);
        context.bytes[0] = static_cast<uint32_t>(before);
        context.bytes[1] = static_cast<uint32_t>(before >> 32);
        SHA256_CTX other;
        SHA256_Init(&other);
        other.Nl = static_cast<uint32_t>(before << 3);
        other.Nh = static_cast<uint32_t>(before >> 29);
        for (const unsigned length : {100u, 156u, 1u, 64u, 77u}) {
            sha256_append(&context, bytes.data(), length);
            SHA256_Update(&other, bytes.data(), length);
        }
        std::array<uint8_t, 32> digest{};
        std::array<uint8_t, 32> expected{};
        sha256_finish(&context, digest.data());
        SHA256_Final(expected.data(), &other);
        EXPECT_EQ(digest, expected);
    }
}

} // namespace
