// debugger.h - the memory debugger as a whole: its context, its checker thread, its life.
//
// Contexts are never freed. A thread may have read the handle just before another one stops the
// tracker, and what was recorded stays on record: stopping belongs to the end of a process.
//
// Lock order: drawing, then registry or pane, then screen.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>

#include "memcheck/pane.h"
#include "memcheck/registry.h"
#include "memcheck/screen.h"
#include "support/mutex.h"

namespace vn::memcheck {

struct Context {
    std::atomic<bool> running = true; // until it is stopped, also when another has replaced it
    CountLine count_line;
    Registry registry;
    Pane pane;
    Mutex drawing; // who has it draws the panel; nobody may after the stop has
    pthread_t checker VN_GUARDED_BY(drawing){};
    bool has_checker VN_GUARDED_BY(drawing) = false;
    Context *older = nullptr;
};

// Hidden here too: a declaration is not by itself, and its address would be looked up in a table.
#define VN_HIDDEN [[gnu::visibility("hidden")]]
VN_HIDDEN extern constinit std::atomic<Context *> handle;  // null until the first start
VN_HIDDEN extern constinit std::atomic<Context *> tracker; // while blocks are tracked, else null

inline Context *current_context()
{
    return handle.load(std::memory_order_acquire);
}

// The context while blocks are being tracked, else null. With the tracker off this is all that a
// tracked call costs.
inline Context *tracking()
{
    return tracker.load(std::memory_order_acquire);
}

// False when there is no memory for a context; the tracker is then off.
bool start();

// False when nothing is running.
bool stop();

} // namespace vn::memcheck
