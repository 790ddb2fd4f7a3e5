// hex_dump.cpp - bytes as lines of text, through the log.
//
//     0010: 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  ABCDEFGH IJKLMNOP
//     offset, hex column (a short line is filled up with blanks), character column
//
// A flipped dump shows each line from its last position to its first, as a number of the other byte
// order is read. Dumps are meant to be short: the last line of a long one is left out, see show().
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "log/level.h"
#include "vnlib/log.h"

namespace vn::log {
namespace {

// Where a line is put together. It never overflows: what does not fit is cut.
class Line {
public:
    explicit Line(unsigned width)
    {
        const uint64_t wanted = kOffsetField + uint64_t{kColumnsPerByte} * width + 3;
        if (wanted <= sizeof local_) return;
        const auto size = static_cast<size_t>(std::min<uint64_t>(wanted, kLongest));
        heap_ = static_cast<char *>(malloc(size));
        if (heap_ != nullptr) capacity_ = size;
    }
    ~Line() { free(heap_); }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    void start(size_t offset)
    {
        length_ = static_cast<size_t>(snprintf(text(), capacity_, "%.4zx: ", offset));
    }
    void put(char c)
    {
        if (length_ + 1 < capacity_) text()[length_++] = c;
    }
    void put_blanks(uint64_t count)
    {
        const size_t room = capacity_ - 1 - length_;
        const auto fitting = static_cast<size_t>(std::min<uint64_t>(count, room));
        memset(text() + length_, ' ', fitting);
        length_ += fitting;
    }
    void put_hex(unsigned char byte)
    {
        put("0123456789abcdef"[byte >> 4]);
        put("0123456789abcdef"[byte & 0xF]);
        put(' ');
    }
    const char *finish()
    {
        text()[length_] = '\0';
        return text();
    }

private:
    static constexpr size_t kOffsetField = 2 * sizeof(size_t) + 2;
    static constexpr size_t kColumnsPerByte = 4; // two digits, a blank, a character
    static constexpr size_t kLongest = size_t{1} << 20;

    char *text() { return heap_ != nullptr ? heap_ : local_; }

    char *heap_ = nullptr;
    size_t capacity_ = sizeof local_;
    size_t length_ = 0;
    char local_[256];
};

class Dump {
public:
    Dump(int level, std::span<const unsigned char> data, unsigned width, bool flipped)
        : level_(level), data_(data), width_(width), flipped_(flipped), line_(width)
    {
    }
    void show();

private:
    [[nodiscard]] std::span<const unsigned char> bytes_at(size_t offset) const
    {
        return data_.subspan(offset, std::min<size_t>(width_, data_.size() - offset));
    }
    void put_hex_column(std::span<const unsigned char> bytes);
    void put_characters(std::span<const unsigned char> bytes);
    [[nodiscard]] unsigned char shown_at(std::span<const unsigned char> bytes, size_t column) const
    {
        return flipped_ ? bytes[bytes.size() - 1 - column] : bytes[column];
    }

    int level_;
    std::span<const unsigned char> data_;
    unsigned width_;
    bool flipped_;
    Line line_;
};

void Dump::put_hex_column(std::span<const unsigned char> bytes)
{
    const uint64_t missing = uint64_t{3} * (width_ - bytes.size());
    if (flipped_) line_.put_blanks(missing); // their positions are the last, so they come first
    for (size_t i = 0; i < bytes.size(); ++i) line_.put_hex(shown_at(bytes, i));
    if (!flipped_) line_.put_blanks(missing);
}

void Dump::put_characters(std::span<const unsigned char> bytes)
{
    for (size_t i = 0; i < bytes.size(); ++i) {
        const unsigned char byte = shown_at(bytes, i);
        line_.put(isprint(byte) != 0 ? static_cast<char>(byte) : '.');
        if (i == 7) line_.put(' ');
    }
}

// Ends one line early when there is more than one: the bytes of the line just shown are counted
// once more. Logs are full of such dumps and what reads them relies on their length.
void Dump::show()
{
    size_t offset = 0;
    uint64_t counted = 0;
    do {
        const std::span<const unsigned char> bytes = bytes_at(offset);
        line_.start(offset);
        put_hex_column(bytes);
        line_.put(' ');
        put_characters(bytes);
        __vn_log(level_, "%s", line_.finish());
        counted = uint64_t{offset} + width_ + bytes.size();
        offset += width_;
    } while (width_ != 0 && counted < data_.size());
}

} // namespace
} // namespace vn::log

extern "C" void __vn_loghex_line(int level, const unsigned char *data, size_t length,
                                 unsigned width, unsigned char flip)
{
    if (level == vn::log::kSilent) return;
    __vn_log(level, "**%s****************************************",
             flip != 0 ? "Endian Flipped" : "Hex Dump******");
    if (length != 0 && data != nullptr)
        vn::log::Dump(level, {data, length}, width, flip != 0).show();
}
