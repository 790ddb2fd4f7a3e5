// arm.cpp - CRC-32C with the CRC32 instructions of ARMv8, in 64-bit and in 32-bit mode.
//
// The compilers' intrinsics want the instructions switched on for the whole file, which would let
// them appear where nobody has asked the processor; the assembler takes them one by one.
#include "crc32c/extend.h"

#if VN_CPU_ARM

#include "support/bytes.h"

namespace vn::crc32c {
namespace {

#if defined(__aarch64__)
using Word = uint64_t;

inline uint32_t extend_word(uint32_t state, Word word)
{
    __asm__(".arch_extension crc\n\tcrc32cx %w0, %w0, %x1" : "+r"(state) : "r"(word));
    return state;
}

inline uint32_t extend_byte(uint32_t state, uint8_t byte)
{
    __asm__(".arch_extension crc\n\tcrc32cb %w0, %w0, %w1" : "+r"(state) : "r"(byte));
    return state;
}
#else
using Word = uint32_t;

inline uint32_t extend_word(uint32_t state, Word word)
{
    __asm__(".arch armv8-a\n\t.arch_extension crc\n\tcrc32cw %0, %0, %1" : "+r"(state) : "r"(word));
    return state;
}

inline uint32_t extend_byte(uint32_t state, uint8_t byte)
{
    __asm__(".arch armv8-a\n\t.arch_extension crc\n\tcrc32cb %0, %0, %1" : "+r"(state) : "r"(byte));
    return state;
}
#endif

} // namespace

uint32_t extend_arm(uint32_t state, const uint8_t *data, size_t length)
{
    constexpr size_t kWord = sizeof(Word);
    constexpr size_t kFour = 4 * kWord;
    for (; length >= kFour; length -= kFour, data += kFour) {
        state = extend_word(state, bytes::load_little<Word>(data));
        state = extend_word(state, bytes::load_little<Word>(data + kWord));
        state = extend_word(state, bytes::load_little<Word>(data + 2 * kWord));
        state = extend_word(state, bytes::load_little<Word>(data + 3 * kWord));
    }
    for (; length >= kWord; length -= kWord, data += kWord)
        state = extend_word(state, bytes::load_little<Word>(data));
    for (; length != 0; --length) state = extend_byte(state, *data++);
    return state;
}

} // namespace vn::crc32c

#endif
