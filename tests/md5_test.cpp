#define OPENSSL_SUPPRESS_DEPRECATED // the peer's context, whose counters can be set
#include <openssl/md5.h>

#include <climits>
#include <cstddef>

#include "support/digest_suite.h"
#include "vnlib/md5.h"

struct Md5 {
    using Context = md5_ctx;
    using Length = int;
    static constexpr size_t kSize = 16;
    static constexpr auto init = md5_init;
    static constexpr auto append = md5_append;
    static constexpr auto finish = md5_finish;
    static constexpr auto single = md5_single;
    static const EVP_MD *peer() { return EVP_md5(); }
    static std::vector<std::pair<std::string, std::string>> vectors() // RFC 1321, appendix A.5
    {
        return {{"", "d41d8cd98f00b204e9800998ecf8427e"},
                {"a", "0cc175b9c0f1b6a831c399e269772661"},
                {"abc", "900150983cd24fb0d6963f7d28e17f72"},
                {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
                {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
                {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
                 "d174ab98d277d9f5a5611c2c9f419d9f"},
                {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
                 "57edf4a22be3c955ac49da2e2107b67a"}};
    }
    static constexpr const char *kMillionLetters = "7707d6ae4e027c70eea2a935c2296f21";
};

namespace {

DIGEST_SUITE(Md5)
LONG_DIGEST_TEST(Md5)

TEST(Md5, HasTheRecordThatCallersRelyOn)
{
    EXPECT_EQ(offsetof(md5_ctx, bits), 0u);
    EXPECT_EQ(offsetof(md5_ctx, state), 8u);
    EXPECT_EQ(offsetof(md5_ctx, block), 24u);
    EXPECT_EQ(sizeof(md5_ctx), 88u);
    md5_ctx context;
    md5_init(&context);
    const uint32_t words[] = {0, 0, 0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    EXPECT_EQ(memcmp(&context, words, sizeof words), 0);
}

TEST(Md5, CountsBitsLowWordFirst)
{
    md5_ctx context;
    md5_init(&context);
    md5_append(&context, test::random_bytes(100).data(), 100);
    EXPECT_EQ(context.bits[0], 800u);
    EXPECT_EQ(context.bits[1], 0u);
    context.bits[0] = 0xFFFF'FFE0u; // 60 bytes wait as far as the record says
    md5_append(&context, test::random_bytes(8).data(), 8);
    EXPECT_EQ(context.bits[0], 0x20u);
    EXPECT_EQ(context.bits[1], 1u);
}

TEST(Md5, IgnoresALengthBelowOne)
{
    const uint8_t byte = 'x';
    md5_ctx context;
    md5_init(&context);
    md5_append(&context, &byte, 0);
    md5_append(&context, &byte, -1);
    md5_append(nullptr, nullptr, INT_MIN);
    std::array<uint8_t, 16> digest{};
    md5_finish(&context, digest.data());
    EXPECT_EQ(test::hex(digest), "d41d8cd98f00b204e9800998ecf8427e");
    md5_single(&byte, -5, digest.data());
    EXPECT_EQ(test::hex(digest), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Md5, KeepsItsContextAfterTheEnd)
{
    md5_ctx context;
    md5_init(&context);
    std::array<uint8_t, 16> digest{};
    md5_finish(&context, digest.data());
    uint32_t state[4];
    memcpy(state, digest.data(), sizeof state); // on a little-endian machine
    EXPECT_EQ(memcmp(context.state, state, sizeof state), 0);
}

TEST(Md5, CarriesItsLengthIntoTheHighWord)
{
    const test::Bytes bytes = test::random_bytes(256);
    for (const uint32_t before : {0xFFFF'FC00u, 0xFFFF'FE00u, 0xFFFF'F000u}) {
        md5_ctx context;
        md5_init(&context);
        context.bits[0] = before;
        MD5_CTX other;
        MD5_Init(&other);
        other.Nl = before;
        for (const int length : {100, 156, 1, 64, 77}) {
            md5_append(&context, bytes.data(), length);
            MD5_Update(&other, bytes.data(), static_cast<size_t>(length));
        }
        std::array<uint8_t, 16> digest{};
        std::array<uint8_t, 16> expected{};
        md5_finish(&context, digest.data());
        MD5_Final(expected.data(), &other);
        EXPECT_EQ(digest, expected);
    }
}

} // namespace
