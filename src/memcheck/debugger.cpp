// debugger.cpp - starting, checking, drawing, stopping; see debugger.h.
#include "memcheck/debugger.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <unistd.h>

#include "memcheck/screen.h"
#include "support/quiet_thread.h"

namespace vn::memcheck {

constinit std::atomic<Context *> handle = nullptr;
constinit std::atomic<Context *> tracker = nullptr;

namespace {

constexpr unsigned kPassesPerPanel = 1001;
constexpr unsigned kPanelLines = kLastSiteLine - kFirstSiteLine + 1;

constinit std::atomic<Context *> newest = nullptr; // and through it all older ones stay in reach

// The lines are copied out of the registry first: a slow terminal must not hold up allocations.
void show_top(Registry &registry)
{
    char lines[kPanelLines][Registry::kSummarySize];
    write_out("\x1b[H");
    show_line(kBannerLine, "=== Vornel Memory Debugger ===");
    const unsigned used = registry.summarise(lines, kPanelLines);
    for (unsigned line = 0; line < kPanelLines; ++line)
        show_line(kFirstSiteLine + static_cast<int>(line), line < used ? lines[line] : "");
    show_line(kRuleLine,
              "------------------------------------DEBUG------------------------------------");
}

// --- the checker -----------------------------------------------------------------------------

// A context that a second start has replaced goes on being checked, but is no longer shown.
void refresh_panel(Context &context)
{
    const MutexLock hold(context.drawing);
    if (tracking() == &context && !had_last_words()) show_top(context.registry);
}

void *check_until_stopped(void *argument)
{
    Context &context = *static_cast<Context *>(argument);
    {
        const MutexLock until_the_screen_is_clear(context.drawing);
    }
    unsigned passes = 0;
    while (context.running.load(std::memory_order_acquire)) {
        context.registry.check_all();
        if (++passes == kPassesPerPanel) {
            refresh_panel(context);
            passes = 0;
        }
        usleep(1);
    }
    return nullptr;
}

void start_checker(Context &context)
{
    const MutexLock hold(context.drawing); // the checker waits for it, and so for a clear screen
    const int error = create_quiet_thread(&context.checker, check_until_stopped, &context);
    context.has_checker = error == 0;
    if (error == 0) {
        write_out("\x1b[2J");
        write_out("\x1b[H");
        show_line(0, {});
        return;
    }
    // Blocks are tracked all the same, with nobody to check them: callers rely on the start.
    char text[kLongestPiece + 1];
    const int length =
        snprintf(text, sizeof text, "vn_memory_start - unable to start vn memcheck %d\n", error);
    write_out({text, static_cast<size_t>(length)});
}

// --- fork ------------------------------------------------------------------------------------
// The child has no checker, and must not inherit a lock that the checker held. So the thread that
// forks takes all of them first, and both parent and child give them back.

constinit std::atomic<bool> fork_is_handled = false;
constinit Context *held_for_fork = nullptr; // written under fork's own lock

void before_fork() VN_NO_THREAD_ANALYSIS
{
    held_for_fork = current_context();
    if (held_for_fork == nullptr) return;
    held_for_fork->drawing.lock();
    held_for_fork->pane.mutex().lock();
    held_for_fork->registry.mutex().lock();
    lock_screen_for_fork();
}

void after_fork_in_parent() VN_NO_THREAD_ANALYSIS
{
    if (held_for_fork == nullptr) return;
    unlock_screen_after_fork();
    held_for_fork->registry.mutex().unlock();
    held_for_fork->pane.mutex().unlock();
    held_for_fork->drawing.unlock();
}

void after_fork_in_child() VN_NO_THREAD_ANALYSIS
{
    if (held_for_fork == nullptr) return;
    held_for_fork->has_checker = false;
    held_for_fork->registry.mutex().forget_waiting();
    after_fork_in_parent();
}

} // namespace

// --- its life --------------------------------------------------------------------------------

bool start()
{
    void *const memory = malloc(sizeof(Context));
    Context *const context = memory != nullptr ? new (memory) Context() : nullptr;
    if (context != nullptr) context->older = newest.exchange(context);
    handle.store(context, std::memory_order_release);
    tracker.store(context, std::memory_order_release);
    if (context == nullptr) return false;
    if (!fork_is_handled.exchange(true))
        pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    write_out("Staring memory debug\n");
    start_checker(*context);
    return true;
}

bool stop()
{
    Context *const context = tracking();
    if (context == nullptr) return false;
    context->drawing.lock();
    const bool first = tracking() == context;
    const bool has_checker = context->has_checker;
    const pthread_t checker = context->checker;
    if (first) {
        show_line(kFirstSiteLine, "=============== MemDebug  Top ===============");
        show_top(context->registry);
        show_line(kLastSiteLine, "============= MemDebug Complete =============");
        tracker.store(nullptr, std::memory_order_release);
        context->running.store(false, std::memory_order_release);
    }
    context->drawing.unlock();
    // Stopping may be part of what the program does on exit, and the exit the checker's own.
    if (first && has_checker && checker != pthread_self()) pthread_join(checker, nullptr);
    return first;
}

} // namespace vn::memcheck
