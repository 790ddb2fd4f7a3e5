// bench.h - what the benchmark programs share.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <time.h>

namespace bench {

inline std::string row(const std::string &operation, const std::string &who, size_t size)
{
    return operation + "/" + who + "/" + std::to_string(size);
}

// Whether all programs together have less than a minute: for rows that fix their iterations.
inline bool quick()
{
    return std::getenv("VN_BENCH_QUICK") != nullptr;
}

// Seconds that this thread has had a processor: what else runs on the machine does not count.
inline double processor_time()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Times `body` alone, between preparations that are not counted; for rows with manual time.
template <typename Body>
void time(benchmark::State &state, Body body)
{
    const double begin = processor_time();
    body();
    state.SetIterationTime(processor_time() - begin);
}

// What require() has seen so far, for bench::run().
inline bool &agreement()
{
    static bool agreed = true;
    return agreed;
}

inline bool all_agree()
{
    return agreement();
}

inline void require(bool equal, const std::string &what)
{
    if (equal) return;
    std::fprintf(stderr, "%s: results differ\n", what.c_str());
    agreement() = false;
}

// Compares results first: a peer that does other work is no peer.
inline int run(int argc, char **argv, bool (*peers_agree)())
{
    if (!peers_agree()) {
        std::fputs("the results of the peers differ; nothing was timed\n", stderr);
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace bench
