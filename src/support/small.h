// small.h - where speed takes much code or large tables, a module also has a small version, and a
// build that the compiler was asked to make small (-Os, -Oz) has only that one. Tests ask for it
// with VNLIB_SMALL.
#pragma once

namespace vn {

#if defined __OPTIMIZE_SIZE__ || defined VNLIB_SMALL
constexpr bool kSmall = true;
#else
constexpr bool kSmall = false;
#endif

} // namespace vn
