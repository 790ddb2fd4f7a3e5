// hash.cpp - FNV-1a, 32 and 64 bits wide.
#include "vnlib/hash.h"

namespace vn::hash {
namespace {

template <typename Word>
struct Fnv1a;

template <>
struct Fnv1a<uint32_t> {
    static constexpr uint32_t kBasis = 0x811C'9DC5, kPrime = 0x0100'0193;
};
template <>
struct Fnv1a<uint64_t> {
    static constexpr uint64_t kBasis = 0xCBF2'9CE4'8422'2325, kPrime = 0x0000'0100'0000'01B3;
};

template <typename Word>
Word add(Word hash, unsigned char byte)
{
    return (hash ^ byte) * Fnv1a<Word>::kPrime;
}

template <typename Word>
Word of_buffer(const void *buffer, uint32_t length)
{
    const auto start = reinterpret_cast<uintptr_t>(buffer);
    Word hash = Fnv1a<Word>::kBasis;
    if (buffer == nullptr || start + length <= start) return hash; // nothing, or it wraps
    const auto *const bytes = static_cast<const unsigned char *>(buffer);
    for (uint32_t i = 0; i < length; ++i) hash = add(hash, bytes[i]);
    return hash;
}

template <typename Word>
Word of_text(const char *text)
{
    Word hash = Fnv1a<Word>::kBasis;
    if (text == nullptr) return hash;
    for (; *text != '\0'; ++text) hash = add(hash, static_cast<unsigned char>(*text));
    return hash;
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
