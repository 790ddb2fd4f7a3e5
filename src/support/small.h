// small.h - where speed takes much code or large tables, a module also has a small version, and a
// build that the compiler was asked to make small (-Os, -Oz) has only that one.
#pragma once

namespace vn {

#ifdef __OPTIMIZE_SIZE__
constexpr bool kSmall = true;
#else
constexpr bool kSmall = false;
#endif

} // namespace vn
