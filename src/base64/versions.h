// versions.h - what a version of base64 for a particular processor provides, and what all share.
//
// Encoding: encode_run() makes one run of characters with its padding, encode_lines() makes whole
// lines, each 48 bytes in and 64 characters and a line feed out.
//
// Decoding: decode_clean() takes blocks of symbols as long as it can: it may step over characters
// that are no symbols, but leaves "=", the input's end and whatever else is rare to decode_group(),
// which takes exactly one group of four symbols, symbol by symbol. Between two calls the cursor
// always stands between two groups.
//
// No version reads or writes a byte beyond what the text and its data occupy.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/cpu.h"

namespace vn::base64 {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kPadding = '=';
constexpr size_t kLineBytes = 48;
constexpr size_t kLineSymbols = 64;

constexpr uint8_t kNoSymbol = 126;
constexpr uint8_t kPaddingValue = 127;

consteval std::array<uint8_t, 256> reverse_table()
{
    std::array<uint8_t, 256> values{};
    values.fill(kNoSymbol);
    for (size_t value = 0; value < kAlphabet.size(); ++value)
        values[static_cast<uint8_t>(kAlphabet[value])] = static_cast<uint8_t>(value);
    values[static_cast<uint8_t>(kPadding)] = kPaddingValue;
    return values;
}
inline constexpr auto kValues = reverse_table();

constexpr uint8_t value_of(char c)
{
    return kValues[static_cast<uint8_t>(c)];
}

constexpr size_t symbols_for(size_t bytes)
{
    return (bytes + 2) / 3 * 4;
}

// Where a decoding stands: the text not read yet, and the place for the next byte.
struct Cursor {
    const char *in;
    const char *end;
    uint8_t *out;
    [[nodiscard]] size_t left() const { return static_cast<size_t>(end - in); }
};

void encode_run_portable(const uint8_t *in, size_t length, char *out);
void encode_lines_portable(const uint8_t *in, size_t lines, char *out);
void decode_clean_portable(Cursor &cursor);

#if VN_CPU_X86
void encode_run_ssse3(const uint8_t *in, size_t length, char *out);
void encode_lines_ssse3(const uint8_t *in, size_t lines, char *out);
void decode_clean_ssse3(Cursor &cursor);

void encode_run_avx2(const uint8_t *in, size_t length, char *out);
void encode_lines_avx2(const uint8_t *in, size_t lines, char *out);
void decode_clean_avx2(Cursor &cursor);

void encode_run_vbmi(const uint8_t *in, size_t length, char *out);
void encode_lines_vbmi(const uint8_t *in, size_t lines, char *out);
void decode_clean_vbmi(Cursor &cursor);
#elif VN_CPU_ARM && defined(__aarch64__)
void encode_run_neon(const uint8_t *in, size_t length, char *out);
void encode_lines_neon(const uint8_t *in, size_t lines, char *out);
void decode_clean_neon(Cursor &cursor);
#endif

} // namespace vn::base64
