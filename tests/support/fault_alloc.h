// fault_alloc.h - makes chosen allocations of the library under test fail.
//
// Works in programs made with vnlib_fault_test(): the linker sends every malloc, calloc and realloc
// of the (static) library and of the test itself through the counters here. Only the thread that
// arms a plan is affected.
#pragma once

#include <cstddef>

namespace fault {

// While alive: the allocation numbered `first` (counting from 1) and the `count - 1` after it fail
// with ENOMEM; all others succeed. Plans do not nest.
class FailAllocations {
public:
    explicit FailAllocations(size_t first, size_t count = 1);
    ~FailAllocations();
    FailAllocations(const FailAllocations &) = delete;
    FailAllocations &operator=(const FailAllocations &) = delete;

    [[nodiscard]] size_t seen() const;   // allocations asked for since this plan began
    [[nodiscard]] size_t failed() const; // how many of them were made to fail
};

// How many allocations this thread has asked for so far.
size_t allocations_made();

// Runs `attempt` with allocation 1, then 2, then 3, ... failing, until a run sees no failure.
// `attempt` is called inside the armed plan. Returns how many failing runs there were.
template <typename Attempt>
size_t for_each_failing_allocation(Attempt attempt)
{
    for (size_t nth = 1;; ++nth) {
        size_t failed = 0;
        {
            const FailAllocations plan(nth);
            attempt();
            failed = plan.failed();
        }
        if (failed == 0) return nth - 1;
    }
}

} // namespace fault
