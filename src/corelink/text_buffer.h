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

#include "support/small.h"

namespace vn::corelink {

// Where a tracked allocation is charged.
struct Site {
    const char *function;
    unsigned line;
};

// Whatever appends to a growing string charges the string to this place.
inline constexpr Site kAppendSite{"vn_vaasprintf", 43};

// What stands for some characters in a text: each character, what is written for it, and a NUL.
class Escapes {
public:
    template <size_t kSize>
    constexpr explicit Escapes(const char (&list)[kSize])
    {
        for (size_t i = 0; i < kSize; ++i) list_[i] = list[i];
        for (size_t c = 1; c < plain_.size(); ++c) plain_[c] = *of(static_cast<char>(c)) == '\0';
    }

    // What stands for a character; an empty text for one that stands for itself.
    [[nodiscard]] constexpr const char *of(char c) const
    {
        const char *entry = list_;
        while (*entry != '\0' && *entry != c) {
            while (*entry != '\0') ++entry;
            ++entry;
        }
        return *entry != '\0' ? entry + 1 : entry;
    }

    // How many characters at the beginning of a text stand for themselves.
    [[nodiscard]] size_t plain_length(const char *text) const
    {
        const char *end = text;
        if constexpr (kSmall)
            while (*end != '\0' && *of(*end) == '\0') ++end;
        else
            while (plain_[static_cast<unsigned char>(*end)]) ++end;
        return static_cast<size_t>(end - text);
    }

private:
    char list_[36]{}; // room for the longer of the two
    std::array<bool, kSmall ? 0 : 256>
        plain_{}; // not the NUL: a run of plain characters ends there
};

inline constexpr Escapes kQuoteEscapes("\"\\\"\0");
inline constexpr Escapes kXmlEscapes("<&lt;\0>&gt;\0&&amp;\0\"&quot;\0'&apos;\0");

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
    TextBuffer &put_escaped(const char *text, const Escapes &escapes);

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

inline TextBuffer &TextBuffer::put_escaped(const char *text, const Escapes &escapes)
{
    for (;;) {
        const size_t length = escapes.plain_length(text);
        put({text, length});
        text += length;
        if (*text == '\0') return *this;
        put(escapes.of(*text++));
    }
}

} // namespace vn::corelink
