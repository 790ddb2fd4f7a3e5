// nettle_peer.cpp - see nettle_peer.h
#include "nettle_peer.h"

#ifdef VN_BENCH_NETTLE
#include <nettle/md5.h>
#include <nettle/sha1.h>
#include <nettle/sha2.h>

void bench::nettle_md5(const uint8_t *data, size_t size, uint8_t *digest)
{
    struct md5_ctx context;
    md5_init(&context);
    md5_update(&context, size, data);
    md5_digest(&context, MD5_DIGEST_SIZE, digest);
}

void bench::nettle_sha1(const uint8_t *data, size_t size, uint8_t *digest)
{
    struct sha1_ctx context;
    sha1_init(&context);
    sha1_update(&context, size, data);
    sha1_digest(&context, SHA1_DIGEST_SIZE, digest);
}

void bench::nettle_sha256(const uint8_t *data, size_t size, uint8_t *digest)
{
    struct sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, size, data);
    sha256_digest(&context, SHA256_DIGEST_SIZE, digest);
}
#endif
