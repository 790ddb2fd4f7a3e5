// decimal.h - an unsigned number as decimal text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vn::corelink {

class Decimal {
public:
    explicit Decimal(uint64_t value)
    {
        // Dividing 64 bits is a slow library call on 32-bit processors: take nine digits at once.
        for (; value > UINT32_MAX; value /= kNineDigits) {
            auto low = static_cast<uint32_t>(value % kNineDigits);
            for (int i = 0; i < 9; ++i) prepend_last_digit(low);
        }
        auto rest = static_cast<uint32_t>(value);
        do prepend_last_digit(rest);
        while (rest != 0);
    }

    [[nodiscard]] std::string_view text() const
    {
        return {digits_ + first_, sizeof digits_ - first_};
    }

private:
    static constexpr uint64_t kNineDigits = 1'000'000'000;

    void prepend_last_digit(uint32_t &number)
    {
        digits_[--first_] = static_cast<char>('0' + number % 10);
        number /= 10;
    }

    char digits_[20]; // as many as the largest value has
    size_t first_ = sizeof digits_;
};

} // namespace vn::corelink
