// vnstrings.cpp - formatted, growing and escaped strings in tracked blocks; hex text, truth values.
//
// A growable string lives in one tracked block that the caller's pointer names:
//
//     char *text ---> | t | e | x | t | \0 |
//
// Invariant: whoever fails to grow it releases the block and clears the pointer, so that after a
//            negative result there is nothing left to release and nothing left to read.
// Beware:    the site names and lines given to the tracker appear on the memory debugger's screen
//            and in its messages; they stay the same when lines of this file move.
// Limit:     lengths are returned as int, so no text may grow beyond INT_MAX characters.
#include "vnlib/vnstrings.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string_view>
#include <strings.h>

#if defined __SSE2__
#include <emmintrin.h>
#endif

#include "support/small.h"
#include "vnlib/memcheck.h"

namespace vn::vnstrings {
namespace {

constexpr int kFailed = -1;

// Texts are searched in blocks of 16 bytes where the processor compares that many at a time.
#if defined __SSE2__ && !defined __OPTIMIZE_SIZE__ && !defined VNLIB_PORTABLE_ONLY
#define VN_BLOCKS
constexpr size_t kBlock = sizeof(__m128i);
#else
constexpr size_t kBlock = 1;
#endif
constexpr bool kHasBlocks = kBlock > 1;

// A text formatted for a block that does not exist yet: measured always, and kept where it is short
// (most are), so that the arguments need not be walked a second time.
class Formatted {
public:
    VN_PRINTF(2, 0) Formatted(const char *format, va_list args) : errno_(errno), format_(format)
    {
        va_list first;
        va_copy(first, args);
        length_ = format == nullptr ? kFailed : vsnprintf(kept_, sizeof kept_, format, first);
        va_end(first);
    }
    [[nodiscard]] bool ok() const { return length_ >= 0; }
    [[nodiscard]] size_t size() const { return static_cast<size_t>(length_) + 1; } // with its NUL

    // `target` has room for size() bytes, `args` are those of the constructor.
    int write(char *target, va_list args) const
    {
        if (size() <= sizeof kept_) {
            memcpy(target, kept_, size());
            return length_;
        }
        errno = errno_; // a %m must not change its length because an allocation came between
        return vsnprintf(target, size(), format_, args);
    }

private:
    const int errno_;
    const char *const format_;
    int length_;
    char kept_[2048];
};

int lose(char **str)
{
    vn_memcheck_free(vn_free, *str, "vnstrings:43");
    *str = nullptr;
    return kFailed;
}

// Makes the block of *str `length + more` bytes large, or loses the string.
bool grow(char **str, size_t length, size_t more)
{
    size_t size = 0;
    void *grown = nullptr;
    if (!__builtin_add_overflow(length, more, &size))
        grown = vn_memcheck_realloc(*str, size, "vn_vaasprintf", 43);
    if (grown == nullptr) {
        lose(str);
        return false;
    }
    *str = static_cast<char *>(grown);
    return true;
}

char *copy_of_tail(const char *tail)
{
    const size_t size = strlen(tail) + 1;
    void *copy = vn_memcheck_malloc(malloc, size, "replace_char", 166);
    return copy == nullptr ? nullptr : static_cast<char *>(memcpy(copy, tail, size));
}

struct Escape {
    char plain;
    uint8_t size;
    char characters[sizeof "&quot;"] = {}; // in place: pointers would be relocated

    template <size_t Size>
    consteval Escape(char c, const char (&escaped)[Size]) : plain(c), size(Size - 1)
    {
        std::copy_n(escaped, Size, characters);
    }
    [[nodiscard]] std::string_view text() const { return {characters, size}; }
    [[nodiscard]] constexpr uint8_t growth() const { return static_cast<uint8_t>(size - 1); }
};

// Which characters a text is searched for, and what they become.
class EscapeTable {
public:
    consteval explicit EscapeTable(std::span<const Escape> escapes) : escapes_(escapes)
    {
        if constexpr (!kSmall) {
            for (const Escape &escape : escapes)
                growth_[static_cast<unsigned char>(escape.plain)] = escape.growth();
        }
        for (size_t i = 0; i < plain_.size(); ++i)
            plain_[i].fill(escapes[std::min(i, escapes.size() - 1)].plain);
    }
    // How many bytes longer the character's escape is; 0 for one that stands for itself.
    [[nodiscard]] uint8_t growth(char c) const
    {
        if constexpr (!kSmall) return growth_[static_cast<unsigned char>(c)];
        const auto escape = find(c);
        return escape == escapes_.end() ? uint8_t{0} : escape->growth();
    }

