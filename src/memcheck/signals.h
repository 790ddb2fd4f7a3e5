// signals.h - threads of the library do not take the program's signals.
//
// While alive, every signal that somebody sends is blocked, so that a thread created meanwhile
// inherits that mask and the kernel delivers to a thread of the program instead. Faults stay
// unblocked: a program with a crash handler wants to see them, whichever thread they hit.
#pragma once

#include <csignal>
#include <pthread.h>

namespace vn::memcheck {

class AsynchronousSignalsBlocked {
public:
    AsynchronousSignalsBlocked()
    {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    }
    ~AsynchronousSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    AsynchronousSignalsBlocked(const AsynchronousSignalsBlocked &) = delete;
    AsynchronousSignalsBlocked &operator=(const AsynchronousSignalsBlocked &) = delete;

private:
    sigset_t before_;
};

} // namespace vn::memcheck
