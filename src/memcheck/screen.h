// screen.h - the memory debugger's display: lines at fixed places of a terminal.
//
//     line   row              content
//      -3      0 (home)       banner; drawn by "down 0 rows", which terminals take for 1
//      -2      1              last words before the process ends
//      -1      2              "Total Allocations: ..."
//       0..29  3..32          sites with most live blocks
//      33     36              rule above the debug pane
//      34..44 37..47          debug pane
//             48              where the cursor rests between lines
//
// Everything goes straight to descriptor 1, whatever it is. A line is one write, so lines of
// several threads and processes on one terminal do not tear each other up. The lock of the screen
// is that of the stream stdout: who draws must look into the stream anyway, and the program's own
// output does not get in between either.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vn::memcheck {

constexpr int kBannerLine = -3;
constexpr int kFatalLine = -2;
constexpr int kTotalLine = -1;
constexpr int kFirstSiteLine = 0;
constexpr int kLastSiteLine = 29;
constexpr int kRuleLine = 33;
constexpr int kFirstPaneLine = 34;

// One piece of output holds at most this many bytes; what is longer is cut.
constexpr size_t kLongestPiece = 255;

// Writes all of `bytes` to standard output, or as much as it takes. Leaves errno alone.
void write_out(std::string_view bytes);

// Shows `text` on display line `line` in place of what was there; without data it only moves.
void show_line(int line, std::string_view text);

// The count line: guarded allocations less releases. Each of them draws it, so it is kept as it is
// drawn, and the digits that change are turned. All is done under the lock of the screen.
class CountLine {
public:
    CountLine();
    CountLine(const CountLine &) = delete;
    CountLine &operator=(const CountLine &) = delete;

    // Adds 1 or -1 and shows the line.
    void add(int32_t change);

private:
    static constexpr std::string_view kBefore = "\x1b[H\x1b[2B\r\x1b[KTotal Allocations: ";
    static constexpr std::string_view kAfter = "\x1b[46B\r";
    static constexpr size_t kFigureEnd = kBefore.size() + std::string_view("-2147483648").size();
    static constexpr size_t kSize = kFigureEnd + kAfter.size();

    void write_figure();

    uint32_t figure_ = 0;
    uint32_t least_, most_; // the figures for which the digits can be turned
    size_t start_;          // where in its room the line starts
    char bytes_[kSize];
};

// Shows the formatted message on the line for it and ends the process with exit(-1).
[[noreturn]] void last_words(const char *format, ...) __attribute__((format(printf, 1, 2)));
// True from then on: the panel, whose banner terminals draw in the same row, must stay away.
bool had_last_words();

// The child of a fork must not find the screen locked by a thread that it does not have.
void lock_screen_for_fork();
void unlock_screen_after_fork();

} // namespace vn::memcheck
