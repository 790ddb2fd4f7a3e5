// The program's own memory calls stand before the C library's: for everyone alike they are one test
// slower than those.
#include "allocation_trace.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <unordered_map>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);
}

namespace bench {

class Recorder {
public:
    using Call = AllocationTrace::Call;

    explicit Recorder(AllocationTrace &trace) : trace_(trace) {}

    void made(Call call, void *block, size_t size)
    {
        blocks_[block] = count_;
        trace_.steps_.push_back({call, count_++, size});
    }
    void resized(void *old, void *block, size_t size)
    {
        const auto known = blocks_.find(old);
        if (known == blocks_.end()) return made(Call::kMalloc, block, size);
        const uint32_t index = known->second;
        blocks_.erase(known);
        blocks_[block] = index;
        trace_.steps_.push_back({Call::kRealloc, index, size});
    }
    void released(void *block)
    {
        const auto known = blocks_.find(block);
        if (known == blocks_.end()) return; // older than the recording
        trace_.steps_.push_back({Call::kFree, known->second, 0});
        blocks_.erase(known);
    }
    [[nodiscard]] uint32_t count() const { return count_; }

private:
    AllocationTrace &trace_;
    std::unordered_map<void *, uint32_t> blocks_;
    uint32_t count_ = 0;
};

namespace {

thread_local Recorder *recorder = nullptr;

// Tells the recorder, whose own memory calls go unrecorded.
template <typename Tell>
void record(Tell tell)
{
    Recorder *const active = recorder;
    recorder = nullptr;
    tell(*active);
    recorder = active;
}

} // namespace

void AllocationTrace::begin()
{
    recorder = new Recorder(*this);
}

void AllocationTrace::end()
{
    Recorder *const done = recorder;
    recorder = nullptr;
    blocks_.resize(done->count());
    delete done;
}

void AllocationTrace::replay()
{
    for (const Step &step : steps_) {
        void *&block = blocks_[step.block];
        switch (step.call) {
        case Call::kMalloc: block = std::malloc(step.size); break;
        case Call::kCalloc: block = std::calloc(1, step.size); break;
        case Call::kRealloc: block = std::realloc(block, step.size); break;
        case Call::kFree: std::free(block); break;
        }
        benchmark::DoNotOptimize(block);
    }
}

} // namespace bench

using bench::recorder;
using Call = bench::Recorder::Call;

extern "C" {

void *malloc(size_t size) noexcept
{
    void *const block = __libc_malloc(size);
    if (recorder != nullptr) [[unlikely]]
        bench::record([&](auto &active) { active.made(Call::kMalloc, block, size); });
    return block;
}

void *calloc(size_t count, size_t size) noexcept
{
    void *const block = __libc_calloc(count, size);
    if (recorder != nullptr) [[unlikely]]
        bench::record([&](auto &active) { active.made(Call::kCalloc, block, count * size); });
    return block;
}

void *realloc(void *old, size_t size) noexcept
{
    void *const block = __libc_realloc(old, size);
    if (recorder != nullptr) [[unlikely]]
        bench::record([&](auto &active) { active.resized(old, block, size); });
    return block;
}

void free(void *block) noexcept
{
    if (recorder != nullptr && block != nullptr) [[unlikely]]
        bench::record([&](auto &active) { active.released(block); });
    __libc_free(block);
}
}
