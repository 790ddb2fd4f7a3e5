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
// several threads and processes on one terminal do not tear each other up.
#pragma once

#include <atomic>
#include <cstddef>
#include <string_view>

#include "support/mutex.h"

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

class Screen {
public:
    constexpr Screen() = default;

    // Shows `text` on display line `line` in place of what was there, or with null only moves.
    void show(int line, const char *text) VN_EXCLUDES(mutex_);

    // Shows the formatted message on the line for it and ends the process with exit(-1).
    [[noreturn]] void last_words(const char *format, ...) __attribute__((format(printf, 2, 3)));
    // True from then on: the panel, whose banner terminals draw in the same row, must stay away.
    [[nodiscard]] bool had_last_words() const { return had_last_words_; }

    Mutex &mutex() VN_RETURN_CAPABILITY(mutex_) { return mutex_; } // for fork

private:
    std::atomic<bool> had_last_words_ = false;
    Mutex mutex_; // cursor and line belong together
};

Screen &screen(); // there is one terminal

} // namespace vn::memcheck
