// decimal.h - a number as text, without printf: every allocation draws a handful of them.
#pragma once

#include <cstdint>

namespace vn::memcheck {

class Decimal {
public:
    explicit Decimal(int32_t value, int least_digits = 1)
    {
        // Unsigned, as INT32_MIN has no positive counterpart.
        uint32_t rest =
            value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
        for (int digits = 0; digits < least_digits || rest != 0; ++digits, rest /= 10)
            *--text_ = static_cast<char>('0' + rest % 10);
        if (value < 0) *--text_ = '-';
    }
    Decimal(const Decimal &) = delete; // text_ points into itself
    Decimal &operator=(const Decimal &) = delete;

    [[nodiscard]] const char *text() const { return text_; }

private:
    char bytes_[12] = {}; // the longest is "-2147483648"
    char *text_ = bytes_ + sizeof bytes_ - 1;
};

} // namespace vn::memcheck
