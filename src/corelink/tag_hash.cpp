// tag_hash.cpp - a word a step: a multiplication to twice the width, whose halves are folded
// together. (Knuth, TAOCP vol. 3, 6.4, has the one that keeps the lower half.)
#include "corelink/tag_hash.h"

#include <cstring>

namespace vn::corelink {

namespace {

#ifdef __SIZEOF_INT128__
using Word = uint64_t;
__extension__ using TwoWords = unsigned __int128;
#else
using Word = uint32_t;
using TwoWords = uint64_t;
#endif

Word fold(Word value)
{
    const TwoWords product = TwoWords{value} * static_cast<Word>(0x9E37'79B9'7F4A'7C15u);
    return static_cast<Word>(product ^ (product >> (8 * sizeof(Word))));
}

template <typename Number>
Word load(const char *from)
{
    Number number;
    std::memcpy(&number, from, sizeof number);
    return number;
}

// A text that does not fill a word. Some of its characters may be in it twice.
Word short_text(const char *text, size_t length)
{
    if constexpr (sizeof(Word) == 8)
        if (length >= 4) return load<uint32_t>(text) << 32 | load<uint32_t>(text + length - 4);
    Word word = 0;
    for (; length > 0; --length) word = word << 8 | static_cast<unsigned char>(*text++);
    return word;
}

} // namespace

uint32_t hash_tag(const char *tag, uint32_t seed)
{
    const size_t length = std::strlen(tag);
    Word hash = fold(seed + length);
    if (length < sizeof hash) return static_cast<uint32_t>(fold(hash ^ short_text(tag, length)));
    const char *const last = tag + length - sizeof hash; // may overlap the word before it
    for (; tag < last; tag += sizeof hash) hash = fold(hash ^ load<Word>(tag));
    return static_cast<uint32_t>(fold(hash ^ load<Word>(last)));
}

} // namespace vn::corelink
