// compress.cpp - MD5's block function as RFC 1321 gives it.
//
// The 64 steps are one long chain: step i needs the result of step i - 1 and nothing can run beside
// it. What counts is the length of that chain, so each step adds the word, the constant and as much
// of its boolean function as does not need the newest value before that value arrives.
#include "md5/compress.h"

#include <array>
#include <bit>

#include "support/bytes.h"
#include "support/digest.h"
#include "support/unroll.h"

namespace vn::md5 {
namespace {

constexpr size_t kSteps = 64;
constexpr size_t kRoundSteps = 16;

// floor(2^32 * abs(sin(i + 1))), RFC 1321 section 3.4
constexpr std::array<uint32_t, kSteps> kSines = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// What changes from round to round: the order of the words and the rotations.
struct Round {
    uint8_t first_word, word_stride;
    std::array<uint8_t, 4> rotations;
};
constexpr std::array<Round, 4> kRounds = {{{0, 1, {7, 12, 17, 22}},
                                           {1, 5, {5, 9, 14, 20}},
                                           {5, 3, {4, 11, 16, 23}},
                                           {0, 7, {6, 10, 15, 21}}}};

// `sum` plus the boolean function of the round; b is the newest value. In round 2 the two halves of
// the function never share a bit, so they can be added one by one and the half without b comes
// early.
[[gnu::always_inline]] inline uint32_t add_mixed(size_t round, uint32_t sum, uint32_t b, uint32_t c,
                                                 uint32_t d)
{
    if (round == 0) return sum + (d ^ (b & (c ^ d)));
    if (round == 1) return sum + (c & ~d) + (b & d);
    if (round == 2) return sum + (b ^ (c ^ d));
    return sum + (c ^ (b | ~d));
}

} // namespace

void compress_unrolled(uint32_t *state, const uint8_t *blocks, size_t count)
{
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        uint32_t v[kStateWords] = {state[0], state[1], state[2], state[3]};
        unroll<kSteps>([&](auto step) __attribute__((always_inline)) {
            constexpr size_t kStep = step;
            constexpr Round kRound = kRounds[kStep / kRoundSteps];
            constexpr size_t kWord = (kRound.first_word + kRound.word_stride * kStep) % 16;
            uint32_t &a = v[(kSteps - kStep) % 4];
            const uint32_t b = v[(kSteps - kStep + 1) % 4];
            const uint32_t c = v[(kSteps - kStep + 2) % 4];
            const uint32_t d = v[(kSteps - kStep + 3) % 4];
            const uint32_t word = bytes::load_little<uint32_t>(blocks + 4 * kWord);
            const uint32_t sum = add_mixed(kStep / kRoundSteps, a + kSines[kStep] + word, b, c, d);
            a = b + std::rotl(sum, kRound.rotations[kStep % 4]);
        });
        for (size_t i = 0; i < kStateWords; ++i) state[i] += v[i];
    }
}

// The four words are not moved along: each step puts a new first one in front of them.
void compress_looped(uint32_t *state, const uint8_t *blocks, size_t count)
{
    for (; count != 0; --count, blocks += digest::kBlockSize) {
        uint32_t words[kSteps + kStateWords];
        uint32_t *v = words + kSteps; // b, c, d, a
        for (size_t i = 0; i < kStateWords; ++i) v[i] = state[(i + 1) % kStateWords];
        for (size_t step = 0; step < kSteps; ++step) {
            const Round &round = kRounds[step / kRoundSteps];
            const size_t place = (round.first_word + round.word_stride * step) % 16;
            const uint32_t word = bytes::load_little<uint32_t>(blocks + 4 * place);
            const uint32_t sum =
                add_mixed(step / kRoundSteps, v[3] + kSines[step] + word, v[0], v[1], v[2]);
            --v;
            v[0] = v[1] + std::rotl(sum, round.rotations[step % 4]);
        }
        for (size_t i = 0; i < kStateWords; ++i) state[(i + 1) % kStateWords] += v[i];
    }
}

} // namespace vn::md5
