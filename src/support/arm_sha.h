// arm_sha.h - the target of functions that use the SHA instructions of ARMv8.
#pragma once

#include "support/cpu.h"

#if VN_CPU_ARM_SHA
#include <arm_neon.h>
#if defined(__aarch64__)
#define VN_SHA __attribute__((target("+crypto")))
#else
#define VN_SHA __attribute__((target("arch=armv8-a,fpu=crypto-neon-fp-armv8")))
#endif
#endif
