// hex_dump.cpp - bytes as lines of text, through the log.
//
//     0010: 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  ABCDEFGH IJKLMNOP
//     offset, hex column (a short line is filled up with blanks), character column
//
// A flipped dump shows each line from its last position to its first, as a number of the other byte
// order is read. Dumps are meant to be short: the last line of a long one is left out, see show().
#include <algorithm>
#include <cctype>
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
    explicit Line(size_t width)
    {
        if (width <= kColumnsInPlace) return;
        const size_t wanted = kFixedColumns + kColumnsPerByte * std::min(width, kLongest);
        const size_t size = std::min(wanted, kLongest);
        heap_ = static_cast<char *>(malloc(size));
        if (heap_ == nullptr) return;
        text_ = heap_;
        room_ = size - 1;
    }
    ~Line() { free(heap_); }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;

    [[gnu::noinline]] void put(char c)
    {
        if (length_ < room_) text_[length_++] = c;
    }
    [[gnu::noinline]] void put_hex(size_t number, unsigned digits)
    {
        while (digits < 2 * sizeof number && number >> 4 * digits != 0) ++digits;
        while (digits-- > 0) put("0123456789abcdef"[number >> 4 * digits & 0xF]);
    }
    // Of what was put so far. The next line starts afresh.
    const char *finish()
    {
        text_[length_] = '\0';
        length_ = 0;
        return text_;
    }

    static constexpr size_t kLongest = size_t{1} << 20;

private:
    static constexpr size_t kInPlace = 256;
    static constexpr size_t kFixedColumns = 2 * sizeof(size_t) + 2 + 3; // offset, blanks, the NUL
    static constexpr size_t kColumnsPerByte = 4; // two digits, a blank, a character
    static constexpr size_t kColumnsInPlace = (kInPlace - kFixedColumns) / kColumnsPerByte;

    char *heap_ = nullptr;
    char *text_ = in_place_;
    size_t room_ = kInPlace - 1;
    size_t length_ = 0;
    char in_place_[kInPlace];
};

struct Style {
    int level;
    size_t width;
    bool flipped;
};

// Columns without a byte are blank. Flipped, they come first: their positions are the last.
void put_hex_column(Line &line, const Style &style, std::span<const unsigned char> bytes)
{
    for (size_t column = 0; column < std::min(style.width, Line::kLongest); ++column) {
        const size_t at = style.flipped ? style.width - 1 - column : column;
        if (at < bytes.size()) {
            line.put_hex(bytes[at], 2);
        } else {
            line.put(' ');
            line.put(' ');
        }
        line.put(' ');
    }
}

void put_characters(Line &line, const Style &style, std::span<const unsigned char> bytes)
{
    for (size_t column = 0; column < bytes.size(); ++column) {
        const unsigned char byte = bytes[style.flipped ? bytes.size() - 1 - column : column];
        line.put(isprint(byte) != 0 ? static_cast<char>(byte) : '.');
        if (column == 7) line.put(' ');
    }
}

// Ends one line early when there is more than one: the bytes of the line just shown are counted
// once more. Logs are full of such dumps and what reads them relies on their length.
void dump(const Style &style, std::span<const unsigned char> data)
{
    Line line(style.width);
    for (size_t offset = 0;; offset += style.width) {
        const auto rest = data.subspan(offset);
        const auto bytes = rest.first(std::min(style.width, rest.size()));
        line.put_hex(offset, 4);
        line.put(':');
        line.put(' ');
        put_hex_column(line, style, bytes);
        line.put(' ');
        put_characters(line, style, bytes);
        __vn_log(style.level, "%s", line.finish());
        if (style.width == 0 || rest.size() - bytes.size() <= style.width) return;
    }
}

} // namespace
} // namespace vn::log

extern "C" void __vn_loghex_line(int level, const unsigned char *data, size_t length,
                                 unsigned width, unsigned char flip)
{
    if (level == vn::log::kSilent) return;
    __vn_log(level, "**%s****************************************",
             flip != 0 ? "Endian Flipped" : "Hex Dump******");
    if (length != 0 && data != nullptr) vn::log::dump({level, width, flip != 0}, {data, length});
}
