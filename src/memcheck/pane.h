// pane.h - the scrolling debug messages at the bottom of the screen.
//
// Eleven lines, the newest at the bottom. How far a message scrolls them is decided by the newlines
// of its format, before it is formatted: a format that ends in one completes its line, and the next
// message starts a new one; otherwise the next message continues the line.
//
// Lock order: this lock before the screen's.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <string_view>

#include "support/mutex.h"

namespace vn::memcheck {

class Pane {
public:
    // Formats a message of at most kLineSize - 1 bytes into the pane and shows all of it.
    void print(const char *format, va_list args) VN_EXCLUDES(mutex_)
        __attribute__((format(printf, 2, 0)));

    Mutex &mutex() VN_RETURN_CAPABILITY(mutex_) { return mutex_; } // for fork

private:
    static constexpr size_t kLines = 11;
    static constexpr size_t kLineSize = 256;
    static constexpr size_t kNewest = kLines - 1;

    void scroll(size_t lines) VN_REQUIRES(mutex_);
    void place_pieces(std::string_view text, size_t line) VN_REQUIRES(mutex_);
    bool place(std::string_view piece, size_t line, bool continues) VN_REQUIRES(mutex_);
    void show() const VN_REQUIRES(mutex_);

    Mutex mutex_;
    char lines_[kLines][kLineSize] VN_GUARDED_BY(mutex_) = {};
    bool line_complete_ VN_GUARDED_BY(mutex_) = true;
};

} // namespace vn::memcheck
