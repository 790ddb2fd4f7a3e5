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
    // Without printf, as every allocation draws such lines.
    Frame &put(int32_t number, unsigned least_digits)
    {
        const auto value = static_cast<uint32_t>(number);
        uint32_t rest = number < 0 ? 0 - value : value;
        do {
            *--start_ = static_cast<char>('0' + rest % 10);
            rest /= 10;
        } while (--least_digits != 0);
        while (rest != 0) {
            *--start_ = static_cast<char>('0' + rest % 10);
            rest /= 10;
        }
        return number < 0 ? put("-") : *this;
    }
    // By any number of rows: the sums that lead to them may wrap.
    Frame &move_down(unsigned rows)
    {
        return put("B").put(static_cast<int32_t>(rows), 1).put("\x1b[");
    }
    // What was put so far is where the cursor goes when the line is there.
    Frame &leave()
    {
        leaving_ = start_;
        return *this;
    }
    void draw(const StdoutLock &, bool has_text) const;

private:
    static constexpr size_t kSize = kLongestPiece + 45; // a text, and two movements of any length

    char bytes_[kSize];
    char *start_ = bytes_ + kSize;
    char *leaving_ = start_;
};

void Frame::draw(const StdoutLock &, bool has_text) const
{
    const char *const end = bytes_ + kSize;
    // What the program printed before comes out right behind the text, before the cursor leaves.
    if (has_text && __fpending(stdout) != 0) {
        const ErrnoGuard keep;
        const NotCancelled locked;
        write_out({start_, leaving_});
        fflush(stdout);
        write_out({leaving_, end});
    } else {
        write_out({start_, end});
    }
}

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

// Draws as show_line() would, with both movements written out.
void count(Total &total, int32_t change)
{
    static_assert(kTotalLine + 3 == 2 && kRestingRow - 2 == 46);
    const StdoutLock hold;
    const uint32_t sum = total.load(std::memory_order_relaxed) + static_cast<uint32_t>(change);
    total.store(sum, std::memory_order_relaxed);
    Frame frame;
    frame.put("\x1b[46B\r").leave().put(static_cast<int32_t>(sum), 5);
    frame.put("\x1b[H\x1b[2B\r\x1b[KTotal Allocations: ").draw(hold, true);
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
