// Bit helpers beside the compiler's own builtins, which a caller would write otherwise. One call is
// a call into the shared library for us and inlined code for the peer: the row shows its price.
#include "bench.h"

#include <random>
#include <vector>

#include "vnlib/bits.h"

namespace {

constexpr size_t kValues = 1024;

std::vector<uint64_t> values()
{
    std::mt19937_64 random(1);
    std::vector<uint64_t> values(kValues);
    for (uint64_t &value : values) value = random() >> (random() % 63);
    return values;
}

struct Function {
    const char *name;
    uint64_t (*vnlib)(uint64_t value, uint64_t next);
    uint64_t (*builtin)(uint64_t value, uint64_t next);
};

int compare_plainly(uint64_t a, uint64_t b)
{
    const auto ahead = static_cast<int64_t>(a - b);
    return ahead < 0 ? -1 : ahead > 1;
}

uint32_t low(uint64_t value)
{
    return static_cast<uint32_t>(value);
}

constexpr Function kFunctions[] = {
    {"clz", [](uint64_t v, uint64_t) -> uint64_t { return clz(low(v)); },
     [](uint64_t v, uint64_t) -> uint64_t {
         return low(v) == 0 ? 32 : static_cast<uint64_t>(__builtin_clz(low(v)));
     }},
    {"ctz", [](uint64_t v, uint64_t) -> uint64_t { return ctz(low(v)); },
     [](uint64_t v, uint64_t) -> uint64_t {
         return low(v) == 0 ? 32 : static_cast<uint64_t>(__builtin_ctz(low(v)));
     }},
    {"vn_ilog2", [](uint64_t v, uint64_t) -> uint64_t { return vn_ilog2(low(v)); },
     [](uint64_t v, uint64_t) -> uint64_t {
         return static_cast<uint64_t>(31 - __builtin_clz(low(v) | 1));
     }},
    {"vn_ilog2_64", [](uint64_t v, uint64_t) -> uint64_t { return vn_ilog2_64(v); },
     [](uint64_t v, uint64_t) -> uint64_t {
         return static_cast<uint64_t>(63 - __builtin_clzll(v | 1));
     }},
    {"cmpnumle64", [](uint64_t a, uint64_t b) { return static_cast<uint64_t>(cmpnumle64(&a, &b)); },
     [](uint64_t a, uint64_t b) { return static_cast<uint64_t>(compare_plainly(a, b)); }},
    {"cmpnumbe64", [](uint64_t a, uint64_t b) { return static_cast<uint64_t>(cmpnumbe64(&a, &b)); },
     [](uint64_t a, uint64_t b) {
         return static_cast<uint64_t>(compare_plainly(__builtin_bswap64(a), __builtin_bswap64(b)));
     }},
};

bool peers_agree()
{
    const std::vector<uint64_t> all = values();
    for (const Function &function : kFunctions)
        for (size_t i = 1; i < all.size(); ++i)
            if (function.vnlib(all[i - 1], all[i]) != function.builtin(all[i - 1], all[i]))
                return false;
    return true;
}

void call(benchmark::State &state, uint64_t (*function)(uint64_t, uint64_t))
{
    const std::vector<uint64_t> all = values();
    for (auto _ : state)
        for (size_t i = 1; i < all.size(); ++i)
            benchmark::DoNotOptimize(function(all[i - 1], all[i]));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * (kValues - 1)));
}

} // namespace

int main(int argc, char **argv)
{
    for (const Function &function : kFunctions) {
        benchmark::RegisterBenchmark(bench::row(function.name, "vnlib", kValues).c_str(), call,
                                     function.vnlib);
        benchmark::RegisterBenchmark(bench::row(function.name, "builtin", kValues).c_str(), call,
                                     function.builtin);
    }
    return bench::run(argc, argv, peers_agree);
}
