// arm_division.cpp - what the compiler calls to divide, for small builds.
//
// The compiler's own library divides by shifting and subtracting, written out for each of 32 bits:
// 600 bytes, and slower than what the floating-point unit does in a few instructions. Nobody
// outside the shared library sees these.
#include "support/division.h"

#if defined __OPTIMIZE_SIZE__ && defined __ARM_FP && (__ARM_FP & 8) != 0

// The names and the registers are those of the run-time ABI for the ARM architecture: the quotient
// comes back in r0 and the remainder in r1, which are the halves of a 64-bit result.
extern "C" {

uint64_t __aeabi_uidivmod(uint32_t number, uint32_t divisor)
{
    const uint32_t quotient = vn::divided(number, divisor);
    return uint64_t{number - quotient * divisor} << 32 | quotient;
}

uint64_t __aeabi_uidiv(uint32_t number, uint32_t divisor)
    __attribute__((alias("__aeabi_uidivmod")));

} // extern "C"

#endif
