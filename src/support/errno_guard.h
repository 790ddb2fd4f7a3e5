// errno_guard.h - leaves errno as the caller had it, on every way out of a scope.
#pragma once

#include <cerrno>

namespace vn {

class ErrnoGuard {
public:
    ErrnoGuard() : saved_(errno) {}
    ~ErrnoGuard() { errno = saved_; }
    ErrnoGuard(const ErrnoGuard &) = delete;
    ErrnoGuard &operator=(const ErrnoGuard &) = delete;

private:
    const int saved_;
};

} // namespace vn
