// fnv1a.h - the FNV-1a hash, one byte at a time: start from kBasis, add every byte.
#pragma once

#include <cstdint>

namespace vn::fnv1a {

template <typename Word>
inline constexpr Word kBasis = sizeof(Word) == 4 ? static_cast<Word>(0x811C'9DC5)
                                                 : static_cast<Word>(0xCBF2'9CE4'8422'2325);
template <typename Word>
inline constexpr Word kPrime = sizeof(Word) == 4 ? static_cast<Word>(0x0100'0193)
                                                 : static_cast<Word>(0x0000'0100'0000'01B3);

template <typename Word>
constexpr Word add(Word hash, unsigned char byte)
{
    return (hash ^ byte) * kPrime<Word>;
}

// `hash` with the bytes of a text added.
template <typename Word>
constexpr Word add_text(Word hash, const char *text)
{
    for (; *text != '\0'; ++text) hash = add(hash, static_cast<unsigned char>(*text));
    return hash;
}

} // namespace vn::fnv1a
