// screen.cpp - cursor sequences (ECMA-48: CUP, CUD, EL) and the one write that carries them.
#include "memcheck/screen.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <stdio_ext.h>
#include <unistd.h>

#include "memcheck/decimal.h"
#include "support/errno_guard.h"

namespace vn::memcheck {

namespace {

constexpr unsigned kRestingRow = 48;
constexpr std::string_view kReplaceLine = "\r\x1b[K";

// The bytes of one screen line, put together before they leave.
class Frame {
public:
    Frame &put(std::string_view piece)
    {
        const size_t length = std::min(piece.size(), sizeof bytes_ - used_);
        memcpy(bytes_ + used_, piece.data(), length);
        used_ += length;
        return *this;
    }
    Frame &put(int number) { return put(Decimal(number).text()); }
    [[nodiscard]] std::string_view bytes() const { return {bytes_, used_}; }

private:
    char bytes_[kLongestPiece + 45]; // a text and two cursor movements of any length
    size_t used_ = 0;
};

// Whether the program has printed something that standard output has not seen yet.
bool stdio_has_text_waiting()
{
    flockfile(stdout);
    const bool waiting = __fpending(stdout) != 0;
    funlockfile(stdout);
    return waiting;
}

} // namespace

void write_out(std::string_view bytes)
{
    const ErrnoGuard keep;
    while (!bytes.empty()) {
        const ssize_t done = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (done > 0) {
            bytes.remove_prefix(static_cast<size_t>(done));
        } else if (done < 0 && errno == EAGAIN) {
            // Somebody made the terminal non-blocking; half an escape sequence would spoil it.
            pollfd room = {STDOUT_FILENO, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (done == 0 || errno != EINTR) {
            return;
        }
    }
}

void Screen::show(int line, const char *text)
{
    // Unsigned, because any line may be asked for: the sums wrap instead of overflowing.
    const unsigned row = static_cast<unsigned>(line) + 3;
    Frame frame;
    frame.put("\x1b[H\x1b[").put(static_cast<int>(row)).put("B");
    if (text != nullptr) {
        constexpr size_t kRoom = kLongestPiece - kReplaceLine.size();
        frame.put(kReplaceLine).put({text, strnlen(text, kRoom)});
    }

    const MutexLock hold(mutex_);
    // What the program printed before comes out right behind the text, before the cursor leaves.
    if (text != nullptr && stdio_has_text_waiting()) {
        const ErrnoGuard keep;
        write_out(frame.bytes());
        fflush(stdout);
        frame = {};
    }
    frame.put("\x1b[").put(static_cast<int>(kRestingRow - row)).put("B\r");
    write_out(frame.bytes());
}

void Screen::last_words(const char *format, ...)
{
    char text[kLongestPiece + 1];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    had_last_words_ = true;
    show(kFatalLine, text);
    exit(-1);
}

Screen &screen()
{
    static constinit Screen the_screen;
    return the_screen;
}

} // namespace vn::memcheck
