// allocation_trace.h - replays the memory calls of a piece of work without the work itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

class AllocationTrace {
public:
    // Records what `work` asks of the C library, in this thread.
    template <typename Work>
    static AllocationTrace of(Work work)
    {
        AllocationTrace trace;
        trace.begin();
        work();
        trace.end();
        return trace;
    }

    // The same calls in the same order, with the same sizes.
    void replay();

private:
    friend class Recorder;
    enum class Call : uint8_t { kMalloc, kCalloc, kRealloc, kFree };
    struct Step {
        Call call;
        uint32_t block; // an index in blocks_
        size_t size;
    };

    void begin();
    void end();

    std::vector<Step> steps_;
    std::vector<void *> blocks_;
};

} // namespace bench
