// errno_guard.h - leaves errno as the caller had it, on every way out of a scope.
#pragma once

#include <cerrno>

namespace vn {

class ErrnoGuard {
public:
    ErrnoGuard() : saved_(errno) {}
    ~ErrnoGuard() { restore(); }
    ErrnoGuard(const ErrnoGuard &) = delete;
    ErrnoGuard &operator=(const ErrnoGuard &) = delete;

    void restore() const { errno = saved_; } // for a "%m" in the middle of the scope

private:
    const int saved_;
};

} // namespace vn
