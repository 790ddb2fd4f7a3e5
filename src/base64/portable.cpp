// portable.cpp - base64 group by group: three bytes are four symbols.
#include "base64/versions.h"

namespace vn::base64 {
namespace {

constexpr size_t kGroupBytes = 3;
constexpr size_t kGroupSymbols = 4;

inline char symbol(uint32_t bits)
{
    return kAlphabet[bits & 63];
}

inline void encode_group(const uint8_t *in, char *out)
{
    const uint32_t bits = uint32_t{in[0]} << 16 | uint32_t{in[1]} << 8 | in[2];
    out[0] = symbol(bits >> 18);
    out[1] = symbol(bits >> 12);
    out[2] = symbol(bits >> 6);
    out[3] = symbol(bits);
}

// The last group, with `bytes` bytes, one or two: its symbols are those of the bytes with zeros
// after them, and padding takes the place of the symbols that are all filled up.
void encode_last_group(const uint8_t *in, size_t bytes, char *out)
{
    const uint8_t filled[kGroupBytes] = {in[0], bytes == 2 ? in[1] : uint8_t{0}, 0};
    encode_group(filled, out);
    out[3] = kPadding;
    if (bytes == 1) out[2] = kPadding;
}

} // namespace

void encode_run_portable(const uint8_t *in, size_t length, char *out)
{
    for (; length >= kGroupBytes; length -= kGroupBytes, in += kGroupBytes, out += kGroupSymbols)
        encode_group(in, out);
    if (length != 0) encode_last_group(in, length, out);
}

void encode_lines_portable(const uint8_t *in, size_t lines, char *out)
{
    for (; lines != 0; --lines, in += kLineBytes, out += kLineSymbols + 1) {
        encode_run_portable(in, kLineBytes, out);
        out[kLineSymbols] = '\n';
    }
}

void decode_clean_portable(Cursor &cursor)
{
    for (; cursor.left() >= kGroupSymbols; cursor.in += kGroupSymbols, cursor.out += kGroupBytes) {
        const uint32_t a = value_of(cursor.in[0]);
        const uint32_t b = value_of(cursor.in[1]);
        const uint32_t c = value_of(cursor.in[2]);
        const uint32_t d = value_of(cursor.in[3]);
        if ((a | b | c | d) >= kAlphabet.size()) return;
        const uint32_t bits = a << 18 | b << 12 | c << 6 | d;
        cursor.out[0] = static_cast<uint8_t>(bits >> 16);
        cursor.out[1] = static_cast<uint8_t>(bits >> 8);
        cursor.out[2] = static_cast<uint8_t>(bits);
    }
}

} // namespace vn::base64
