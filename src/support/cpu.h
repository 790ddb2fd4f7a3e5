// cpu.h - which instructions this processor has, for modules that have versions written for them.
//
// A module asks has(kFeature) at each call and falls back to its portable version. The answer is
// one word in memory, found out at the first question and never changed: asking costs a load and a
// test, needs no lock and no constructor, and leaves no function pointers for anyone to overwrite.
//
// VNLIB_PORTABLE_ONLY leaves out all versions for particular processors.
#pragma once

#include <atomic>
#include <cstdint>

// Which families of versions are compiled. Every version carries its own target attribute, so the
// library itself can be built for the family's oldest processor.
#if defined(__x86_64__) && !defined(VNLIB_PORTABLE_ONLY)
#define VN_CPU_X86 1
#else
#define VN_CPU_X86 0
#endif

#if (defined(__aarch64__) || (defined(__arm__) && __ARM_ARCH >= 7)) &&                             \
    __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ && !defined(VNLIB_PORTABLE_ONLY)
#define VN_CPU_ARM 1
#else
#define VN_CPU_ARM 0
#endif

// Clang before 16 has the SHA intrinsics only where they are switched on for everything.
#if VN_CPU_ARM && (!defined(__clang__) || __clang_major__ >= 16 || defined(__ARM_FEATURE_SHA2))
#define VN_CPU_ARM_SHA 1
#else
#define VN_CPU_ARM_SHA 0
#endif
#define VN_CPU_SHA (VN_CPU_X86 || VN_CPU_ARM_SHA) // instructions for SHA-1 and SHA-256

namespace vn::cpu {

// Each bit stands for all that a version needs, support by the operating system included.
enum Feature : uint32_t {
    kNothing = 0,
    kCrc32 = 1u << 0,      // x86: SSE4.2 and PCLMULQDQ; ARM: the CRC32 instructions
    kWideClmul = 1u << 1,  // x86: kCrc32, AVX-512 (F, BW, DQ, VL) and VPCLMULQDQ
    kSha1 = 1u << 2,       // x86: SHA extensions; ARM: the SHA-1 instructions
    kSha256 = 1u << 3,     // x86: SHA extensions; ARM: the SHA-256 instructions
    kSsse3 = 1u << 4,      // x86
    kAvx2 = 1u << 5,       // x86
    kVbmi = 1u << 6,       // x86: AVX-512 (F, BW, DQ, VL) and VBMI
    kNeon = 1u << 7,       // AArch64
    kSha1Avx512 = 1u << 8, // x86: kSha1 and AVX-512 (F, BW, DQ, VL)
    kEverything = 0x7FFF'FFFFu
};

namespace detail {
constexpr uint32_t kDetected = 0x8000'0000u; // tells "no features" from "not asked yet"
extern std::atomic<uint32_t> known;
uint32_t detect();
} // namespace detail

[[nodiscard]] inline bool has(Feature feature)
{
    uint32_t known = detail::known.load(std::memory_order_relaxed);
    if (__builtin_expect(known == 0, 0)) known = detail::detect();
    return (known & feature) != 0;
}

// For tests and benchmarks, which link the static library: from now on only features in `allowed`
// count, as far as the processor has them.
void force(uint32_t allowed);

} // namespace vn::cpu
