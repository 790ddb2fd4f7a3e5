// base32.cpp - base32 from the low end of the bits, eight symbols for five bytes.
//
//     byte      0        1        2        3        4
//     bits   76543210 76543210 76543210 76543210 76543210
//     symbol 11100000 43222221 66655544 77777666 ...        (each takes its bits from the right)
//
// Five bytes, loaded as a little-endian number, hold symbol k in bits 5k to 5k + 4, so a group is
// eight shifts of one 64-bit number; what is left at the end is a group with fewer symbols.
#include "vnlib/base32.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "support/bytes.h"

namespace vn::base32 {
namespace {

constexpr int kDryRun = 1;
constexpr int kChecked = 3;
constexpr int kDecoded = 7; // the result of every successful decoding, whatever its length

constexpr unsigned kSymbolBits = 5;
constexpr uint64_t kSymbolMask = 31;
constexpr size_t kGroupSymbols = 8;
constexpr size_t kGroupBytes = 5;

constexpr std::string_view kAlphabet = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";

// The value of every character; those outside the alphabet and its aliases count as 0.
consteval std::array<uint8_t, 256> reverse_table()
{
    std::array<uint8_t, 256> values{};
    const auto define = [&values](char symbol, uint8_t value) {
        values[static_cast<uint8_t>(symbol)] = value;
        if (symbol >= 'A') values[static_cast<uint8_t>(symbol + ('a' - 'A'))] = value;
    };
    for (uint8_t value = 0; value < kAlphabet.size(); ++value) define(kAlphabet[value], value);
    define('O', 0);
    define('I', 1);
    define('L', 1);
    define('U', 27);
    return values;
}
constexpr auto kValues = reverse_table();
static_assert(kValues['U'] == kValues['V'] && kValues['z'] == 31 && kValues['-'] == 0);

uint8_t value_of(char symbol)
{
    return kValues[static_cast<uint8_t>(symbol)];
}

constexpr uint64_t symbols_for(uint64_t bytes)
{
    return (bytes * 8 + kSymbolBits - 1) / kSymbolBits;
}

constexpr size_t bytes_touched_by(size_t symbols)
{
    return symbols / kGroupSymbols * kGroupBytes + (symbols % kGroupSymbols * kSymbolBits + 7) / 8;
}

// A group of `bytes` bytes, at most five, as a number; absent bytes are zero.
uint64_t load_group(const uint8_t *in, size_t bytes)
{
    uint8_t group[8] = {};
    std::memcpy(group, in, bytes);
    return bytes::load_little<uint64_t>(group);
}

void store_group(uint8_t *out, uint64_t group, size_t bytes)
{
    uint8_t stored[8];
    bytes::store_little(stored, group);
    std::memcpy(out, stored, bytes);
}

// Writes the low `symbols` symbols of `group` and returns the sum of their values.
inline unsigned write_symbols(char *out, uint64_t group, size_t symbols)
{
    unsigned sum = 0;
    for (size_t k = 0; k < symbols; ++k, group >>= kSymbolBits) {
        out[k] = kAlphabet[group & kSymbolMask];
        sum += static_cast<unsigned>(group & kSymbolMask);
    }
    return sum;
}

struct Symbols {
    uint64_t group = 0;
    unsigned sum = 0;
};

inline Symbols read_symbols(const char *in, size_t symbols)
{
    Symbols read;
    for (size_t k = 0; k < symbols; ++k) {
        const uint64_t value = value_of(in[k]);
        read.group |= value << (k * kSymbolBits);
        read.sum += static_cast<unsigned>(value);
    }
    return read;
}

// Writes `symbols` symbols for the data at `in` and returns the sum of their values. A cut text
// does not need all bytes; bytes that are needed only in part are there.
unsigned encode(const uint8_t *in, char *out, size_t symbols, size_t bytes)
{
    unsigned sum = 0;
    for (; symbols >= kGroupSymbols; symbols -= kGroupSymbols) {
        sum += write_symbols(out, load_group(in, kGroupBytes), kGroupSymbols);
        in += kGroupBytes;
        out += kGroupSymbols;
        bytes -= kGroupBytes;
    }
    if (symbols == 0) return sum;
    return sum + write_symbols(out, load_group(in, std::min(bytes, kGroupBytes)), symbols);
}

// Stores the bits of `symbols` symbols and returns the sum of their values.
unsigned decode(const char *in, uint8_t *out, size_t symbols)
{
    unsigned sum = 0;
    for (; symbols >= kGroupSymbols; symbols -= kGroupSymbols) {
        const Symbols read = read_symbols(in, kGroupSymbols);
        store_group(out, read.group, kGroupBytes);
        sum += read.sum;
        in += kGroupSymbols;
        out += kGroupBytes;
    }
    const Symbols rest = read_symbols(in, symbols);
    store_group(out, rest.group, bytes_touched_by(symbols));
    return sum + rest.sum;
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
