// churn.h - a program at work: many blocks live, and others come and go.
//
// Shared by memcheck_bench and by memcheck_asan_peer: AddressSanitizer takes a whole program. That
// one is given the number of blocks, runs a batch for each byte sent to it, and answers with a
// BatchResult.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "bench.h"

namespace bench {

constexpr size_t kBlockSize = 64;
constexpr size_t kBatch = 1000;

struct BatchResult {
    double seconds;
    uint64_t sum; // of what the released blocks held
};

template <typename Allocator>
class Churn {
public:
    explicit Churn(size_t live) : blocks_(live)
    {
        for (void *&block : blocks_) block = fresh();
    }
    ~Churn()
    {
        for (void *const block : blocks_) allocator_.release(block);
    }
    Churn(const Churn &) = delete;
    Churn &operator=(const Churn &) = delete;

    // Allocates a block and releases it again, beside those that are live.
    BatchResult pairs()
    {
        return timed([this] {
            void *const block = fresh();
            return given_back(block);
        });
    }
    // Replaces a block anywhere among the live ones.
    BatchResult replacements()
    {
        return timed([this] {
            random_ = random_ * 6364136223846793005u + 1442695040888963407u;
            void *&block = blocks_[static_cast<size_t>(random_ >> 33) % blocks_.size()];
            const uint64_t serial = given_back(block);
            block = fresh();
            return serial;
        });
    }

private:
    template <typename Operation>
    static BatchResult timed(Operation operation)
    {
        const double begin = processor_time();
        uint64_t sum = 0;
        for (size_t i = 0; i < kBatch; ++i) sum += operation();
        return {processor_time() - begin, sum};
    }
    void *fresh()
    {
        void *block = allocator_.allocate(kBlockSize);
        benchmark::DoNotOptimize(block);
        memcpy(block, &serial_, sizeof serial_);
        ++serial_;
        return block;
    }
    uint64_t given_back(void *block)
    {
        uint64_t serial;
        memcpy(&serial, block, sizeof serial);
        allocator_.release(block);
        return serial;
    }

    Allocator allocator_;
    std::vector<void *> blocks_;
    uint64_t serial_ = 0;
    uint64_t random_ = 1;
};

} // namespace bench
