// codecs.h - what the benchmarks of codecs share: data, sizes, and one row per version of ours.
#pragma once

#include <random>
#include <string>
#include <vector>

#include "bench.h"
#include "support/cpu.h"

namespace bench {

inline std::vector<uint8_t> data(size_t size)
{
    std::mt19937 engine(1);
    std::vector<uint8_t> bytes(size);
    for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(engine() >> 9);
    return bytes;
}

inline const std::vector<int64_t> kSizes = {16, 64, 256, 1024, 4096, 65536, 1 << 20};

// Registers `body(state, size)` as row "<operation>/<who>" for all sizes with the library limited
// to `features`.
template <typename Body>
void add(const std::string &row, Body body, uint32_t features = vn::cpu::kEverything,
         const std::vector<int64_t> &sizes = kSizes)
{
    for (const int64_t size : sizes)
        benchmark::RegisterBenchmark((row + "/" + std::to_string(size)).c_str(),
                                     [=](benchmark::State &state) {
                                         vn::cpu::force(features);
                                         body(state, static_cast<size_t>(size));
                                         state.SetBytesProcessed(state.iterations() * size);
                                         vn::cpu::force(vn::cpu::kEverything);
                                     });
}

} // namespace bench
