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

// A screen line, put together before it leaves.
class Frame {
public:
    explicit Frame(int line) : row_(static_cast<unsigned>(line) + 3) // any line: the sums may wrap
    {
        put("\x1b[H").move_down(row_);
    }
    Frame &put(std::string_view piece)
    {
        memcpy(bytes_ + used_, piece.data(), piece.size());
        used_ += piece.size();
        return *this;
    }
    Frame &put(int32_t number, unsigned least_digits);
    void draw(bool has_text);

private:
    Frame &move_down(unsigned rows)
    {
        return put("\x1b[").put(static_cast<int32_t>(rows), 1).put("B");
    }
    void write()
    {
        write_out({bytes_, used_});
        used_ = 0;
    }

    const unsigned row_;
    size_t used_ = 0;
    char bytes_[kLongestPiece + 45]; // a text and two cursor movements of any length
};

// Without printf, as every allocation draws such lines.
Frame &Frame::put(int32_t number, unsigned least_digits)
{
    auto rest = static_cast<uint32_t>(number);
    if (number < 0) {
        put("-");
        rest = 0 - rest;
    }
    unsigned digits = 0;
    uint32_t bound = 1;
    do {
        ++digits;
        bound *= 10;
    } while (digits < least_digits || (digits < 10 && rest >= bound));
    used_ += digits;
    for (unsigned i = 1; i <= digits; ++i, rest /= 10)
        bytes_[used_ - i] = static_cast<char>('0' + rest % 10);
    return *this;
}

void Frame::draw(bool has_text)
{
    const StdoutLock hold;
    // What the program printed before comes out right behind the text, before the cursor leaves.
    if (has_text && __fpending(stdout) != 0) {
        const ErrnoGuard keep;
        const NotCancelled locked;
        write();
        fflush(stdout);
    }
    move_down(kRestingRow - row_).put("\r").write();
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
    Frame frame(line);
    if (text.data() != nullptr)
        frame.put(kReplaceLine).put({text.data(), std::min(text.size(), kRoom)});
    frame.draw(text.data() != nullptr);
}

void show_total(int32_t total)
{
    Frame frame(kTotalLine);
    frame.put(kReplaceLine).put("Total Allocations: ").put(total, 5).draw(true);
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
