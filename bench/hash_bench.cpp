// hash_bench.cpp - hashing of texts and buffers, beside GLib's text hash and the standard
// library's. The peers are other functions: they hash the same text, not to the same key.
#include "vnlib/hash.h"

#include <functional>
#include <string_view>

#include "bench.h"

#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif

namespace {

std::string text_of(size_t size)
{
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('!' + i * 7 % 90);
    return text;
}

template <typename Hash>
void add(const char *operation, const char *who, Hash hash)
{
    for (const size_t size : {8u, 24u, 64u, 256u, 4096u, 65536u})
        benchmark::RegisterBenchmark(bench::row(operation, who, size).c_str(),
                                     [=](benchmark::State &state) {
                                         std::string text = text_of(size);
                                         for (auto _ : state) {
                                             benchmark::DoNotOptimize(text.data());
                                             benchmark::DoNotOptimize(hash(text));
                                         }
                                     });
}

uint32_t length_of(const std::string &text)
{
    return static_cast<uint32_t>(text.size());
}

// FNV-1a in its plainest words: no peer does the same work.
template <typename Word>
Word fnv1a(const std::string &text, Word hash, Word prime)
{
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * prime;
    return hash;
}

bool hashes_agree()
{
    const std::string text = text_of(1000);
    const uint32_t narrow = fnv1a<uint32_t>(text, 0x811C9DC5, 0x01000193);
    const uint64_t wide = fnv1a<uint64_t>(text, 0xCBF29CE484222325, 0x100000001B3);
    return hash_str(text.c_str()) == narrow && hash_str_64(text.c_str()) == wide &&
           hash_buf(text.data(), length_of(text)) == narrow &&
           hash_buf_64(text.data(), length_of(text)) == wide;
}

} // namespace

int main(int argc, char **argv)
{
    add("text", "vnlib", [](const std::string &text) { return hash_str(text.c_str()); });
    add("text", "vnlib-64", [](const std::string &text) { return hash_str_64(text.c_str()); });
    add("text", "std", [](const std::string &text) {
        return std::hash<std::string_view>{}(text.c_str()); // its length is to be found as well
    });
#ifdef VN_BENCH_GLIB
    add("text", "glib", [](const std::string &text) { return g_str_hash(text.c_str()); });
#endif
    add("buffer", "vnlib",
        [](const std::string &text) { return hash_buf(text.data(), length_of(text)); });
    add("buffer", "vnlib-64",
        [](const std::string &text) { return hash_buf_64(text.data(), length_of(text)); });
    add("buffer", "std",
        [](const std::string &text) { return std::hash<std::string_view>{}(text); });
    return bench::run(argc, argv, hashes_agree);
}
