// small.h - where speed takes much code or large tables, a module also has a small version, and a
// build that the compiler was asked to make small (-Os, -Oz) has only that one. Tests ask for it
// with VNLIB_SMALL.
#pragma once

#if defined __OPTIMIZE_SIZE__ || defined VNLIB_SMALL
#define VN_SMALL 1
#else
#define VN_SMALL 0
#endif

namespace vn {

constexpr bool kSmall = VN_SMALL;

} // namespace vn
