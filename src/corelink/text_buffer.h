// text_buffer.h - a text that grows in time linear to its length and ends as one tracked block.
//
//     inline bytes  --full-->  heap block, doubled when full  --finish()-->  block of length + 1
//
// The memory debugger shows a finished text under the place that began it, or, once anything was
// appended, under the place where every growing string of the library is charged.
// An error sticks: after it nothing more is written, and finish() gives null.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "corelink/decimal.h"
#include "support/small.h"

namespace vn::corelink {

// Where a tracked allocation is charged.
struct Site {
    const char *function;
    unsigned line;
};

// Whatever appends to a growing string charges the string to this place.
inline constexpr Site kAppendSite{"vn_vaasprintf", 43};

// What stands for a character in a text; an empty result means the character itself.
constexpr std::string_view escape_quote(char c)
{
    return c == '"' ? "\\\"" : std::string_view{};
}

constexpr std::string_view escape_xml(char c)
{
    switch (c) {
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '&': return "&amp;";
    case '"': return "&quot;";
    case '\'': return "&apos;";
    default: return {};
    }
}

class TextBuffer {
public:
    explicit TextBuffer(Site start) : site_(start) {}
    ~TextBuffer() { discard(); }
    TextBuffer(const TextBuffer &) = delete;
    TextBuffer &operator=(const TextBuffer &) = delete;

    TextBuffer &put(std::string_view piece)
    {
        char *const place = extend(piece.size());
        if (place != nullptr && !piece.empty()) std::memcpy(place, piece.data(), piece.size());
        return *this;
    }
    TextBuffer &put(char c) { return put_repeated(c, 1); }
    TextBuffer &put_repeated(char c, size_t count)
    {
        char *const place = extend(count);
        if (place != nullptr) std::memset(place, c, count);
        return *this;
    }
    TextBuffer &put_number(uint64_t value) { return put(Decimal(value).text()); }
    template <std::string_view (*kEscape)(char)>
    TextBuffer &put_escaped(const char *text);

    [[nodiscard]] bool ok() const { return ok_; }
    TextBuffer &fail()
    {
        ok_ = false;
        return *this;
    }

    // Hands the text over as a block of exactly its length and its NUL; null after an error.
    [[nodiscard]] char *finish();

private:
    [[nodiscard]] bool on_heap() const { return data_ != inline_; }

    // The place for `extra` more characters, which count as written; null after an error.
    [[nodiscard]] char *extend(size_t extra)
    {
        if (!ok_ || (extra > capacity_ - size_ && !grow(extra))) return nullptr;
        site_ = kAppendSite;
        size_ += extra;
        return data_ + size_ - extra;
    }
    bool grow(size_t extra);
    void discard();

    char inline_[512];
    char *data_ = inline_;
    size_t size_ = 0;
    size_t capacity_ = sizeof inline_;
    Site site_;
    bool ok_ = true;
};

// Whether a character stands for itself. The NUL does not: a run of plain characters ends there.
template <std::string_view (*kEscape)(char)>
inline constexpr auto kIsPlain = [] {
    std::array<bool, 256> plain{};
    for (unsigned c = 1; c < plain.size(); ++c) plain[c] = kEscape(static_cast<char>(c)).empty();
    return plain;
}();
template <std::string_view (*kEscape)(char)>
bool is_plain(char c)
{
    if constexpr (kSmall) return c != '\0' && kEscape(c).empty();
    return kIsPlain<kEscape>[static_cast<unsigned char>(c)];
}

template <std::string_view (*kEscape)(char)>
TextBuffer &TextBuffer::put_escaped(const char *text)
{
    for (;;) {
        const char *end = text;
        while (is_plain<kEscape>(*end)) ++end;
        put({text, static_cast<size_t>(end - text)});
        if (*end == '\0') return *this;
        put(kEscape(*end));
        text = end + 1;
    }
}

} // namespace vn::corelink
