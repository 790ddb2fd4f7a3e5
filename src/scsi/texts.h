// texts.h - lists of constant texts without a pointer in them.
//
// An array of pointers costs a shared library a relocation for each, done at every start of every
// program, in memory that processes then cannot share. A list is rows of a code and a Literal in
// ascending order; the last row answers for every code without one. The compiler makes of it either
// form:
//
//     for speed   kNumbers  | 0 | 1 | 2 | 1 | ...    each code's text, by its number
//                 kStarts   | 0 | 16 | 37 | ...      where each text starts
//                             |    |
//                 kPool     "TEST UNIT READY\0REWIND / REZERO UNIT\0..."
//
//     for size    kMarked   "TEST UNIT READY\0REWIND / REZERO UNIT\0"<gap of 1>"REQUEST SENSE..."
//                 kPlaces   | 0, 0 | 6, 107 | ...    code and offset of every sixth text or mark
//
// The latter is walked from the nearest place: a text takes the code after the one before it, and
// marks between the texts tell where it does not.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string>

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

// ---- for speed: texts by their number ----

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

template <const auto &kRows>
consteval auto find_starts()
{
    static_assert(pool_size<kRows>() <= 0x10000, "a start is a 16-bit number");
    std::array<uint16_t, std::size(kRows)> starts{};
    size_t number = 0;
    size_t size = 0;
    for (const auto &row : kRows) {
        starts[number++] = static_cast<uint16_t>(size);
        size += row.text.size;
    }
    return starts;
}

template <const auto &kRows>
inline constexpr auto kPool = fill_pool<kRows>();
template <const auto &kRows>
inline constexpr auto kStarts = find_starts<kRows>();

template <const auto &kRows>
const char *text_by_number(size_t number)
{
    return &kPool<kRows>[kStarts<kRows>[number]];
}

// ---- for speed: rows many of which have the same text ----

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

// The rows' codes are 0, 1, 2 and so on.
template <const auto &kRows>
const char *text_by_code(size_t code)
{
    const size_t row = std::min(code, std::size(kRows) - 1);
    return text_by_number<kDistinct<kRows>>(kNumbers<kRows>[row]);
}

// ---- for size: texts to be walked ----

// No text begins with a mark: for as many codes there is no text, or still the last one.
constexpr unsigned kGap = 0x00;       // + 1 to 15
constexpr unsigned kRepeat = 0x10;    // + 1 to 15
constexpr unsigned kGapToPage = 0x10; // as many as are left until the low byte of the code is 0
constexpr unsigned kLongestMark = 15;

// Steps over a text or a mark and returns the code of what follows.
constexpr unsigned step(const char *&place, unsigned code)
{
    const auto mark = static_cast<unsigned char>(*place);
    if (mark >= ' ') {
        place += std::char_traits<char>::length(place) + 1;
        return code + 1;
    }
    ++place;
    return mark == kGapToPage ? (code | 0xFF) + 1 : code + (mark & kLongestMark);
}

// Where a text or a mark begins, and the code of it.
struct Place {
    uint16_t code;
    uint16_t offset;
};

// The first place has code 0, the last one the text that answers for every code without one.
inline const char *walk(const char *list, std::span<const Place> places, unsigned code)
{
    const auto behind =
        std::upper_bound(places.begin(), places.end(), code,
                         [](unsigned wanted, const Place &place) { return wanted < place.code; });
    const char *const last = list + places.back().offset;
    const char *place = list + behind[-1].offset;
    unsigned at = behind[-1].code;
    const char *text = last;
    while (place != last) {
        const auto mark = static_cast<unsigned char>(*place);
        if (mark <= kGapToPage) text = last;
        if (mark >= ' ') text = place;
        at = step(place, at);
        if (code < at) return text;
    }
    return last;
}

template <const auto &kRows>
consteval bool no_text_begins_with_a_mark()
{
    for (const auto &row : kRows) {
        if (static_cast<unsigned char>(row.text.characters[0]) < ' ') return false;
    }
    return true;
}

// What `generate` puts, as an array. It is run twice: to count, and to fill.
template <typename Element, typename Generate>
consteval auto collected(Generate generate)
{
    constexpr size_t kCount = [] {
        size_t count = 0;
        Generate{}([&](const Element &) { ++count; });
        return count;
    }();
    std::array<Element, kCount> all{};
    size_t count = 0;
    generate([&](const Element &element) { all[count++] = element; });
    return all;
}

// Calls `put` with each character of the marked texts.
template <const auto &kRows, typename Put>
constexpr void put_marked(Put put)
{
    static_assert(no_text_begins_with_a_mark<kRows>());
    const auto put_text = [&](const Literal &text) {
        for (size_t i = 0; i < text.size; ++i) put(text.characters[i]);
    };
    unsigned at = 0;
    const auto put_marks = [&](unsigned mark, unsigned until) {
        while (at != until) {
            const unsigned count = std::min(until - at, kLongestMark);
            put(static_cast<char>(mark + count));
            at += count;
        }
    };
    const Literal &otherwise = kRows[std::size(kRows) - 1].text;
    const Literal *last = nullptr;
    unsigned last_until = 0;
    for (const auto &row : kRows) {
        if (same_text(row.text, otherwise)) continue;
        if (row.code == last_until && last != nullptr && same_text(row.text, *last)) {
            ++last_until;
            continue;
        }
        put_marks(kRepeat, last_until);
        for (; at / 0x100 != row.code / 0x100; at = (at | 0xFF) + 1)
            put(static_cast<char>(kGapToPage));
        put_marks(kGap, row.code);
        put_text(row.text);
        last = &row.text;
        last_until = ++at;
    }
    put_marks(kRepeat, last_until);
    put_text(otherwise);
}

template <const auto &kRows>
inline constexpr auto kMarked = collected<char>([](auto put) { put_marked<kRows>(put); });

// Calls `put` with the places to begin at. None is in a run of one text, which would be missed.
template <const auto &kRows, typename Put>
constexpr void put_places(Put put)
{
    static_assert(kMarked<kRows>.size() <= 0x10000, "an offset is a 16-bit number");
    constexpr int kSteps = 6;
    constexpr size_t kLast = kMarked<kRows>.size() - std::end(kRows)[-1].text.size;
    const char *const list = kMarked<kRows>.data();
    const char *place = list;
    unsigned code = 0;
    int steps_left = 0;
    const auto put_place = [&] {
        put({static_cast<uint16_t>(code), static_cast<uint16_t>(place - list)});
    };
    while (place != list + kLast) {
        const auto mark = static_cast<unsigned char>(*place);
        if (steps_left <= 0 && (mark <= kGapToPage || mark >= ' ')) {
            put_place();
            steps_left = kSteps;
        }
        code = step(place, code);
        --steps_left;
    }
    put_place();
}

template <const auto &kRows>
inline constexpr auto kPlaces = collected<Place>([](auto put) { put_places<kRows>(put); });

template <const auto &kRows>
const char *walk_to(unsigned code)
{
    return walk(kMarked<kRows>.data(), kPlaces<kRows>, code);
}

} // namespace vn::scsi
