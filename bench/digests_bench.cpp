// digests_bench.cpp - MD5, SHA-1 and SHA-256 of whole messages, beside OpenSSL, nettle and
// libgcrypt.
#include "codecs.h"

#include "nettle_peer.h"
#include "vnlib/md5.h"
#include "vnlib/sha1.h"
#include "vnlib/sha256.h"

#ifdef VN_BENCH_OPENSSL
#define OPENSSL_SUPPRESS_DEPRECATED // the low-level calls have no set-up cost: the stronger peer
#include <openssl/evp.h>
#include <openssl/md5.h>
#include <openssl/sha.h>
#endif
#ifdef VN_BENCH_GCRYPT
#include <gcrypt.h>
#endif
#include <array>

namespace {

namespace cpu = vn::cpu;
using Digest = std::array<uint8_t, 32>; // the shorter ones leave zeros
using Function = Digest (*)(const uint8_t *, size_t);

template <auto kSingle, typename Length>
Digest ours(const uint8_t *data, size_t size)
{
    Digest digest{};
    kSingle(data, static_cast<Length>(size), digest.data());
    return digest;
}

#ifdef VN_BENCH_OPENSSL
template <auto kType>
Digest evp(const uint8_t *data, size_t size)
{
    Digest digest{};
    EVP_Digest(data, size, digest.data(), nullptr, kType(), nullptr);
    return digest;
}

template <auto kInit, auto kUpdate, auto kFinal, typename Context>
Digest low_level(const uint8_t *data, size_t size)
{
    Digest digest{};
    Context context;
    kInit(&context);
    kUpdate(&context, data, size);
    kFinal(digest.data(), &context);
    return digest;
}
#endif

#ifdef VN_BENCH_NETTLE
template <auto kDigest>
Digest nettle(const uint8_t *data, size_t size)
{
    Digest digest{};
    kDigest(data, size, digest.data());
    return digest;
}
#endif

#ifdef VN_BENCH_GCRYPT
template <auto kAlgorithm>
Digest gcrypt(const uint8_t *data, size_t size)
{
    Digest digest{};
    gcry_md_hash_buffer(kAlgorithm, digest.data(), data, size);
    return digest;
}
#endif

void add(const std::string &name, Function function, Function reference,
         uint32_t features = cpu::kEverything)
{
    for (const size_t size : {0ul, 3ul, 64ul, 1000ul, 65536ul}) {
        const auto bytes = bench::data(size);
        bench::require(function(bytes.data(), size) == reference(bytes.data(), size), name);
    }
    const auto body = [=](benchmark::State &state, size_t size) {
        const auto bytes = bench::data(size);
        for (auto _ : state) benchmark::DoNotOptimize(function(bytes.data(), size));
    };
    bench::add(name, body, features);
}

} // namespace

int main(int argc, char **argv)
{
    constexpr Function kMd5 = ours<md5_single, int>;
    constexpr Function kSha1 = ours<sha1_single, unsigned>;
    constexpr Function kSha256 = ours<sha256_single, unsigned>;
    add("md5/vnlib", kMd5, kMd5);
    add("sha1/vnlib", kSha1, kSha1);
    add("sha1/vnlib-portable", kSha1, kSha1, cpu::kNothing);
    add("sha256/vnlib", kSha256, kSha256);
    add("sha256/vnlib-portable", kSha256, kSha256, cpu::kNothing);
#ifdef VN_BENCH_OPENSSL
    add("md5/openssl", low_level<MD5_Init, MD5_Update, MD5_Final, MD5_CTX>, kMd5);
    add("sha1/openssl", low_level<SHA1_Init, SHA1_Update, SHA1_Final, SHA_CTX>, kSha1);
    add("sha256/openssl", low_level<SHA256_Init, SHA256_Update, SHA256_Final, SHA256_CTX>, kSha256);
    add("md5/openssl-evp", evp<EVP_md5>, kMd5);
    add("sha1/openssl-evp", evp<EVP_sha1>, kSha1);
    add("sha256/openssl-evp", evp<EVP_sha256>, kSha256);
#endif
#ifdef VN_BENCH_NETTLE
    add("md5/nettle", nettle<bench::nettle_md5>, kMd5);
    add("sha1/nettle", nettle<bench::nettle_sha1>, kSha1);
    add("sha256/nettle", nettle<bench::nettle_sha256>, kSha256);
#endif
#ifdef VN_BENCH_GCRYPT
    gcry_check_version(nullptr); // prepares the library
    gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    add("md5/gcrypt", gcrypt<GCRY_MD_MD5>, kMd5);
    add("sha1/gcrypt", gcrypt<GCRY_MD_SHA1>, kSha1);
    add("sha256/gcrypt", gcrypt<GCRY_MD_SHA256>, kSha256);
#endif
    return bench::run(argc, argv, bench::all_agree);
}
