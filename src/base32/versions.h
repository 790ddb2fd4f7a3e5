// versions.h - base32 for particular processors, and the alphabet and sizes for all.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/cpu.h"

namespace vn::base32 {

constexpr std::string_view kAlphabet = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";
constexpr size_t kBlockBytes = 20;
constexpr size_t kBlockSymbols = 32;

// The value of every character; those outside the alphabet and its aliases count as 0.
consteval std::array<uint8_t, 256> reverse_table()
{
    std::array<uint8_t, 256> values{};
    const auto define = [&values](char symbol, size_t value) {
        values[static_cast<uint8_t>(symbol)] = static_cast<uint8_t>(value);
        if (symbol >= 'A')
            values[static_cast<uint8_t>(symbol + ('a' - 'A'))] = static_cast<uint8_t>(value);
    };
    for (size_t value = 0; value < kAlphabet.size(); ++value) define(kAlphabet[value], value);
    define('O', 0);
    define('I', 1);
    define('L', 1);
    define('U', 27);
    return values;
}
inline constexpr auto kValues = reverse_table();
static_assert(kValues['U'] == kValues['V'] && kValues['z'] == 31 && kValues['-'] == 0);

constexpr uint8_t value_of(char c)
{
    return kValues[static_cast<uint8_t>(c)];
}

constexpr size_t kGroupSymbols = 8;
constexpr size_t kGroupBytes = 5;

constexpr size_t bytes_touched_by(size_t symbols)
{
    return symbols / kGroupSymbols * kGroupBytes + (symbols % kGroupSymbols * 5 + 7) / 8;
}

#if VN_CPU_X86
// Each converts the whole text and returns the sum of its symbols' values. Of the `bytes` bytes no
// more are read than the symbols need; the last symbol may reach beyond them.
unsigned encode_vbmi(const uint8_t *in, char *out, size_t symbols, size_t bytes);
unsigned decode_vbmi(const char *in, uint8_t *out, size_t symbols);

// Each converts `blocks` blocks and returns the sum of their symbols' values.
unsigned encode_blocks_avx2(const uint8_t *in, char *out, size_t blocks);
unsigned decode_blocks_avx2(const char *in, uint8_t *out, size_t blocks);
#endif

} // namespace vn::base32
