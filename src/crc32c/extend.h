// extend.h - the versions of the CRC loop. Each takes `length` bytes into the running remainder
// `state`, which starts as all ones and is complemented at the very end.
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/cpu.h"
#include "support/small.h"

namespace vn::crc32c {

// Castagnoli's polynomial x^32 + x^28 + x^27 + ... + x^6 + 1, bits reflected, without x^32.
constexpr uint32_t kPolynomial = 0x82F6'3B78u;

// By tables, one of which takes 1 KiB: more tables are faster until they crowd the cache out. 16
// are well spent on a big processor, 8 are the limit on a small one, and where size counts, a
// single one takes the message byte by byte.
constexpr size_t kFastTables = sizeof(void *) >= 8 ? 16 : 8;
constexpr size_t kTables = kSmall ? 1 : kFastTables;
template <size_t kSlices>
uint32_t extend_portable(uint32_t state, const uint8_t *data, size_t length);
#if VN_CPU_X86
uint32_t extend_sse42(uint32_t state, const uint8_t *data, size_t length);
uint32_t extend_avx512(uint32_t state, const uint8_t *data, size_t length);
#elif VN_CPU_ARM
uint32_t extend_arm(uint32_t state, const uint8_t *data, size_t length);
#endif

// Calls the best version that this processor has.
inline uint32_t extend(uint32_t state, const uint8_t *data, size_t length)
{
#if VN_CPU_X86
    if (cpu::has(cpu::kWideClmul)) return extend_avx512(state, data, length);
    if (cpu::has(cpu::kCrc32)) return extend_sse42(state, data, length);
#elif VN_CPU_ARM
    if (cpu::has(cpu::kCrc32)) return extend_arm(state, data, length);
#endif
    return extend_portable<kTables>(state, data, length);
}

} // namespace vn::crc32c
