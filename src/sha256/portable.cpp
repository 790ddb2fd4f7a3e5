// portable.cpp - SHA-256's block function in plain C++.
#include "sha256/compress.h"

#include <bit>

#include "support/bytes.h"
#include "support/digest.h"
#include "support/unroll.h"

namespace vn::sha256 {
namespace {

constexpr size_t kWindow = 16;

// The functions of FIPS 180-4, section 4.1.2.
inline uint32_t choose(uint32_t x, uint32_t y, uint32_t z)
{
    return z ^ (x & (y ^ z));
}
inline uint32_t majority(uint32_t x, uint32_t y, uint32_t z)
{
    return (x & y) ^ (z & (x ^ y));
}
inline uint32_t big_sigma0(uint32_t x)
{
    return std::rotr(x, 2) ^ std::rotr(x, 13) ^ std::rotr(x, 22);
}
inline uint32_t big_sigma1(uint32_t x)
{
    return std::rotr(x, 6) ^ std::rotr(x, 11) ^ std::rotr(x, 25);
}
inline uint32_t small_sigma0(uint32_t x)
{
    return std::rotr(x, 7) ^ std::rotr(x, 18) ^ (x >> 3);
}
inline uint32_t small_sigma1(uint32_t x)
{
    return std::rotr(x, 17) ^ std::rotr(x, 19) ^ (x >> 10);
}

// W[kRound], of which the last 16 are kept.
template <size_t kRound>
[[gnu::always_inline]] inline uint32_t schedule(uint32_t *w, const uint8_t *block)
{
    if constexpr (kRound < kWindow)
        w[kRound] = bytes::load_big<uint32_t>(block + 4 * kRound);
    else
        w[kRound % kWindow] += small_sigma1(w[(kRound - 2) % kWindow]) + w[(kRound - 7) % kWindow] +
                               small_sigma0(w[(kRound - 15) % kWindow]);
    return w[kRound % kWindow];
}

} // namespace

void compress_unrolled(uint32_t *state, const uint8_t *blocks, size_t count)
{
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        uint32_t w[kWindow];
        uint32_t v[kStateWords];
        for (size_t i = 0; i < kStateWords; ++i) v[i] = state[i];
        // Instead of moving the eight words along, each round finds them one place further on.
        unroll<kRounds>([&](auto round) __attribute__((always_inline)) {
            constexpr size_t kRound = round;
            const auto place = [&](size_t word) __attribute__((always_inline))->uint32_t &
            {
                return v[(kRounds - kRound + word) % kStateWords];
            };
            const uint32_t sum = place(7) + kRoundConstants[kRound] + schedule<kRound>(w, blocks) +
                                 choose(place(4), place(5), place(6)) + big_sigma1(place(4));
            place(3) += sum;
            place(7) = sum + majority(place(0), place(1), place(2)) + big_sigma0(place(0));
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
            w[i] = w[i - 16] + small_sigma0(w[i - 15]) + w[i - 7] + small_sigma1(w[i - 2]);
        uint32_t words[kRounds + kStateWords];
        uint32_t *v = words + kRounds;
        for (size_t i = 0; i < kStateWords; ++i) v[i] = state[i];
        for (size_t round = 0; round < kRounds; ++round) {
            const uint32_t sum = v[7] + kRoundConstants[round] + w[round] +
                                 choose(v[4], v[5], v[6]) + big_sigma1(v[4]);
            v[3] += sum;
            --v;
            v[0] = sum + majority(v[1], v[2], v[3]) + big_sigma0(v[1]);
        }
        for (size_t i = 0; i < kStateWords; ++i) state[i] += v[i];
    }
}

} // namespace vn::sha256
