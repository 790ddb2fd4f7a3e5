// characters.h - what a character stands for in an encoding, told by comparing: a small build has
// no table of 256 values.
#pragma once

#include <cstdint>
#include <span>

namespace vn {

// Characters that follow each other, and so do the values they stand for.
struct CharacterRun {
    char first;
    char last;
    uint8_t value; // of the first
};

constexpr uint8_t value_among(std::span<const CharacterRun> runs, char c, uint8_t otherwise)
{
    for (const CharacterRun &run : runs) {
        if (c >= run.first && c <= run.last)
            return static_cast<uint8_t>(run.value + (c - run.first));
    }
    return otherwise;
}

} // namespace vn
