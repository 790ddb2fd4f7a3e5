// arm_division.cpp - what the compiler calls to divide, for small builds.
//
// The compiler's own library divides by shifting and subtracting, written out for each of 32 bits:
// 600 bytes, and slower than what the floating-point unit does in a few instructions. Nobody
// outside the shared library sees these.
#include "support/division.h"

#if defined __OPTIMIZE_SIZE__ && defined __ARM_FP && (__ARM_FP & 8) != 0

namespace {

// The quotient goes back in r0 and the remainder in r1: the halves of a 64-bit result.
template <typename Integer>
uint64_t quotient_and_remainder(Integer number, Integer divisor)
{
    const Integer quotient = vn::divided(number, divisor);
    return uint64_t{static_cast<uint32_t>(number - quotient * divisor)} << 32 |
           static_cast<uint32_t>(quotient);
}

} // namespace

// The names are those of the run-time ABI for the ARM architecture.
extern "C" {

uint64_t __aeabi_uidivmod(uint32_t number, uint32_t divisor)
{
    return quotient_and_remainder(number, divisor);
}

uint64_t __aeabi_idivmod(int32_t number, int32_t divisor)
{
    return quotient_and_remainder(number, divisor);
}

uint64_t __aeabi_uidiv(uint32_t, uint32_t) __attribute__((alias("__aeabi_uidivmod")));
uint64_t __aeabi_idiv(int32_t, int32_t) __attribute__((alias("__aeabi_idivmod")));

} // extern "C"

#endif
