// sha256.cpp - SHA-256 over a message that comes in pieces; the block function is in compress.h.
#include "vnlib/sha256.h"

#include "sha256/compress.h"
#include "support/digest.h"

namespace vn::sha256 {
namespace {

constexpr std::array<uint32_t, kStateWords> kInitial = {
    0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A, 0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19};

uint64_t bytes_of(const sha256_ctx &ctx)
{
    return uint64_t{ctx.bytes[1]} << 32 | ctx.bytes[0];
}

void set_bytes(sha256_ctx &ctx, uint64_t bytes)
{
    ctx.bytes[0] = static_cast<uint32_t>(bytes);
    ctx.bytes[1] = static_cast<uint32_t>(bytes >> 32);
}

} // namespace
} // namespace vn::sha256

using namespace vn;
using namespace vn::sha256;

extern "C" void sha256_init(sha256_ctx *ctx)
{
    std::copy(kInitial.begin(), kInitial.end(), ctx->state);
    set_bytes(*ctx, 0);
    ctx->pending = 0;
}

extern "C" void sha256_append(sha256_ctx *ctx, const uint8_t *data, unsigned len)
{
    const size_t pending =
        digest::append(ctx->block, ctx->pending, data, len, digest::into<compress>(ctx->state));
    ctx->pending = static_cast<uint32_t>(pending);
    set_bytes(*ctx, bytes_of(*ctx) + len);
}

extern "C" void sha256_finish(sha256_ctx *ctx, uint8_t digest[32])
{
    digest::finish(ctx->block, ctx->pending, digest::big_endian_bits(bytes_of(*ctx)),
                   digest::into<compress>(ctx->state));
    digest::store_big_words(ctx->state, digest);
}

extern "C" void sha256_single(const uint8_t *data, unsigned len, uint8_t digest[32])
{
    uint32_t state[kStateWords];
    std::copy(kInitial.begin(), kInitial.end(), state);
    digest::whole(data, len, digest::big_endian_bits(len), digest::into<compress>(state));
    digest::store_big_words(state, digest);
}
