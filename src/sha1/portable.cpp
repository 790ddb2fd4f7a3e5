// portable.cpp - SHA-1's block function in plain C++.
#include "sha1/compress.h"

#include <bit>

#include "support/bytes.h"
#include "support/digest.h"
#include "support/unroll.h"

namespace vn::sha1 {
namespace {

constexpr size_t kRounds = 80;
constexpr size_t kStageRounds = 20;
constexpr size_t kWindow = 16;

// The function of the stage that a round belongs to (FIPS 180-4, section 4.1.1).
[[gnu::always_inline]] inline uint32_t mixed(size_t stage, uint32_t b, uint32_t c, uint32_t d)
{
    if (stage == 0) return d ^ (b & (c ^ d));
    if (stage == 2) return (b & c) + (d & (b ^ c)); // never a bit in common: a cheap "or"
    return b ^ c ^ d;
}

// W[kRound], of which the last 16 are kept.
template <size_t kRound>
[[gnu::always_inline]] inline uint32_t schedule(uint32_t *w, const uint8_t *block)
{
    if constexpr (kRound < kWindow)
        w[kRound] = bytes::load_big<uint32_t>(block + 4 * kRound);
    else
        w[kRound % kWindow] = std::rotl(w[(kRound - 3) % kWindow] ^ w[(kRound - 8) % kWindow] ^
                                            w[(kRound - 14) % kWindow] ^ w[kRound % kWindow],
                                        1);
    return w[kRound % kWindow];
}

} // namespace

void compress_unrolled(uint32_t *state, const uint8_t *blocks, size_t count)
{
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        uint32_t w[kWindow];
        uint32_t v[kStateWords] = {state[0], state[1], state[2], state[3], state[4]};
        // Instead of moving the five words along, each round finds them one place further on.
        unroll<kRounds>([&](auto round) __attribute__((always_inline)) {
            constexpr size_t kRound = round;
            constexpr size_t kStage = kRound / kStageRounds;
            const uint32_t a = v[(kRounds - kRound) % 5];
            uint32_t &b = v[(kRounds - kRound + 1) % 5];
            const uint32_t c = v[(kRounds - kRound + 2) % 5];
            const uint32_t d = v[(kRounds - kRound + 3) % 5];
            uint32_t &e = v[(kRounds - kRound + 4) % 5];
            e += kRoundConstants[kStage] + schedule<kRound>(w, blocks) + mixed(kStage, b, c, d) +
                 std::rotl(a, 5);
            b = std::rotl(b, 30);
        });
        for (size_t i = 0; i < kStateWords; ++i) state[i] += v[i];
    }
}

// The working words are not moved along either: each round puts a new first one in front of them.
void compress_looped(uint32_t *state, const uint8_t *blocks, size_t count)
{
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        uint32_t w[kRounds];
        for (size_t i = 0; i < kWindow; ++i) w[i] = bytes::load_big<uint32_t>(blocks + 4 * i);
        for (size_t i = kWindow; i < kRounds; ++i)
            w[i] = std::rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
        uint32_t words[kRounds + kStateWords];
        uint32_t *v = words + kRounds;
        for (size_t i = 0; i < kStateWords; ++i) v[i] = state[i];
        const uint32_t *word = w;
        for (size_t stage = 0; stage < kRoundConstants.size(); ++stage)
            for (size_t round = 0; round < kStageRounds; ++round) {
                const uint32_t sum = v[4] + kRoundConstants[stage] + *word++ +
                                     mixed(stage, v[1], v[2], v[3]) + std::rotl(v[0], 5);
                v[1] = std::rotl(v[1], 30);
                *--v = sum;
            }
        for (size_t i = 0; i < kStateWords; ++i) state[i] += v[i];
    }
}

} // namespace vn::sha1
