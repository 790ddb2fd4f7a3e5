// input.h - the characters of a stream, taken from the stream's own buffer.
//
//     what the C library has read and nobody has taken:   <item id="1" name="node
//                                                         ^      ^               ^
//                                                         begin_ at_             end_
//
// getc() costs a look at the stream for each character, and a call where it is no macro. Here the
// bytes that are in the buffer already can be looked at, many at a time, and taken by moving on.
// The stream hears of it at commit(): whoever else may read it, a callback or the caller
// afterwards, then finds it behind the last character that was taken, as if they had come one by
// one.
//
// Two C libraries let the buffer be seen, each in its own way (the build looks which); elsewhere
// the window is always empty and every character comes from getc_unlocked().
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <span>
#ifdef VNLIB_HAVE_FREADPTR
#include <stdio_ext.h>
#endif

namespace vn::sax {

class Input {
public:
    // The stream is locked by the caller.
    explicit Input(FILE *stream) : stream_(stream) { resume(); }
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    // The next character, or EOF.
    int get() { return at_ != end_ ? *at_++ : get_from_stream(); }

    // The characters that need no reading, at most so many, and taking some of them.
    [[nodiscard]] std::span<const unsigned char> ahead(size_t most) const
    {
        return {at_, std::min(most, static_cast<size_t>(end_ - at_))};
    }
    void take(size_t count) { at_ += count; }

    // Around whatever may touch the stream elsewhere.
    void commit();
    void resume();

private:
    int get_from_stream()
    {
        commit();
        const int c = getc_unlocked(stream_);
        resume();
        return c;
    }

    FILE *const stream_;
    const unsigned char *begin_ = nullptr;
    const unsigned char *at_ = nullptr;
    const unsigned char *end_ = nullptr;
};

#if defined VNLIB_HAVE_FREADPTR

inline void Input::commit()
{
    if (at_ != begin_) __freadptrinc(stream_, static_cast<size_t>(at_ - begin_));
}

inline void Input::resume()
{
    size_t count = 0;
    begin_ = at_ = reinterpret_cast<const unsigned char *>(__freadptr(stream_, &count));
    end_ = at_ + count;
}

#elif defined VNLIB_HAVE_IO_READ_PTR

inline void Input::commit()
{
    stream_->_IO_read_ptr += at_ - begin_;
}

inline void Input::resume()
{
    begin_ = at_ = reinterpret_cast<const unsigned char *>(stream_->_IO_read_ptr);
    end_ = reinterpret_cast<const unsigned char *>(stream_->_IO_read_end);
    if (end_ < at_) end_ = at_; // a stream that is being written to
}

#else

inline void Input::commit() {}
inline void Input::resume() {}

#endif

} // namespace vn::sax
