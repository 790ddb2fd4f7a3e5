// sha1.cpp - SHA-1 over a message that comes in pieces; the block function is in compress.h.
#include "vnlib/sha1.h"

#include "sha1/compress.h"
#include "support/digest.h"

namespace vn::sha1 {
namespace {

constexpr std::array<uint32_t, kStateWords> kInitial = {0x67452301, 0xEFCDAB89, 0x98BADCFE,
                                                        0x10325476, 0xC3D2E1F0};

} // namespace
} // namespace vn::sha1

using namespace vn;
using namespace vn::sha1;

extern "C" void sha1_init(sha1_ctx *ctx)
{
    *ctx = {};
    std::copy(kInitial.begin(), kInitial.end(), ctx->state);
}

extern "C" void sha1_append(sha1_ctx *ctx, const uint8_t *data, unsigned len)
{
    const size_t pending =
        digest::append(ctx->block, ctx->pending, data, len, digest::into<compress>(ctx->state));
    ctx->pending = static_cast<uint32_t>(pending);
    ctx->total += len;
}

extern "C" void sha1_finish(sha1_ctx *ctx, uint8_t digest[20])
{
    digest::finish(ctx->block, ctx->pending, digest::big_endian_bits(ctx->total),
                   digest::into<compress>(ctx->state));
    digest::store_big_words(ctx->state, digest);
}

extern "C" void sha1_single(const uint8_t *data, unsigned len, uint8_t digest[20])
{
    uint32_t state[kStateWords];
    std::copy(kInitial.begin(), kInitial.end(), state);
    digest::whole(data, len, digest::big_endian_bits(len), digest::into<compress>(state));
    digest::store_big_words(state, digest);
}
