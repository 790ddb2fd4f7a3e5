// arm.cpp - SHA-1's block function with the SHA instructions of ARMv8: four rounds and four words
// of the message schedule at a time.
#include "sha1/compress.h"

#if VN_CPU_ARM_SHA

#include <utility>

#include "support/arm_sha.h"
#include "support/digest.h"

namespace vn::sha1 {
namespace {

constexpr size_t kGroups = 20; // of four rounds each
constexpr size_t kStageGroups = 5;

struct State {
    uint32x4_t abcd;
    uint32_t e;
};

// w holds the last 16 words of the schedule, four to an element.
template <size_t kGroup>
[[gnu::always_inline]] VN_SHA inline void rounds(State &state, uint32x4_t (&w)[4],
                                                 const uint8_t *block)
{
    constexpr size_t kStage = kGroup / kStageGroups;
    uint32x4_t &words = w[kGroup % 4];
    if constexpr (kGroup < 4)
        words = vreinterpretq_u32_u8(vrev32q_u8(vld1q_u8(block + 16 * kGroup)));
    else
        words = vsha1su1q_u32(vsha1su0q_u32(words, w[(kGroup + 1) % 4], w[(kGroup + 2) % 4]),
                              w[(kGroup + 3) % 4]);
    const uint32x4_t added = vaddq_u32(words, vdupq_n_u32(kRoundConstants[kStage]));
    const uint32_t next_e = vsha1h_u32(vgetq_lane_u32(state.abcd, 0));
    if constexpr (kStage == 0)
        state.abcd = vsha1cq_u32(state.abcd, state.e, added);
    else if constexpr (kStage == 2)
        state.abcd = vsha1mq_u32(state.abcd, state.e, added);
    else
        state.abcd = vsha1pq_u32(state.abcd, state.e, added);
    state.e = next_e;
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
    State now = {vld1q_u32(state), state[4]};
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        const State before = now;
        all_rounds(now, blocks, std::make_index_sequence<kGroups>{});
        now.abcd = vaddq_u32(now.abcd, before.abcd);
        now.e += before.e;
    }
    vst1q_u32(state, now.abcd);
    state[4] = now.e;
}

} // namespace vn::sha1

#endif
