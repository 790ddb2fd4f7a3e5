// neon.cpp - base64 for AArch64, in blocks of 12 bytes and 16 symbols, looked up in tables of 64
// bytes. 32-bit NEON looks up 32 bytes of a table at most, eight at a time, which does not pay.
#include "base64/versions.h"

#if VN_CPU_ARM && defined(__aarch64__)

#include <arm_neon.h>

#include <cstring>

#define VN_TARGET // every AArch64 processor has it
#include "base64/blocks.h"

namespace vn::base64 {
namespace {

constexpr uint8_t kStray = 0x80;

consteval std::array<uint8_t, 128> make_values()
{
    std::array<uint8_t, 128> values{};
    for (size_t character = 0; character < values.size(); ++character)
        values[character] = kValues[character] < kAlphabet.size() ? kValues[character] : kStray;
    return values;
}
constexpr auto kAsciiValues = make_values();

inline uint8x16x4_t load_table(const void *from)
{
    return vld1q_u8_x4(static_cast<const uint8_t *>(from));
}

struct Block {
    static constexpr size_t kBytes = 12;
    static constexpr size_t kSymbols = 16;
    using Text = uint8x16_t;

    static void encode(const uint8_t *in, char *out)
    {
        const uint8x16_t symbols = vqtbl4q_u8(load_table(kAlphabet.data()), split(load_bytes(in)));
        vst1q_u8(reinterpret_cast<uint8_t *>(out), symbols);
    }

    static void encode_rest(const uint8_t *in, size_t length, char *out)
    {
        encode_run_portable(in, length, out);
    }

    static Text load(const char *in) { return vld1q_u8(reinterpret_cast<const uint8_t *>(in)); }

    static uint64_t strays(Text text)
    {
        constexpr uint8_t kBits[16] = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
        const uint8x16_t bad = vcgeq_u8(values_of(text), vdupq_n_u8(kStray));
        const uint8x16_t bits = vandq_u8(bad, vld1q_u8(kBits));
        return uint64_t{vaddv_u8(vget_low_u8(bits))} | uint64_t{vaddv_u8(vget_high_u8(bits))} << 8;
    }

    static bool has_padding(Text text)
    {
        return vmaxvq_u8(vceqq_u8(text, vdupq_n_u8(kPadding))) != 0;
    }

    static Text spliced(Text text, Text next, size_t first)
    {
        constexpr uint8_t kPlaces[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
        const uint8x16_t keep =
            vcltq_u8(vld1q_u8(kPlaces), vdupq_n_u8(static_cast<uint8_t>(first)));
        return vbslq_u8(keep, text, next);
    }

    static void store(Text text, uint8_t *out)
    {
        const uint8x16_t bytes = merged(values_of(text));
        vst1_u8(out, vget_low_u8(bytes));
        const uint32_t last = vgetq_lane_u32(vreinterpretq_u32_u8(bytes), 2);
        std::memcpy(out + 8, &last, sizeof last);
    }

    static void decode_rest(Cursor &cursor) { decode_clean_portable(cursor); }

private:
    static uint8x16_t load_bytes(const uint8_t *in)
    {
        uint32_t last;
        std::memcpy(&last, in + 8, sizeof last);
        return vcombine_u8(vld1_u8(in), vcreate_u8(last));
    }

    // Three bytes, the highest first, become a number of 24 bits, and its four parts of six bits
    // the bytes of a lane, the highest first.
    static uint8x16_t split(uint8x16_t bytes)
    {
        constexpr uint8_t kReverse[16] = {2, 1, 0, 255, 5, 4, 3, 255, 8, 7, 6, 255, 11, 10, 9, 255};
        const uint32x4_t bits = vreinterpretq_u32_u8(vqtbl1q_u8(bytes, vld1q_u8(kReverse)));
        const uint32x4_t a = vshrq_n_u32(bits, 18);
        const uint32x4_t b = vandq_u32(vshrq_n_u32(bits, 4), vdupq_n_u32(0x3F00));
        const uint32x4_t c = vandq_u32(vshlq_n_u32(bits, 10), vdupq_n_u32(0x3F0000));
        const uint32x4_t d = vandq_u32(vshlq_n_u32(bits, 24), vdupq_n_u32(0x3F000000));
        return vreinterpretq_u8_u32(vorrq_u32(vorrq_u32(a, b), vorrq_u32(c, d)));
    }

    // Characters above 127 are out of both tables' range and keep what they are, which is a stray
    // too.
    static uint8x16_t values_of(Text text)
    {
        const uint8x16_t low = vqtbx4q_u8(text, load_table(kAsciiValues.data()), text);
        return vqtbx4q_u8(low, load_table(kAsciiValues.data() + 64),
                          vsubq_u8(text, vdupq_n_u8(64)));
    }

    static uint8x16_t merged(uint8x16_t values)
    {
        constexpr uint8_t kGather[16] = {2, 1,  0,  6,  5,   4,   10,  9,
                                         8, 14, 13, 12, 255, 255, 255, 255};
        const uint32x4_t lanes = vreinterpretq_u32_u8(values);
        const uint32x4_t a = vshlq_n_u32(vandq_u32(lanes, vdupq_n_u32(0x3F)), 18);
        const uint32x4_t b = vshlq_n_u32(vandq_u32(lanes, vdupq_n_u32(0x3F00)), 4);
        const uint32x4_t c = vshrq_n_u32(vandq_u32(lanes, vdupq_n_u32(0x3F0000)), 10);
        const uint32x4_t d = vshrq_n_u32(lanes, 24);
        const uint32x4_t bits = vorrq_u32(vorrq_u32(a, b), vorrq_u32(c, d));
        return vqtbl1q_u8(vreinterpretq_u8_u32(bits), vld1q_u8(kGather));
    }
};

} // namespace

void encode_run_neon(const uint8_t *in, size_t length, char *out)
{
    encode_run<Block>(in, length, out);
}

void encode_lines_neon(const uint8_t *in, size_t lines, char *out)
{
    encode_lines<Block>(in, lines, out);
}

void decode_clean_neon(Cursor &cursor)
{
    decode_clean<Block>(cursor);
}

} // namespace vn::base64

#endif
