// hash.cpp - FNV-1a, 32 and 64 bits wide.
#include "vnlib/hash.h"

extern "C" uint64_t hash_str_64(const char *text)
{
    uint64_t hash = 0xCBF29CE484222325u;
    if (text == nullptr) return hash;
    for (; *text != '\0'; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 0x100000001B3u;
    return hash;
}
