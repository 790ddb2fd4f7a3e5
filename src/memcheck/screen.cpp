// screen.cpp - cursor sequences (ECMA-48: CUP, CUD, EL) and the one write that carries them.
#include "memcheck/screen.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/errno_guard.h"
#include "support/not_cancelled.h"

namespace vn::memcheck {

namespace {

constinit std::atomic<bool> said_last_words = false;

constexpr unsigned kRestingRow = 48;
constexpr std::string_view kReplaceLine = "\r\x1b[K";

// Between these two nothing else appears on the screen, and nobody prints through stdio.
class StdoutLock {
public:
    StdoutLock() { flockfile(stdout); }
    ~StdoutLock() { funlockfile(stdout); }
    StdoutLock(const StdoutLock &) = delete;
    StdoutLock &operator=(const StdoutLock &) = delete;
};

// Writes a number in front of `end` and returns where it starts.
char *write_before(char *end, int32_t number, int least_digits)
{
    const auto value = static_cast<uint32_t>(number);
    uint32_t rest = number < 0 ? 0 - value : value;
    for (; rest != 0 || least_digits > 0; rest /= 10, --least_digits)
        *--end = static_cast<char>('0' + rest % 10);
    if (number < 0) *--end = '-';
    return end;
}

// Draws a line that ends with moving the cursor away, from `leaving` on. What the program printed
// before comes out right in front of that.
void draw_text(const StdoutLock &, const char *start, const char *leaving, const char *end)
{
    if (__fpending(stdout) == 0) [[likely]]
        return write_out({start, end});
    const ErrnoGuard keep;
    const NotCancelled locked;
    write_out({start, leaving});
    fflush(stdout);
    write_out({leaving, end});
}

// A screen line, put together before it leaves; from its end to its start, as numbers are.
class Frame {
public:
    Frame() = default;
    Frame(const Frame &) = delete; // start_ points into itself
    Frame &operator=(const Frame &) = delete;

    Frame &put(std::string_view piece)
    {
        start_ -= piece.size();
        memcpy(start_, piece.data(), piece.size());
        return *this;
    }
    Frame &put(int32_t number)
    {
        start_ = write_before(start_, number, 1);
        return *this;
    }
    // By any number of rows: the sums that lead to them may wrap.
    Frame &move_down(unsigned rows)
    {
        return put("B").put(static_cast<int32_t>(rows)).put("\x1b[");
    }
    // What was put so far is where the cursor goes when the line is there.
    Frame &leave()
    {
        leaving_ = start_;
        return *this;
    }
    void draw(const StdoutLock &hold, bool has_text) const
    {
        const char *const end = bytes_ + kSize;
        if (has_text)
            draw_text(hold, start_, leaving_, end);
        else
            write_out({start_, end});
    }

private:
    static constexpr size_t kSize = kLongestPiece + 45; // a text, and two movements of any length

    char bytes_[kSize];
    char *start_ = bytes_ + kSize;
    char *leaving_ = start_;
};

} // namespace

// Not through write(): there a thread may be cancelled, which has locks here, and watching for that
// costs as much as half the system call.
void write_out(std::string_view bytes)
{
    const ErrnoGuard keep;
    while (!bytes.empty()) {
        const ssize_t done = syscall(SYS_write, STDOUT_FILENO, bytes.data(), bytes.size());
        if (done > 0) {
            bytes.remove_prefix(static_cast<size_t>(done));
        } else if (done < 0 && errno == EAGAIN) {
            // Somebody made the terminal non-blocking; half an escape sequence would spoil it.
            const NotCancelled locked;
            pollfd room = {STDOUT_FILENO, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (done == 0 || errno != EINTR) {
            return;
        }
    }
}

void show_line(int line, std::string_view text)
{
    constexpr size_t kRoom = kLongestPiece - kReplaceLine.size();
    const unsigned row = static_cast<unsigned>(line) + 3;
    const bool has_text = text.data() != nullptr;
    Frame frame;
    frame.put("\r").move_down(kRestingRow - row).leave();
    if (has_text) frame.put({text.data(), std::min(text.size(), kRoom)}).put(kReplaceLine);
    frame.move_down(row).put("\x1b[H").draw(StdoutLock(), has_text);
}

CountLine::CountLine()
{
    static_assert(kTotalLine + 3 == 2 && kRestingRow - 2 == 46, "the movements before and after");
    memcpy(bytes_ + kFigureEnd, kAfter.data(), kAfter.size());
    write_figure();
}

void CountLine::write_figure()
{
    const auto number = static_cast<int32_t>(figure_);
    char *const start = write_before(bytes_ + kFigureEnd, number, 5) - kBefore.size();
    memcpy(start, kBefore.data(), kBefore.size());
    start_ = static_cast<size_t>(start - bytes_);
    // Figures of as many digits; those below zero are rare enough to be written each time.
    uint64_t longer = 100'000;
    for (least_ = 0; longer <= figure_; longer *= 10) least_ = static_cast<uint32_t>(longer);
    most_ = number < 0 ? 0 : static_cast<uint32_t>(std::min<uint64_t>(longer - 1, INT32_MAX));
}

// Tools that look for races do not know the lock.
__attribute__((no_sanitize("thread"))) void CountLine::add(int32_t change)
{
    const StdoutLock hold;
    figure_ += static_cast<uint32_t>(change);
    if (figure_ >= least_ && figure_ <= most_) [[likely]] {
        const char last = change > 0 ? '9' : '0';
        char *digit = bytes_ + kFigureEnd - 1;
        while (*digit == last) *digit-- = static_cast<char>('0' + '9' - last);
        *digit = static_cast<char>(*digit + change);
    } else {
        write_figure();
    }
    draw_text(hold, bytes_ + start_, bytes_ + kFigureEnd, bytes_ + kSize);
}

void last_words(const char *format, ...)
{
    char text[kLongestPiece + 1];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    said_last_words = true;
    show_line(kFatalLine, text);
    exit(-1);
}

bool had_last_words()
{
    return said_last_words;
}

// The GNU C library itself gives the child fresh locks for its streams, and expects to.
void lock_screen_for_fork()
{
#ifndef __GLIBC__
    flockfile(stdout);
#endif
}

void unlock_screen_after_fork()
{
#ifndef __GLIBC__
    funlockfile(stdout);
#endif
}

} // namespace vn::memcheck
