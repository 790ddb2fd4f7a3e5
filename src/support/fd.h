// fd.h - one file descriptor with one owner.
#pragma once

#include <unistd.h>
#include <utility>

#include "support/errno_guard.h"

namespace vn {

class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd()
    {
        const ErrnoGuard keep;
        if (fd_ >= 0) ::close(fd_);
    }
    Fd(Fd &&other) noexcept : fd_(other.release()) {}
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    Fd &operator=(Fd &&) = delete;

    [[nodiscard]] bool valid() const { return fd_ >= 0; }
    [[nodiscard]] int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); } // ownership leaves by name

private:
    int fd_;
};

} // namespace vn
