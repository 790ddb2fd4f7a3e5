// tag_hash.cpp - four characters a step: a multiplication to twice the width, whose halves are
// folded together. (Knuth, TAOCP vol. 3, 6.4, has the one that keeps the lower half.)
#include "corelink/tag_hash.h"

#include <cstring>

namespace vn::corelink {

namespace {

uint32_t fold(uint32_t value)
{
    const uint64_t product = uint64_t{value} * 0x9E37'79B1u;
    return static_cast<uint32_t>(product ^ (product >> 32));
}

} // namespace

uint32_t hash_tag(const char *tag, uint32_t seed)
{
    uint32_t hash = seed;
    size_t left = std::strlen(tag);
    for (; left >= sizeof hash; left -= sizeof hash, tag += sizeof hash) {
        uint32_t piece;
        std::memcpy(&piece, tag, sizeof piece);
        hash = fold(hash ^ piece);
    }
    uint32_t rest = 0;
    for (; left > 0; --left) rest = (rest << 8) | static_cast<unsigned char>(*tag++);
    return fold(hash ^ rest);
}

} // namespace vn::corelink
