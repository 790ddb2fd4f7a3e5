// base32_bench.cpp - base32; the packaged peers use another bit order, so they convert the same
// amount of data, not to the same text. Sizes are of the data.
#include "vnlib/base32.h"

#include "codecs.h"

#ifdef VN_BENCH_APR
#include <apr_encode.h>
#endif
#ifdef VN_BENCH_LIBOATH
#include <liboath/oath.h>
#endif

namespace {

void encode(benchmark::State &state, size_t size)
{
    const auto bytes = bench::data(size);
    std::string out(2 * size + 16, '\0');
    for (auto _ : state)
        benchmark::DoNotOptimize(base32_encode(bytes.data(), static_cast<unsigned>(size),
                                               out.data(), static_cast<unsigned>(out.size()), 3));
}

void decode(benchmark::State &state, size_t size)
{
    const auto bytes = bench::data(size);
    std::string text(2 * size + 16, '\0');
    base32_encode(bytes.data(), static_cast<unsigned>(size), text.data(),
                  static_cast<unsigned>(text.size()), 3);
    std::vector<uint8_t> out(size + 8);
    bench::require(base32_decode(text.c_str(), out.data(), 3) == 7, "base32");
    for (auto _ : state) benchmark::DoNotOptimize(base32_decode(text.c_str(), out.data(), 3));
}

#ifdef VN_BENCH_APR
void apr_encode(benchmark::State &state, size_t size)
{
    const auto bytes = bench::data(size);
    std::string out(2 * size + 16, '\0');
    apr_size_t length = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(apr_encode_base32_binary(out.data(), bytes.data(),
                                                          static_cast<apr_ssize_t>(size),
                                                          APR_ENCODE_NOPADDING, &length));
}

void apr_decode(benchmark::State &state, size_t size)
{
    const auto bytes = bench::data(size);
    std::string text(2 * size + 16, '\0');
    apr_size_t length = 0;
    apr_encode_base32_binary(text.data(), bytes.data(), static_cast<apr_ssize_t>(size), 0, &length);
    std::vector<uint8_t> out(size + 8);
    for (auto _ : state)
        benchmark::DoNotOptimize(apr_decode_base32_binary(
            out.data(), text.c_str(), APR_ENCODE_STRING, APR_ENCODE_NONE, &length));
}
#endif

#ifdef VN_BENCH_LIBOATH
// Hands out a block of its own each time.
void oath_encode(benchmark::State &state, size_t size)
{
    const auto bytes = bench::data(size);
    for (auto _ : state) {
        char *out = nullptr;
        size_t length = 0;
        oath_base32_encode(reinterpret_cast<const char *>(bytes.data()), size, &out, &length);
        benchmark::DoNotOptimize(out);
        free(out);
    }
}

void oath_decode(benchmark::State &state, size_t size)
{
    const auto bytes = bench::data(size);
    char *text = nullptr;
    size_t length = 0;
    oath_base32_encode(reinterpret_cast<const char *>(bytes.data()), size, &text, &length);
    for (auto _ : state) {
        char *out = nullptr;
        size_t decoded = 0;
        oath_base32_decode(text, length, &out, &decoded);
        benchmark::DoNotOptimize(out);
        free(out);
    }
    free(text);
}
#endif

} // namespace

int main(int argc, char **argv)
{
    bench::add("base32-encode/vnlib", encode);
    bench::add("base32-decode/vnlib", decode);
    bench::add("base32-encode/vnlib-avx2", encode, vn::cpu::kAvx2);
    bench::add("base32-decode/vnlib-avx2", decode, vn::cpu::kAvx2);
    bench::add("base32-encode/vnlib-portable", encode, vn::cpu::kNothing);
    bench::add("base32-decode/vnlib-portable", decode, vn::cpu::kNothing);
#ifdef VN_BENCH_APR
    bench::add("base32-encode/apr", apr_encode);
    bench::add("base32-decode/apr", apr_decode);
#endif
#ifdef VN_BENCH_LIBOATH
    bench::add("base32-encode/liboath", oath_encode);
    bench::add("base32-decode/liboath", oath_decode);
#endif
    return bench::run(argc, argv, bench::all_agree);
}
