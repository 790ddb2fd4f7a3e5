// counted.h - tells the tool that counts instructions which part of a program to count.
//
// Under callgrind (x86) by its client requests; under qemu-arm by calls of prctl with options that
// no kernel knows, which count_plugin.c watches for. Run alone the program counts nothing.
#pragma once

#include <cstdint>
#include <sys/prctl.h>

#if defined(__x86_64__)
#include <valgrind/callgrind.h>
#endif

namespace guard {

constexpr int kBegin = 0x564E'4701; // also in count_plugin.c
constexpr int kEnd = 0x564E'4702;

// Counts the calling thread alone: the library's own threads run when they please.
inline void begin()
{
#if defined(__x86_64__)
    CALLGRIND_TOGGLE_COLLECT;
#else
    prctl(kBegin, 0, 0, 0, 0);
#endif
}

inline void end()
{
#if defined(__x86_64__)
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS;
#else
    prctl(kEnd, 0, 0, 0, 0);
#endif
}

} // namespace guard
