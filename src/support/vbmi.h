// vbmi.h - what the codecs share for x86-64 processors that permute bytes across a register of 512
// bits (AVX-512 VBMI).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "support/x86_intrinsics.h"

#define VN_VBMI                                                                                    \
    __attribute__((target("avx512f,avx512bw,avx512dq,avx512vl,avx512vbmi,avx2,bmi,bmi2")))

namespace vn::vbmi {

// A byte for each of the 64 places of a register.
struct alignas(64) Table : std::array<uint8_t, 64> {};

template <typename Rule>
consteval Table make_table(Rule rule)
{
    Table table{};
    for (size_t place = 0; place < table.size(); ++place)
        table[place] = static_cast<uint8_t>(rule(place));
    return table;
}

VN_VBMI inline __m512i load_table(const Table &table)
{
    return _mm512_load_si512(table.data());
}

// The first 32 places.
VN_VBMI inline __m256i load_half(const Table &table)
{
    return _mm256_load_si256(reinterpret_cast<const __m256i *>(table.data()));
}

} // namespace vn::vbmi
