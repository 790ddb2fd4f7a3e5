// md5.cpp - MD5 over a message that comes in pieces; the block function is in compress.h.
#include "vnlib/md5.h"

#include <array>

#include "md5/compress.h"
#include "support/bytes.h"
#include "support/digest.h"

namespace vn::md5 {
namespace {

constexpr std::array<uint32_t, kStateWords> kInitial = {0x67452301, 0xEFCDAB89, 0x98BADCFE,
                                                        0x10325476};

digest::Length stored_bits(uint64_t bits)
{
    digest::Length stored;
    bytes::store_little(stored.data(), bits);
    return stored;
}

void store_digest(const uint32_t *state, uint8_t *digest)
{
    for (size_t i = 0; i < kStateWords; ++i) bytes::store_little(digest + 4 * i, state[i]);
}

uint64_t bits_of(const md5_ctx &ctx)
{
    return uint64_t{ctx.bits[1]} << 32 | ctx.bits[0];
}

void set_bits(md5_ctx &ctx, uint64_t bits)
{
    ctx.bits[0] = static_cast<uint32_t>(bits);
    ctx.bits[1] = static_cast<uint32_t>(bits >> 32);
}

size_t pending_in(const md5_ctx &ctx)
{
    return ctx.bits[0] / 8 % digest::kBlockSize;
}

} // namespace
} // namespace vn::md5

using namespace vn;
using namespace vn::md5;

extern "C" void md5_init(md5_ctx *ctx)
{
    set_bits(*ctx, 0);
    std::copy(kInitial.begin(), kInitial.end(), ctx->state);
}

extern "C" void md5_append(md5_ctx *ctx, const uint8_t *data, int len)
{
    if (len < 1) return;
    const auto length = static_cast<size_t>(len);
    digest::append(ctx->block, pending_in(*ctx), data, length, digest::into<compress>(ctx->state));
    set_bits(*ctx, bits_of(*ctx) + uint64_t{length} * 8);
}

extern "C" void md5_finish(md5_ctx *ctx, uint8_t digest[16])
{
    digest::finish(ctx->block, pending_in(*ctx), stored_bits(bits_of(*ctx)),
                   digest::into<compress>(ctx->state));
    store_digest(ctx->state, digest);
}

extern "C" void md5_single(const uint8_t *data, int len, uint8_t digest[16])
{
    const size_t length = len < 1 ? 0 : static_cast<size_t>(len);
    uint32_t state[kStateWords];
    std::copy(kInitial.begin(), kInitial.end(), state);
    digest::whole(data, length, stored_bits(uint64_t{length} * 8), digest::into<compress>(state));
    store_digest(state, digest);
}
