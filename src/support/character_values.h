// character_values.h - what each character stands for in an encoding, as a table.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "support/small.h"

namespace vn {

using ValuesOfAll = std::array<uint8_t, 256>;

// A small build keeps no values before the first character of the encoding and behind the last.
template <char kFirstUsed, char kLastUsed, uint8_t kOtherwise>
class CharacterValues {
public:
    consteval explicit CharacterValues(const ValuesOfAll &values)
    {
        for (size_t i = 0; i < values_.size(); ++i) values_[i] = values[kFirst + i];
    }

    constexpr uint8_t operator()(char c) const
    {
        const auto place = static_cast<uint8_t>(static_cast<uint8_t>(c) - kFirst);
        return place < values_.size() ? values_[place] : kOtherwise;
    }

private:
    static constexpr size_t kFirst = kSmall ? kFirstUsed : 0;
    static constexpr size_t kLast = kSmall ? kLastUsed : 255;

    std::array<uint8_t, kLast - kFirst + 1> values_{};
};

} // namespace vn
