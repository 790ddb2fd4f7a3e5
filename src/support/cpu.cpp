// cpu.cpp - asks the processor (x86) or the kernel (ARM) once.
//
// Two threads that ask at the same time find the same answer and store it twice.
#include "support/cpu.h"

#if VN_CPU_X86
#include <cpuid.h>
#elif VN_CPU_ARM
#include <sys/auxv.h>

#include "support/errno_guard.h"
#endif

namespace vn::cpu {
namespace {

#if VN_CPU_X86

struct Registers {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
};

Registers leaf(unsigned number)
{
    Registers r;
    if (__get_cpuid_count(number, 0, &r.eax, &r.ebx, &r.ecx, &r.edx) == 0) return {};
    return r;
}

constexpr bool all_set(uint64_t value, uint64_t bits)
{
    return (value & bits) == bits;
}

// The register state that the operating system saves (XCR0), 0 where it does not say.
uint64_t saved_state(const Registers &one)
{
    constexpr unsigned kOsxsave = 1u << 27;
    if (!all_set(one.ecx, kOsxsave)) return 0;
    uint32_t low = 0;
    uint32_t high = 0;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return uint64_t{high} << 32 | low;
}

uint32_t find()
{
    constexpr uint64_t kYmmState = 0x06; // SSE and AVX registers
    constexpr uint64_t kZmmState = 0xE6; // and mask registers and both halves of AVX-512
    constexpr unsigned kAvx512 =
        bit_AVX512F | bit_AVX512DQ | bit_AVX512BW | bit_AVX512VL | bit_AVX2 | bit_BMI | bit_BMI2;
    const Registers one = leaf(1);
    const Registers seven = leaf(7);
    const uint64_t saved = saved_state(one);
    uint32_t found = kNothing;
    if (all_set(one.ecx, bit_SSE4_2 | bit_PCLMUL)) found |= kCrc32;
    if (all_set(one.ecx, bit_SSSE3)) found |= kSsse3;
    if (all_set(seven.ebx, bit_SHA) && all_set(one.ecx, bit_SSE4_1 | bit_SSSE3))
        found |= kSha1 | kSha256;
    if (all_set(saved, kYmmState) && all_set(seven.ebx, bit_AVX2 | bit_BMI)) found |= kAvx2;
    if (all_set(saved, kZmmState) && all_set(seven.ebx, kAvx512)) {
        if (all_set(seven.ecx, bit_AVX512VBMI)) found |= kVbmi;
        if (all_set(seven.ecx, bit_VPCLMULQDQ) && (found & kCrc32) != 0) found |= kWideClmul;
        if ((found & kSha1) != 0) found |= kSha1Avx512;
    }
    return found;
}

#elif VN_CPU_ARM

// Where the kernel keeps the features' bits; its names for them are missing from some C libraries.
#if defined(__aarch64__)
constexpr unsigned long kWord = AT_HWCAP;
constexpr unsigned kSha1Bit = 5;
constexpr uint32_t kAlways = kNeon;
#else
constexpr unsigned long kWord = AT_HWCAP2;
constexpr unsigned kSha1Bit = 2;
constexpr uint32_t kAlways = kNothing;
#endif
constexpr unsigned kSha256Bit = kSha1Bit + 1;
constexpr unsigned kCrc32Bit = kSha1Bit + 2;

uint32_t find()
{
    const ErrnoGuard keep; // an old kernel does not know the word
    const unsigned long word = getauxval(kWord);
    uint32_t found = kAlways;
    if ((word >> kCrc32Bit & 1) != 0) found |= kCrc32;
    if ((word >> kSha1Bit & 1) != 0) found |= kSha1;
    if ((word >> kSha256Bit & 1) != 0) found |= kSha256;
    return found;
}

#else

uint32_t find()
{
    return kNothing;
}

#endif

// Asking takes long where a hypervisor answers for the processor, so it is done once.
constinit std::atomic<uint32_t> present{0};

uint32_t find_once()
{
    uint32_t found = present.load(std::memory_order_relaxed);
    if (found == 0) {
        found = find() | detail::kDetected;
        present.store(found, std::memory_order_relaxed);
    }
    return found;
}

} // namespace

constinit std::atomic<uint32_t> detail::known{0};

uint32_t detail::detect()
{
    const uint32_t found = find_once();
    known.store(found, std::memory_order_relaxed);
    return found;
}

void force(uint32_t allowed)
{
    detail::known.store(find_once() & (allowed | detail::kDetected), std::memory_order_relaxed);
}

} // namespace vn::cpu
