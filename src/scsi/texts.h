// texts.h - lists of constant texts without a pointer in them.
//
//     kNumbers  | 0 | 1 | 2 | 1 | ...             a row's text, by its number
//     kStarts   | 0 | 16 | 37 | ...               where each text, or each fourth, starts
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
#include <cstring>
#include <iterator>

#include "support/small.h"

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

constexpr bool same_text(const Literal &a, const Literal &b)
{
    if (a.size != b.size) return false;
    for (size_t i = 0; i < a.size; ++i) {
        if (a.characters[i] != b.characters[i]) return false;
    }
    return true;
}

// ---- texts by their number: kRows is a constant array of rows, each with a Literal `text` ----

template <const auto &kRows>
consteval size_t pool_size()
{
    size_t size = 0;
    for (const auto &row : kRows) size += row.text.size;
    return size;
}

template <const auto &kRows>
consteval auto fill_pool()
{
    std::array<char, pool_size<kRows>()> pool{};
    size_t size = 0;
    for (const auto &row : kRows) {
        for (size_t i = 0; i < row.text.size; ++i) pool[size++] = row.text.characters[i];
    }
    return pool;
}

// Where each `kStride`th text starts. Those between are reached by skipping texts, so that a small
// build has fewer starts to keep.
template <const auto &kRows, size_t kStride>
consteval auto find_starts()
{
    static_assert(pool_size<kRows>() <= 0x10000, "a start is a 16-bit number");
    std::array<uint16_t, (std::size(kRows) + kStride - 1) / kStride> starts{};
    size_t number = 0;
    size_t size = 0;
    for (const auto &row : kRows) {
        if (number % kStride == 0) starts[number / kStride] = static_cast<uint16_t>(size);
        size += row.text.size;
        ++number;
    }
    return starts;
}

template <const auto &kRows>
inline constexpr auto kPool = fill_pool<kRows>();
template <const auto &kRows, size_t kStride>
inline constexpr auto kStarts = find_starts<kRows, kStride>();

inline const char *skip_texts(const char *text, size_t count)
{
    for (; count != 0; --count) text += strlen(text) + 1;
    return text;
}

template <const auto &kRows, size_t kStride = kSmall ? 4 : 1>
const char *text_by_number(size_t number)
{
    const size_t start = kStarts<kRows, kStride>[number / kStride];
    return skip_texts(&kPool<kRows>[start], number % kStride);
}

// ---- rows many of which have the same text ----

template <const auto &kRows>
constexpr size_t first_like(size_t row)
{
    size_t same = 0;
    while (!same_text(kRows[same].text, kRows[row].text)) ++same;
    return same;
}

template <const auto &kRows>
consteval size_t count_distinct()
{
    size_t count = 0;
    for (size_t row = 0; row < std::size(kRows); ++row) count += first_like<kRows>(row) == row;
    return count;
}

struct DistinctText {
    Literal text;
};

template <const auto &kRows>
consteval auto number_texts()
{
    constexpr size_t kCount = count_distinct<kRows>();
    static_assert(kCount <= 0x100, "a number is an 8-bit number");
    struct {
        std::array<uint8_t, std::size(kRows)> numbers{};
        std::array<DistinctText, kCount> texts{};
    } numbered;
    size_t count = 0;
    for (size_t row = 0; row < std::size(kRows); ++row) {
        const size_t first = first_like<kRows>(row);
        numbered.numbers[row] =
            first == row ? static_cast<uint8_t>(count) : numbered.numbers[first];
        if (first == row) numbered.texts[count++] = {kRows[row].text};
    }
    return numbered;
}

template <const auto &kRows>
inline constexpr auto kNumbers = number_texts<kRows>().numbers;
template <const auto &kRows>
inline constexpr auto kDistinct = number_texts<kRows>().texts;

template <const auto &kRows>
const char *text_of_row(size_t row)
{
    return text_by_number<kDistinct<kRows>>(kNumbers<kRows>[row]);
}

} // namespace vn::scsi