    [[nodiscard]] std::string_view text(char c) const { return find(c)->text(); }

#ifdef VN_BLOCKS
    // Which characters of a block have an escape, the first in the lowest bit.
    [[nodiscard]] unsigned places(const char *block) const
    {
        const __m128i characters = _mm_loadu_si128(reinterpret_cast<const __m128i *>(block));
        __m128i found{};
        for (const Block &plain : plain_) {
            const __m128i repeated = _mm_load_si128(reinterpret_cast<const __m128i *>(&plain));
            found = _mm_or_si128(found, _mm_cmpeq_epi8(characters, repeated));
        }
        return static_cast<unsigned>(_mm_movemask_epi8(found));
    }
#else
    [[nodiscard]] unsigned places(const char *) const
    {
        return 0;
    }
#endif

private:
    [[nodiscard]] std::span<const Escape>::iterator find(char c) const
    {
        return std::find_if(escapes_.begin(), escapes_.end(),
                            [c](const Escape &escape) { return escape.plain == c; });
    }

    std::span<const Escape> escapes_;
    std::array<uint8_t, kSmall ? 0 : 256> growth_{}; // a table, where there is room for it
    using Block = std::array<char, kBlock>;
    alignas(kBlock) std::array<Block, kHasBlocks ? 5 : 0> plain_{}; // each repeated, for places()
};

constexpr Escape kQuote[] = {{'"', "\\\""}};
constexpr Escape kEntities[] = {
    {'<', "&lt;"}, {'>', "&gt;"}, {'&', "&amp;"}, {'"', "&quot;"}, {'\'', "&apos;"}};

constexpr EscapeTable kQuotes(kQuote);
constexpr EscapeTable kAllEntities(kEntities);
constexpr EscapeTable kEntitiesButApostrophes(std::span<const Escape>(kEntities).first(4));

struct Measure {
    size_t length = 0;
    uint64_t growth = 0; // wider than a length: five bytes for each character must not wrap
};

Measure measure(const char *text, const EscapeTable &table)
{
    Measure result{strlen(text)};
    size_t at = 0;
    for (; kHasBlocks && result.length - at >= kBlock; at += kBlock)
        for (unsigned places = table.places(text + at); places != 0; places &= places - 1)
            result.growth += table.growth(text[at + static_cast<size_t>(std::countr_zero(places))]);
    for (; at < result.length; ++at) result.growth += table.growth(text[at]);
    return result;
}

// Behind the last character before `end` that has an escape. There is one.
const char *end_of_last_escape(const char *text, const char *end, const EscapeTable &table)
{
    for (; kHasBlocks && end - text >= static_cast<ptrdiff_t>(kBlock); end -= kBlock)
        if (const unsigned places = table.places(end - kBlock); places != 0)
            return end - kBlock + std::bit_width(places);
    while (table.growth(end[-1]) == 0) --end;
    return end;
}

// Works from the end to the start: `to` runs ahead of `from` by what is still to be inserted before
// it, so the text's own block is source and target, and the part before the first escape stays put.
void fill(char *text, Measure size, const EscapeTable &table)
{
    const char *from = text + size.length + 1; // the NUL moves too
    char *to = text + size.length + static_cast<size_t>(size.growth) + 1;
    while (to != from) { // there is an escape before `from`
        const char *const end = from;
        from = end_of_last_escape(text, end, table);
        to -= end - from;
        memmove(to, from, static_cast<size_t>(end - from));
        const std::string_view escaped = table.text(*--from);
        to -= escaped.size();
        memcpy(to, escaped.data(), escaped.size());
    }
}

int escape(char **str, const EscapeTable &table)
{
    if (str == nullptr || *str == nullptr) return kFailed;
    const Measure size = measure(*str, table);
    const uint64_t length = size.length + size.growth;
    if (length > INT_MAX) return lose(str);
    if (size.growth != 0) {
        if (!grow(str, static_cast<size_t>(length), 1)) return kFailed;
        fill(*str, size, table);
    }
    return static_cast<int>(length);
}

constexpr int nibble_of(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

constexpr auto kNibbles = [] {
    std::array<int8_t, 256> table{};
    for (unsigned c = 0; c < table.size(); ++c)
        table[c] = static_cast<int8_t>(nibble_of(static_cast<char>(c)));
    return table;
}();

int nibble(char c)
{
    return kSmall ? nibble_of(c) : kNibbles[static_cast<unsigned char>(c)];
}

constexpr char kUnits[][sizeof "Bytes"] = {"Bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};

} // namespace
} // namespace vn::vnstrings

using namespace vn::vnstrings;

extern "C" {

int __vn_vasprintf(char **out, const char *site_func, unsigned site_line, const char *format,
                   va_list args)
{
    if (out == nullptr) return kFailed;
    *out = nullptr;
    const Formatted text(format, args);
    if (!text.ok()) return kFailed;
    *out = static_cast<char *>(vn_memcheck_malloc(malloc, text.size(), site_func, site_line));
    return *out == nullptr ? kFailed : text.write(*out, args);
}

int __vn_asprintf(char **out, const char *site_func, unsigned site_line, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int length = __vn_vasprintf(out, site_func, site_line, format, args);
    va_end(args);
    return length;
}

int vn_vaasprintf(char **str, const char *format, va_list args)
{
    if (str == nullptr || *str == nullptr) return kFailed;
    const Formatted text(format, args);
    if (!text.ok()) return lose(str);
    const size_t length = strlen(*str);
    if (!grow(str, length, text.size())) return kFailed;
    return text.write(*str + length, args);
}

int vn_aasprintf(char **str, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int length = vn_vaasprintf(str, format, args);
    va_end(args);
    return length;
}

int replace_char(char **str, const char *replacement, unsigned pos)
{
    if (str == nullptr || *str == nullptr || replacement == nullptr) return kFailed;
    if (strnlen(*str, pos) < pos || (*str)[pos] == '\0') return kFailed;
    char *const tail = copy_of_tail(*str + pos + 1);
    (*str)[pos] = '\0';
    const int appended = vn_aasprintf(str, "%s%s", replacement, tail == nullptr ? "(null)" : tail);
    if (tail != nullptr)
        vn_memcheck_free(vn_free, tail, appended < 0 ? "vnstrings:171" : "vnstrings:175");
    return appended < 0 ? kFailed : static_cast<int>(strlen(replacement));
}

int replace_quotes(char **str)
{
    return escape(str, kQuotes);
}

int replace_xml_entities(char **str, bool keep_apostrophes)
{
    return escape(str, keep_apostrophes ? kEntitiesButApostrophes : kAllEntities);
}

int hex_decode(const char *text, uint8_t *out, unsigned max)
{
    if (text == nullptr) return kFailed;
    if (text[0] == '0' && text[1] == 'x') text += 2;
    if (*text == '\0') return 0;
    if (out == nullptr) return kFailed;
    unsigned count = 0;
    do {
        const int high = nibble(text[0]), low = nibble(text[1]); // the NUL is no digit
        if ((high | low) < 0) return kFailed;
        out[count++] = static_cast<uint8_t>(high << 4 | low);
        text += 2;
    } while (count < max && *text != '\0');
    return static_cast<int>(count);
}

int str2bool(const char *text)
{
    if (text == nullptr) return 0;
    return strcasecmp(text, "true") == 0 || strcasecmp(text, "yes") == 0 ||
           strcasecmp(text, "y") == 0 || strcmp(text, "1") == 0;
}

const char *get_si_unit(uint64_t bytes)
{
    return kUnits[static_cast<unsigned>(std::bit_width(bytes | 1) - 1) / 10];
}
}
