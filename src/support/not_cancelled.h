// not_cancelled.h - a scope in which a thread is not cancelled: it would keep its locks forever.
#pragma once

#include <pthread.h>

namespace vn {

class NotCancelled {
public:
    NotCancelled() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~NotCancelled() { pthread_setcancelstate(before_, nullptr); }
    NotCancelled(const NotCancelled &) = delete;
    NotCancelled &operator=(const NotCancelled &) = delete;

private:
    int before_;
};

} // namespace vn
