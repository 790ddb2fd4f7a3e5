// pane.cpp - where each piece of a debug message goes; see pane.h.
#include "memcheck/pane.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "memcheck/screen.h"

namespace vn::memcheck {

void Pane::print(const char *format, va_list args)
{
    const std::string_view pattern = format;
    const auto newlines = static_cast<size_t>(std::count(pattern.begin(), pattern.end(), '\n'));
    const bool completes = pattern.ends_with('\n');
    const size_t further_lines = newlines - (completes ? 1 : 0);

    const MutexLock hold(mutex_);
    char text[kLineSize] = "";
    vsnprintf(text, sizeof text, format, args);

    // A message taller than the pane scrolls nothing away: it fills the pane from the top, and
    // place_pieces() scrolls as its last pieces come.
    const bool fits = further_lines <= kNewest;
    const size_t scrolled = further_lines + (line_complete_ ? 1 : 0);
    if (scrolled < kLines) scroll(scrolled);
    if (!fits) line_complete_ = true; // the line it would continue is not where it starts
    place_pieces(text, fits ? kNewest - further_lines : 0);
    line_complete_ = completes;
    show();
}

void Pane::scroll(size_t lines)
{
    memmove(lines_[0], lines_[lines], (kLines - lines) * kLineSize);
}

// The text's pieces between newlines go to `line` and the lines below it; empty ones are skipped,
// but a text of nothing else is one empty piece.
void Pane::place_pieces(std::string_view text, size_t line)
{
    bool continues = !line_complete_;
    bool placed_any = false;
    while (!text.empty() || !placed_any) {
        const size_t end = std::min(text.find('\n'), text.size());
        const std::string_view piece(text.data(), end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (piece.empty() && (placed_any || !text.empty())) continue;
        if (line > kNewest) { // newlines that came in with the arguments
            scroll(1);
            line = kNewest;
        }
        if (place(piece, line, continues)) ++line;
        continues = false;
        placed_any = true;
    }
}

// False when the piece continues a line that has no room for it: it is dropped.
bool Pane::place(std::string_view piece, size_t line, bool continues)
{
    char *const target = lines_[line];
    const size_t used = continues ? strlen(target) : 0;
    if (used + piece.size() >= kLineSize) return false;
    memcpy(target + used, piece.data(), piece.size());
    target[used + piece.size()] = '\0';
    return true;
}

void Pane::show() const
{
    for (size_t line = 0; line < kLines; ++line)
        show_line(kFirstPaneLine + static_cast<int>(line), lines_[line]);
}

} // namespace vn::memcheck
