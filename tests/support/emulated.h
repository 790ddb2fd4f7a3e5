// emulated.h - what cannot be tested where an emulator stands between the program and the kernel.
#pragma once

namespace test {

#ifdef VNLIB_EMULATED
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

} // namespace test
