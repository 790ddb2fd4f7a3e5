// quiet_thread.h - the library's threads do not take the program's signals.
//
// Every signal that somebody sends is blocked in them, so that the kernel delivers it to a thread
// of the program instead. Faults stay unblocked: a program with a crash handler wants to see them,
// whichever thread they hit. So do the signals by which threads of the C library call each other.
#pragma once

#include <array>
#include <climits>
#include <csignal>
#include <cstring>
#include <pthread.h>

namespace vn {

// As the kernel and its C libraries lay out a sigset_t. Functions that fill one would cost more.
constexpr auto kSignalsOfTheProgram = [] {
    constexpr unsigned kBits = CHAR_BIT * sizeof(unsigned long);
    std::array<unsigned long, 64 / kBits> words;
    words.fill(~0ul);
    const auto leave_out = [&words](unsigned signal) {
        words[(signal - 1) / kBits] &= ~(1ul << (signal - 1) % kBits);
    };
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        leave_out(static_cast<unsigned>(fault));
    leave_out(32);
    leave_out(33);
#ifndef __GLIBC__
    leave_out(34); // musl has three
#endif
    return words;
}();

// pthread_create(), for a thread that blocks those signals from its first instruction on.
[[gnu::noinline]] inline int create_quiet_thread(pthread_t *thread, void *(*body)(void *),
                                                 void *argument)
{
    sigset_t blocked{}, before;
    memcpy(&blocked, kSignalsOfTheProgram.data(), sizeof kSignalsOfTheProgram);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const int error = pthread_create(thread, nullptr, body, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return error;
}

} // namespace vn
