// tag_hash.h - a hash of a tag, for tables that live as long as one parse or one merge.
#pragma once

#include <cstdint>

namespace vn::corelink {

// Nobody who does not know the seed can write a text whose tags all meet in one slot.
uint32_t hash_tag(const char *tag, uint32_t seed);

} // namespace vn::corelink
