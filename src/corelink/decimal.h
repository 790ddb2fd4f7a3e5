// decimal.h - an unsigned number as decimal text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "support/division.h"

namespace vn::corelink {

class Decimal {
public:
    explicit Decimal(uint64_t value)
    {
        // Dividing more than a register is a slow library call, and a large one, on 32-bit
        // processors.
        while (value != static_cast<size_t>(value)) prepend(take_last_digit(value));
        auto rest = static_cast<size_t>(value);
        do {
            prepend(static_cast<uint32_t>(rest % 10));
            rest /= 10;
        } while (rest != 0);
    }

    [[nodiscard]] std::string_view text() const
    {
        return {digits_ + first_, sizeof digits_ - first_};
    }

private:
    void prepend(uint32_t digit) { digits_[--first_] = static_cast<char>('0' + digit); }

    char digits_[20]; // as many as the largest value has
    size_t first_ = sizeof digits_;
};

} // namespace vn::corelink
