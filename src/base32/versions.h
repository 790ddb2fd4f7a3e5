// versions.h - base32 for particular processors, and the alphabet and sizes for all.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/characters.h"
#include "support/cpu.h"

namespace vn::base32 {

constexpr std::string_view kAlphabet = "0123456789ABCDEFGHJKMNPQRSTVWXYZ";
constexpr size_t kBlockBytes = 20;
constexpr size_t kBlockSymbols = 32;

constexpr CharacterRun kRuns[] = {{'0', '9', 0},  {'A', 'H', 10}, {'J', 'K', 18}, {'M', 'N', 20},
                                  {'P', 'T', 22}, {'V', 'Z', 27}, {'U', 'U', 27}, {'I', 'I', 1},
                                  {'L', 'L', 1},  {'O', 'O', 0}};

// Characters outside the alphabet and its aliases count as 0.
constexpr uint8_t value_by_comparing(char c)
{
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - ('a' - 'A'));
    return value_among(kRuns, c, 0);
}

// The value of every character.
consteval std::array<uint8_t, 256> reverse_table()
{
    std::array<uint8_t, 256> values{};
    for (size_t c = 0; c < values.size(); ++c) values[c] = value_by_comparing(static_cast<char>(c));
    return values;
}
inline constexpr auto kValues = reverse_table();
static_assert(kValues['U'] == kValues['V'] && kValues['z'] == 31 && kValues['-'] == 0);

consteval bool alphabet_has_its_values()
{
    for (size_t value = 0; value < kAlphabet.size(); ++value) {
        if (value_by_comparing(kAlphabet[value]) != value) return false;
    }
    return true;
}
static_assert(alphabet_has_its_values());

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
