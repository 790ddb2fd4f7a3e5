// arm.cpp - SHA-256's block function with the SHA instructions of ARMv8: four rounds and four words
// of the message schedule at a time.
#include "sha256/compress.h"

#if VN_CPU_ARM_SHA

#include <utility>

#include "support/arm_sha.h"
#include "support/digest.h"

namespace vn::sha256 {
namespace {

constexpr size_t kGroups = 16; // of four rounds each

struct State {
    uint32x4_t abcd, efgh;
};

// w holds the last 16 words of the schedule, four to an element.
template <size_t kGroup>
[[gnu::always_inline]] VN_SHA inline void rounds(State &state, uint32x4_t (&w)[4],
                                                 const uint8_t *block)
{
    uint32x4_t &words = w[kGroup % 4];
    if constexpr (kGroup < 4)
        words = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(block + 16 * kGroup)));
    else
        words = vsha256su1q_u32(vsha256su0q_u32(words, w[(kGroup + 1) % 4]), w[(kGroup + 2) % 4],
                                w[(kGroup + 3) % 4]);
    const uint32x4_t added = vaddq_u32(words, vld1q_u32(&kRoundConstants[4 * kGroup]));
    const uint32x4_t before = state.abcd;
    state.abcd = vsha256hq_u32(before, state.efgh, added);
    state.efgh = vsha256h2q_u32(state.efgh, before, added);
}

template <size_t... kGroup>
[[gnu::always_inline]] VN_SHA inline void all_rounds(State &state, const uint8_t *block,
                                                     std::index_sequence<kGroup...>)
{
    uint32x4_t w[4];
    (rounds<kGroup>(state, w, block), ...);
}

} // namespace

VN_SHA void compress_native(uint32_t *state, const uint8_t *blocks, size_t count)
{
    State now = {vld1q_u32(state), vld1q_u32(state + 4)};
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        const State before = now;
        all_rounds(now, blocks, std::make_index_sequence<kGroups>{});
        now.abcd = vaddq_u32(now.abcd, before.abcd);
        now.efgh = vaddq_u32(now.efgh, before.efgh);
    }
    vst1q_u32(state, now.abcd);
    vst1q_u32(state + 4, now.efgh);
}

} // namespace vn::sha256

#endif
