// base32.cpp - base32 from the low end of the bits, eight symbols for five bytes.
//
//     byte      0        1        2        3        4
//     bits   76543210 76543210 76543210 76543210 76543210
//     symbol 11100000 43222221 66655544 77777666 ...        (each takes its bits from the right)
//
// Five bytes, loaded as a little-endian number, hold symbol k in bits 5k to 5k + 4. A group is
// spread over, or gathered from, the eight bytes of a 64-bit number; what is left at the end is a
// group with fewer symbols.
#include "vnlib/base32.h"

#include <algorithm>
#include <cstring>

#include "base32/versions.h"
#include "support/bytes.h"

namespace vn::base32 {
namespace {

constexpr int kDryRun = 1;
constexpr int kChecked = 3;
constexpr int kDecoded = 7; // the result of every successful decoding, whatever its length

constexpr unsigned kSymbolBits = 5;
constexpr unsigned kSymbolMask = 31;

// Whole groups first: divisions of 32 bits are cheap everywhere.
constexpr uint64_t symbols_for(uint32_t bytes)
{
    constexpr uint32_t kBytes = kGroupBytes;
    const uint32_t rest_bits = bytes % kBytes * 8;
    return uint64_t{bytes / kBytes} * kGroupSymbols + (rest_bits + kSymbolBits - 1) / kSymbolBits;
}
static_assert(symbols_for(0) == 0 && symbols_for(4) == 7 && symbols_for(5) == 8);
static_assert(symbols_for(UINT32_MAX) == UINT64_C(6871947672));

// The same byte eight times.
constexpr uint64_t all(uint64_t byte)
{
    return byte * 0x0101'0101'0101'0101;
}

// Eight values of five bits, one after the other, to the bytes of a number: halves move apart, then
// the halves of the halves.
constexpr uint64_t spread(uint64_t bits)
{
    bits = (bits & 0xFFFFF) | (bits & 0xFFFFF'00000) << 12;
    bits = (bits & 0x3FF'0000'03FF) | (bits & 0xFFC00'000F'FC00) << 6;
    return (bits & 0x001F'001F'001F'001F) | (bits & 0x03E0'03E0'03E0'03E0) << 3;
}

constexpr uint64_t gathered(uint64_t values)
{
    values = (values & 0x001F'001F'001F'001F) | (values & 0x1F00'1F00'1F00'1F00) >> 3;
    values = (values & 0x3FF'0000'03FF) | (values & 0x3FF'0000'03FF'0000) >> 6;
    return (values & 0xFFFFF) | (values & 0xFFFFF'0000'0000) >> 12;
}
static_assert(spread(0x98'7654'3210) == 0x13'01'1B'05'08'0C'10'10);
static_assert(gathered(spread(0x98'7654'3210)) == 0x98'7654'3210);

// A one in each byte of `values` that is `limit` or more; none is above 127.
constexpr uint64_t reaching(uint64_t values, uint8_t limit)
{
    return (values + all(0x80u - limit)) >> 7 & all(1);
}

// The symbols of eight values: the alphabet rises by one from value to value, but for the step from
// the digits to the letters and the four letters that it leaves out.
constexpr uint64_t symbols_of(uint64_t values)
{
    return values + all('0') + reaching(values, 10) * ('A' - '9' - 1) + reaching(values, 18) +
           reaching(values, 20) + reaching(values, 22) + reaching(values, 27);
}
static_assert(symbols_of(0x1F'12'11'0A'09'02'01'00) == 0x5A'4A'48'41'39'32'31'30);

// Only the low byte of the sum of all eight is asked for.
constexpr unsigned sum_of(uint64_t values)
{
    return static_cast<unsigned>(values * all(1) >> 56);
}

uint64_t load_group(const uint8_t *in)
{
    return bytes::load_little<uint32_t>(in) | uint64_t{in[4]} << 32;
}

void store_group(uint8_t *out, uint64_t group)
{
    bytes::store_little(out, static_cast<uint32_t>(group));
    out[4] = static_cast<uint8_t>(group >> 32);
}

uint32_t four_values_at(const char *in)
{
    const auto value = [in](size_t k) { return uint32_t{value_of(in[k])}; };
    return value(0) | value(1) << 8 | value(2) << 16 | value(3) << 24;
}

// In halves, for processors with registers of 32 bits.
uint64_t values_at(const char *in)
{
    return four_values_at(in) | uint64_t{four_values_at(in + 4)} << 32;
}

// Writes `symbols` symbols, fewer than eight, of the `bytes` bytes that are left, and returns the
// sum of their values. All goes through registers: what is stored byte by byte cannot be loaded
// again as a number without waiting for it.
unsigned encode_rest(const uint8_t *in, char *out, size_t symbols, size_t bytes)
{
    uint64_t group = 0;
    for (size_t i = std::min(bytes, kGroupBytes); i != 0; --i) group = group << 8 | in[i - 1];
    const uint64_t unused = ~uint64_t{0} << (8 * symbols);
    const uint64_t values = spread(group) & ~unused;
    uint64_t text = symbols_of(values);
    for (; symbols != 0; --symbols, text >>= 8) *out++ = static_cast<char>(text & 0xFF);
    return sum_of(values);
}

unsigned decode_rest(const char *in, uint8_t *out, size_t symbols)
{
    uint64_t values = 0;
    for (size_t k = symbols; k != 0; --k) values = values << 8 | value_of(in[k - 1]);
    uint64_t group = gathered(values);
    for (size_t i = bytes_touched_by(symbols); i != 0; --i, group >>= 8)
        *out++ = static_cast<uint8_t>(group);
    return sum_of(values);
}

// How many whole blocks a version for this processor is to convert first.
size_t fast_blocks([[maybe_unused]] size_t symbols)
{
#if VN_CPU_X86
    if (cpu::has(cpu::kAvx2)) return symbols / kBlockSymbols;
#endif
    return 0;
}

unsigned encode_blocks([[maybe_unused]] const uint8_t *in, [[maybe_unused]] char *out,
                       [[maybe_unused]] size_t blocks)
{
#if VN_CPU_X86
    if (blocks != 0) return encode_blocks_avx2(in, out, blocks);
#endif
    return 0;
}

unsigned decode_blocks([[maybe_unused]] const char *in, [[maybe_unused]] uint8_t *out,
                       [[maybe_unused]] size_t blocks)
{
#if VN_CPU_X86
    if (blocks != 0) return decode_blocks_avx2(in, out, blocks);
#endif
    return 0;
}

// Out of line, so that they cost the fast path no registers.
[[gnu::noinline]] unsigned encode_groups(const uint8_t *in, char *out, size_t symbols, size_t bytes)
{
    const size_t blocks = fast_blocks(symbols);
    unsigned sum = encode_blocks(in, out, blocks);
    in += blocks * kBlockBytes;
    bytes -= blocks * kBlockBytes;
    out += blocks * kBlockSymbols;
    symbols -= blocks * kBlockSymbols;
    for (; symbols >= kGroupSymbols; symbols -= kGroupSymbols) {
        const uint64_t values = spread(load_group(in));
        bytes::store_little(reinterpret_cast<uint8_t *>(out), symbols_of(values));
        sum += sum_of(values);
        in += kGroupBytes;
        out += kGroupSymbols;
        bytes -= kGroupBytes;
    }
    return symbols == 0 ? sum : sum + encode_rest(in, out, symbols, bytes);
}

[[gnu::noinline]] unsigned decode_groups(const char *in, uint8_t *out, size_t symbols)
{
    const size_t blocks = fast_blocks(symbols);
    unsigned sum = decode_blocks(in, out, blocks);
    in += blocks * kBlockSymbols;
    symbols -= blocks * kBlockSymbols;
    out += blocks * kBlockBytes;
    for (; symbols >= kGroupSymbols; symbols -= kGroupSymbols) {
        const uint64_t values = values_at(in);
        store_group(out, gathered(values));
        sum += sum_of(values);
        in += kGroupSymbols;
        out += kGroupBytes;
    }
    return symbols == 0 ? sum : sum + decode_rest(in, out, symbols);
}

// ---- the best way here ----

// Writes `symbols` symbols for the data at `in` and returns the sum of their values. A cut text
// does not need all bytes; bytes that are needed only in part are there.
unsigned encode(const uint8_t *in, char *out, size_t symbols, size_t bytes)
{
#if VN_CPU_X86
    if (cpu::has(cpu::kVbmi)) return encode_vbmi(in, out, symbols, bytes);
#endif
    return encode_groups(in, out, symbols, bytes);
}

// Stores the bits of `symbols` symbols and returns the sum of their values.
unsigned decode(const char *in, uint8_t *out, size_t symbols)
{
#if VN_CPU_X86
    if (cpu::has(cpu::kVbmi)) return decode_vbmi(in, out, symbols);
#endif
    return decode_groups(in, out, symbols);
}

} // namespace
} // namespace vn::base32

using namespace vn::base32;

extern "C" unsigned base32_encode(const uint8_t *in, unsigned len, char *out, unsigned out_size,
                                  int mode)
{
    if (out_size < 2) {
        if (out_size == 1) out[0] = '\0';
        return 0;
    }
    const auto symbols = static_cast<size_t>(std::min<uint64_t>(symbols_for(len), out_size - 2));
    unsigned sum = 0;
    if (mode == kDryRun)
        std::memset(out, 0, symbols);
    else
        sum = encode(in, out, symbols, len);
    char *end = out + symbols;
    if (mode == kChecked) *end++ = kAlphabet[sum & kSymbolMask];
    *end = '\0';
    return static_cast<unsigned>(end - out);
}

extern "C" int base32_decode(const char *in, uint8_t *out, int mode)
{
    const size_t length = std::strlen(in);
    const size_t symbols = length == 0 ? 0 : length - 1;
    out[0] = 0;
    if (mode == kDryRun) {
        std::memset(out, 0, bytes_touched_by(symbols));
        return kDecoded;
    }
    const unsigned sum = decode(in, out, symbols);
    if (mode == kChecked && value_of(in[symbols]) != (sum & kSymbolMask)) return -1;
    return kDecoded;
}
