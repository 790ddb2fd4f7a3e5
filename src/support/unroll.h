// unroll.h - a loop written out: each step knows its number at compile time, so that arrays indexed
// with it live in registers.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

namespace vn {

template <size_t kCount, typename Step>
[[gnu::always_inline]] inline void unroll(Step step)
{
    [&]<size_t... kIndex>(std::index_sequence<kIndex...>) __attribute__((always_inline))
    {
        (step(std::integral_constant<size_t, kIndex>{}), ...);
    }
    (std::make_index_sequence<kCount>{});
}

} // namespace vn
