// texts.h - lists of constant texts without a pointer in them.
//
//     kStarts   | 0 | 16 | 37 | 16 | ...          one 16-bit number a row
//                 |    |
//     kPool     "TEST UNIT READY\0REWIND / REZERO UNIT\0..."
//
// An array of pointers costs a shared library a relocation for each, done at every start of every
// program, in memory that processes then cannot share. Equal texts are kept once. All of it is
// computed by the compiler.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace vn::scsi {

// A text while the compiler works on it. (A string_view does the same in several times the steps,
// and compilers limit those.)
struct Literal {
    const char *characters = "";
    size_t size = 1; // with the NUL

    constexpr Literal() = default;
    template <size_t Size>
    consteval Literal(const char (&text)[Size]) : characters(text), size(Size)
    {
    }
};

consteval bool same_text(const Literal &a, const Literal &b)
{
    if (a.size != b.size) return false;
    for (size_t i = 0; i < a.size; ++i) {
        if (a.characters[i] != b.characters[i]) return false;
    }
    return true;
}

// kRows: a constant array of rows, each with a Literal `text`.
template <const auto &kRows>
consteval auto place_texts()
{
    struct {
        std::array<uint16_t, std::size(kRows)> starts{};
        size_t size = 0;
    } placed;
    for (size_t row = 0; row < std::size(kRows); ++row) {
        size_t same = 0;
        while (kRows[same].text.size != kRows[row].text.size ||
               !same_text(kRows[same].text, kRows[row].text))
            ++same;
        placed.starts[row] = same < row ? placed.starts[same] : static_cast<uint16_t>(placed.size);
        if (same == row) placed.size += kRows[row].text.size;
    }
    return placed;
}

template <const auto &kRows>
inline constexpr auto kStarts = place_texts<kRows>().starts;

template <const auto &kRows>
consteval auto fill_pool()
{
    constexpr size_t kSize = place_texts<kRows>().size;
    static_assert(kSize <= 0x10000, "a start is a 16-bit number");
    std::array<char, kSize> pool{};
    for (size_t row = 0; row < std::size(kRows); ++row) {
        const Literal &text = kRows[row].text;
        for (size_t i = 0; i < text.size; ++i) pool[kStarts<kRows>[row] + i] = text.characters[i];
    }
    return pool;
}

template <const auto &kRows>
inline constexpr auto kPool = fill_pool<kRows>();

template <const auto &kRows>
const char *text_of_row(size_t row)
{
    return &kPool<kRows>[kStarts<kRows>[row]];
}

} // namespace vn::scsi
