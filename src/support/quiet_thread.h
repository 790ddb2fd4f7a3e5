// quiet_thread.h - the library's threads do not take the program's signals.
//
// Every signal that somebody sends is blocked in them, so that the kernel delivers it to a thread
// of the program instead. Faults stay unblocked: a program with a crash handler wants to see them,
// whichever thread they hit.
#pragma once

#include <csignal>
#include <pthread.h>

namespace vn {

// pthread_create(), for a thread that blocks those signals from its first instruction on.
[[gnu::noinline]] inline int create_quiet_thread(pthread_t *thread, void *(*body)(void *),
                                                 void *argument)
{
    sigset_t blocked, before;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        sigdelset(&blocked, fault);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const int error = pthread_create(thread, nullptr, body, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error;
}

} // namespace vn
