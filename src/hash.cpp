// hash.cpp - FNV-1a, 32 and 64 bits wide.
#include "vnlib/hash.h"

#include "support/fnv1a.h"

namespace vn::hash {
namespace {

template <typename Word>
Word of_buffer(const void *buffer, uint32_t length)
{
    const auto start = reinterpret_cast<uintptr_t>(buffer);
    Word hash = fnv1a::kBasis<Word>;
    if (buffer == nullptr || start + length <= start) return hash; // nothing, or it wraps
    const auto *const bytes = static_cast<const unsigned char *>(buffer);
    for (uint32_t i = 0; i < length; ++i) hash = fnv1a::add(hash, bytes[i]);
    return hash;
}

template <typename Word>
Word of_text(const char *text)
{
    return fnv1a::add_text(fnv1a::kBasis<Word>, text == nullptr ? "" : text);
}

} // namespace
} // namespace vn::hash

extern "C" {

uint32_t hash_buf(const void *buffer, uint32_t length)
{
    return vn::hash::of_buffer<uint32_t>(buffer, length);
}

uint64_t hash_buf_64(const void *buffer, uint32_t length)
{
    return vn::hash::of_buffer<uint64_t>(buffer, length);
}

uint32_t hash_str(const char *text)
{
    return vn::hash::of_text<uint32_t>(text);
}

uint64_t hash_str_64(const char *text)
{
    return vn::hash::of_text<uint64_t>(text);
}
}
