// buffers.h - data for tests of functions over memory, and memory that ends where it says it does.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

namespace test {

using Bytes = std::vector<uint8_t>;

inline Bytes counting_bytes(size_t count, unsigned first = 0)
{
    Bytes bytes(count);
    for (size_t i = 0; i < count; ++i) bytes[i] = static_cast<uint8_t>(first + i);
    return bytes;
}

inline Bytes random_bytes(size_t count, unsigned seed = 1)
{
    std::mt19937 engine(seed);
    Bytes bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(engine() >> 11); });
    return bytes;
}

// `size` bytes, zero at first, with a page that nobody may touch right behind them (kEnd) or right
// before them (kStart): an access beyond ends the test at once, also when no sanitizer looks on and
// the access is made by instructions that no sanitizer knows.
class Guarded {
public:
    enum Edge { kStart, kEnd };

    explicit Guarded(size_t size, Edge edge = kEnd)
    {
        const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t pages = (size + page - 1) / page * page;
        mapped_ = pages + 2 * page;
        void *at = mmap(nullptr, mapped_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (at == MAP_FAILED) std::abort();
        base_ = static_cast<uint8_t *>(at);
        if (mprotect(base_ + page, pages, PROT_READ | PROT_WRITE) != 0 && pages != 0) std::abort();
        data_ = base_ + page + (edge == kEnd ? pages - size : 0);
    }
    Guarded(const Bytes &content, Edge edge = kEnd) : Guarded(content.size(), edge)
    {
        std::copy(content.begin(), content.end(), data_);
    }
    ~Guarded() { munmap(base_, mapped_); }
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    [[nodiscard]] uint8_t *data() const { return data_; }
    [[nodiscard]] char *text() const { return reinterpret_cast<char *>(data_); }

private:
    uint8_t *base_ = nullptr;
    size_t mapped_ = 0;
    uint8_t *data_ = nullptr;
};

} // namespace test
