// iovec_bench.cpp - vectors of 1 KiB elements; sizes are of the bytes that a vector describes. The
// peer of gathering and scattering is one memcpy of as many bytes.
#include "vnlib/iovec.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "bench.h"

namespace {

constexpr size_t kElement = 1024;

struct Vector {
    explicit Vector(size_t size) : bytes(size, 0x5A), flat(size)
    {
        for (size_t at = 0; at < size; at += kElement)
            parts.push_back({bytes.data() + at, std::min(kElement, size - at)});
    }
    [[nodiscard]] unsigned count() const { return static_cast<unsigned>(parts.size()); }

    std::vector<uint8_t> bytes, flat;
    std::vector<iovec> parts;
};

void size(benchmark::State &state, size_t bytes)
{
    const Vector vector(bytes);
    for (auto _ : state)
        benchmark::DoNotOptimize(size_iovec(vector.parts.data(), static_cast<int>(vector.count())));
}

void locate(benchmark::State &state, size_t bytes)
{
    const Vector vector(bytes);
    for (auto _ : state) {
        size_t offset = bytes - 1;
        int index = 0;
        check_end_of_iov(vector.parts.data(), static_cast<int>(vector.count()), &offset, &index);
        benchmark::DoNotOptimize(index);
    }
}

void subset(benchmark::State &state, size_t bytes)
{
    const Vector vector(bytes);
    std::vector<iovec> spare(vector.parts.size());
    for (auto _ : state) {
        iovec *out = nullptr;
        unsigned count = 0;
        benchmark::DoNotOptimize(fill_iovec_subset(&out, &count, bytes - 2, 1, spare.data(),
                                                   vector.count(), vector.parts.data(),
                                                   vector.count()));
    }
}

void gather(benchmark::State &state, size_t bytes)
{
    Vector vector(bytes);
    for (auto _ : state) {
        linearise_iovec(vector.parts.data(), vector.count(), vector.flat.data(), bytes);
        benchmark::ClobberMemory();
    }
}

void scatter(benchmark::State &state, size_t bytes)
{
    Vector vector(bytes);
    for (auto _ : state) {
        delinearise_to_iovec(vector.parts.data(), static_cast<int>(vector.count()),
                             vector.flat.data(), bytes);
        benchmark::ClobberMemory();
    }
}

void copy(benchmark::State &state, size_t bytes)
{
    Vector vector(bytes);
    for (auto _ : state) {
        memcpy(vector.flat.data(), vector.bytes.data(), bytes);
        benchmark::ClobberMemory();
    }
}

bool peers_agree()
{
    Vector vector(10 * kElement + 5);
    linearise_iovec(vector.parts.data(), vector.count(), vector.flat.data(), vector.flat.size());
    return vector.flat == vector.bytes;
}

} // namespace

int main(int argc, char **argv)
{
    for (const size_t bytes :
         {size_t{16}, size_t{256}, size_t{4} << 10, size_t{64} << 10, size_t{1} << 20}) {
        const auto add = [bytes](const char *operation, const char *who, auto body) {
            benchmark::RegisterBenchmark(bench::row(operation, who, bytes).c_str(), body, bytes);
        };
        add("size", "vnlib", size);
        add("locate", "vnlib", locate);
        add("subset", "vnlib", subset);
        add("gather", "vnlib", gather);
        add("gather", "memcpy", copy);
        add("scatter", "vnlib", scatter);
        add("scatter", "memcpy", copy);
    }
    return bench::run(argc, argv, peers_agree);
}
