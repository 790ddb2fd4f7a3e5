// Reading a document: "parse" with the release of the tree, "parse_only" without. "allocations" is
// what the library asks of the C library's memory functions meanwhile, and nothing else.
#include "allocation_trace.h"
#include "bench.h"
#include "corelink_peers.h"

namespace bench {

namespace {

constexpr size_t kSizes[] = {1 << 10, 10 << 10, 100 << 10, 1 << 20, 10 << 20};
constexpr size_t kGrowth[] = {10'000, 1'000'000, 100'000'000};

void count_bytes(benchmark::State &state, const Document &document)
{
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(document.size));
}

void parse(benchmark::State &state, const Reader &reader, const Document &document)
{
    settle_heap();
    for (auto _ : state) reader.release(reader.parse(document));
    count_bytes(state, document);
}

void parse_only(benchmark::State &state, const Reader &reader, const Document &document)
{
    settle_heap();
    for (auto _ : state) {
        void *tree = nullptr;
        time(state, [&] { tree = reader.parse(document); });
        reader.release(tree);
    }
    count_bytes(state, document);
}

void allocations(benchmark::State &state, const Document &document)
{
    settle_heap();
    auto trace = AllocationTrace::of([&] { readers()[0].release(readers()[0].parse(document)); });
    for (auto _ : state) trace.replay();
    count_bytes(state, document);
}

} // namespace

bool parse_agrees()
{
    for (const Reader &reader : readers()) {
        void *const expected = readers()[0].parse(records(kSizes[1]));
        void *const tree = reader.parse(records(kSizes[1]));
        const bool same = readers()[0].content(expected) == reader.content(tree);
        reader.release(tree);
        readers()[0].release(expected);
        if (same) continue;
        std::fprintf(stderr, "%s reads something else\n", reader.name);
        return false;
    }
    return true;
}

void add_parse_rows()
{
    for (const size_t size : kSizes) {
        benchmark::RegisterBenchmark(
            row("parse", "allocations", size).c_str(),
            [size](benchmark::State &state) { allocations(state, records(size)); });
        for (const Reader &reader : readers()) {
            benchmark::RegisterBenchmark(
                row("parse", reader.name, size).c_str(),
                [&reader, size](benchmark::State &state) { parse(state, reader, records(size)); });
            benchmark::RegisterBenchmark(row("parse_only", reader.name, size).c_str(),
                                         [&reader, size](benchmark::State &state) {
                                             parse_only(state, reader, records(size));
                                         })
                ->UseManualTime();
        }
    }
    for (const size_t size : kGrowth) {
        benchmark::RegisterBenchmark(
            row("parse_growth", "vnlib", size).c_str(),
            [size](benchmark::State &state) { parse(state, readers()[0], records(size)); });
    }
}

} // namespace bench
