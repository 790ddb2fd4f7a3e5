// attempt.h - a call into the generated scanner that may fail without ending the process.
//
// The generated code knows one answer to a failure: end the process. Here a failure leaves the call
// instead:
//
//     program ──> yy_scan_bytes ──> attempt ──> generated code ──> memory ── none left ──┐
//                      ^                                                                 │
//                      └── the failure value <── blocks of this call released <── longjmp ┘
//
// The jump starts where the memory is asked for, before the generated code has stored anything, so
// the scanner stays as it was. It crosses generated C code alone, in which no object has a
// destructor. An attempt belongs to its thread; attempts do not nest.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdlib>

#include "corelink/scanner.h"

namespace vn::corelink {

struct Attempt {
    jmp_buf way_out;
    void *made[3] = {}; // what this call has allocated so far: a stack, a buffer, its text
    unsigned count = 0;
    void *not_grown = nullptr; // the block whose growing failed
};

// Runs `call(context)` as the attempt `here`; false when it failed.
bool attempt_as(Attempt &here, void *scanner, void (*call)(void *context), void *context);

// Runs `call` on a scanner, and `on_failure` with the attempt when it failed. False then, and for
// a null scanner.
template <typename Call, typename Failure>
bool attempt(void *scanner, Call call, Failure on_failure)
{
    if (scanner == nullptr) return false;
    Attempt here;
    const auto run = [](void *context) { (*static_cast<Call *>(context))(); };
    if (attempt_as(here, scanner, run, &call)) return true;
    on_failure(here);
    return false;
}

template <typename Call>
bool attempt(void *scanner, Call call)
{
    return attempt(scanner, call, [](const Attempt &) {});
}

} // namespace vn::corelink
