// base64.cpp - base64 for the caller: lines, padding and the rules of loose input. The fast parts
// are in versions.h.
#include "vnlib/base64.h"

#include "base64/versions.h"

namespace vn::base64 {
namespace {

struct Version {
    void (*encode_run)(const uint8_t *in, size_t length, char *out);
    void (*encode_lines)(const uint8_t *in, size_t lines, char *out);
    void (*decode_clean)(Cursor &cursor);
};

// The best version that this processor has.
Version version()
{
#if VN_CPU_X86
    if (cpu::has(cpu::kVbmi)) return {encode_run_vbmi, encode_lines_vbmi, decode_clean_vbmi};
    if (cpu::has(cpu::kAvx2)) return {encode_run_avx2, encode_lines_avx2, decode_clean_avx2};
    if (cpu::has(cpu::kSsse3)) return {encode_run_ssse3, encode_lines_ssse3, decode_clean_ssse3};
#elif VN_CPU_ARM && defined(__aarch64__)
    if (cpu::has(cpu::kNeon)) return {encode_run_neon, encode_lines_neon, decode_clean_neon};
#endif
    return {encode_run_portable, encode_lines_portable, decode_clean_portable};
}

size_t encode(const uint8_t *in, char *out, size_t length, bool wrap)
{
    const Version with = version();
    const size_t lines = wrap ? length / kLineBytes : 0;
    if (lines != 0) with.encode_lines(in, lines, out);
    const size_t lines_size = lines * (kLineSymbols + 1);
    const size_t rest = length - lines * kLineBytes;
    if (rest == 0) return lines_size;

    const size_t symbols = symbols_for(rest);
    with.encode_run(in + lines * kLineBytes, rest, out + lines_size);
    if (!wrap || symbols != kLineSymbols) return lines_size + symbols;
    out[lines_size + kLineSymbols] = '\n'; // padding filled the last line up
    return lines_size + kLineSymbols + 1;
}

// The symbol values of one group.
using Group = std::array<uint8_t, 4>;

void store_group(Cursor &cursor, const Group &group)
{
    const auto [a, b, c, d] = group;
    *cursor.out++ = static_cast<uint8_t>(a << 2 | b >> 4);
    if (c != kPaddingValue) *cursor.out++ = static_cast<uint8_t>((b & 15) << 4 | c >> 2);
    if (d != kPaddingValue) *cursor.out++ = static_cast<uint8_t>((c & 3) << 6 | (d & 63));
}

// Takes one group, skipping what is no symbol; says whether there was one. The text's length is a
// promise that one more character can be read: a last symbol that is missing is taken from there as
// it stands, and callers know the value that a NUL gives.
bool decode_group(Cursor &cursor)
{
    Group group;
    size_t symbols = 0;
    while (symbols < group.size() && cursor.in != cursor.end) {
        group[symbols] = value_of(*cursor.in++);
        if (group[symbols] != kNoSymbol) ++symbols;
    }
    if (symbols < group.size() - 1) return false;
    if (symbols < group.size()) group.back() = value_of(*cursor.end);
    store_group(cursor, group);
    return true;
}

size_t decode(const char *in, uint8_t *out, size_t length)
{
    Cursor cursor{in, in + length, out};
    const auto decode_clean = version().decode_clean;
    do decode_clean(cursor);
    while (decode_group(cursor));
    return static_cast<size_t>(cursor.out - out);
}

} // namespace
} // namespace vn::base64

extern "C" unsigned base64_encode(const uint8_t *in, char *out, unsigned len, bool wrap)
{
    return static_cast<unsigned>(vn::base64::encode(in, out, len, wrap));
}

extern "C" unsigned base64_decode(const char *in, uint8_t *out, unsigned len)
{
    return static_cast<unsigned>(vn::base64::decode(in, out, len));
}
