// crc32c_bench.cpp - CRC-32C of buffers and of vectors with parts of 37 B and 1 KiB.
#include "vnlib/crc32c.h"

#include "codecs.h"

#ifdef VN_BENCH_ISAL
#include <isa-l/crc.h>
extern "C" unsigned crc32_iscsi_01(unsigned char *, int, unsigned); // its version for SSE4.2
#endif

namespace {

namespace cpu = vn::cpu;

template <typename Function>
auto over_buffer(Function function)
{
    return [=](benchmark::State &state, size_t size) {
        const auto bytes = bench::data(size);
        for (auto _ : state) benchmark::DoNotOptimize(function(bytes.data(), size));
    };
}

uint32_t ours(const uint8_t *data, size_t size)
{
    return crc32c(data, static_cast<unsigned>(size));
}

// The plainest loop there is, for scale.
uint32_t byte_table(const uint8_t *data, size_t size)
{
    static const auto table = [] {
        std::vector<uint32_t> entries(256);
        for (uint32_t i = 0; i < 256; ++i) {
            entries[i] = i;
            for (int bit = 0; bit < 8; ++bit)
                entries[i] = (entries[i] >> 1) ^ (entries[i] & 1 ? 0x82F6'3B78u : 0);
        }
        return entries;
    }();
    uint32_t crc = 0xFFFF'FFFFu;
    for (size_t i = 0; i < size; ++i) crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return __builtin_bswap32(~crc);
}

template <typename Function>
auto over_parts(size_t part, Function function)
{
    return [=](benchmark::State &state, size_t size) {
        auto bytes = bench::data(size);
        std::vector<iovec> parts;
        for (size_t at = 0; at < size; at += part)
            parts.push_back({bytes.data() + at, std::min(part, size - at)});
        for (auto _ : state) benchmark::DoNotOptimize(function(parts));
    };
}

uint32_t our_parts(const std::vector<iovec> &parts)
{
    return crc32cv(parts.data(), static_cast<unsigned>(parts.size()));
}

#ifdef VN_BENCH_ISAL
template <auto kCrc>
uint32_t isal(const uint8_t *data, size_t size)
{
    const unsigned crc = kCrc(const_cast<uint8_t *>(data), static_cast<int>(size), 0xFFFF'FFFFu);
    return __builtin_bswap32(~crc);
}

uint32_t isal_parts(const std::vector<iovec> &parts)
{
    unsigned crc = 0xFFFF'FFFFu;
    for (const iovec &part : parts)
        crc =
            crc32_iscsi(static_cast<uint8_t *>(part.iov_base), static_cast<int>(part.iov_len), crc);
    return __builtin_bswap32(~crc);
}
#endif

void check()
{
    for (const size_t size : {0ul, 1ul, 16ul, 1000ul, 65536ul, 100'003ul}) {
        const auto bytes = bench::data(size);
        bench::require(ours(bytes.data(), size) == byte_table(bytes.data(), size), "byte table");
#ifdef VN_BENCH_ISAL
        bench::require(ours(bytes.data(), size) == isal<crc32_iscsi>(bytes.data(), size), "ISA-L");
#endif
    }
}

} // namespace

int main(int argc, char **argv)
{
    check();
    const std::vector<int64_t> parted = {4096, 65536};
    bench::add("crc32c/vnlib", over_buffer(ours));
    bench::add("crc32c/vnlib-sse42", over_buffer(ours), cpu::kCrc32);
    bench::add("crc32c/vnlib-portable", over_buffer(ours), cpu::kNothing);
    bench::add("crc32c/byte-table", over_buffer(byte_table));
    bench::add("crc32cv-37/vnlib", over_parts(37, our_parts), cpu::kEverything, parted);
    bench::add("crc32cv-1024/vnlib", over_parts(1024, our_parts), cpu::kEverything, parted);
#ifdef VN_BENCH_ISAL
    bench::add("crc32c/isal", over_buffer(isal<crc32_iscsi>));
    bench::add("crc32c/isal-sse42", over_buffer(isal<crc32_iscsi_01>));
    bench::add("crc32cv-37/isal", over_parts(37, isal_parts), cpu::kEverything, parted);
    bench::add("crc32cv-1024/isal", over_parts(1024, isal_parts), cpu::kEverything, parted);
#endif
    return bench::run(argc, argv, bench::all_agree);
}
