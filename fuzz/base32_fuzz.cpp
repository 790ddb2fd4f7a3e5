// base32_fuzz.cpp - any text decodes within the room that its symbols ask for; what is encoded
// comes back, with a check symbol that fits; a text that is cut stays within its room.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "vnlib/base32.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::unique_ptr<char[]> text(new char[size + 1]);
    if (size != 0) std::memcpy(text.get(), data, size);
    text[size] = '\0';
    const size_t symbols = std::strlen(text.get());
    const size_t bytes = symbols < 2 ? 1 : ((symbols - 1) * 5 + 7) / 8;
    const std::unique_ptr<uint8_t[]> out(new uint8_t[bytes]);
    for (const int mode : {0, 1, 3}) base32_decode(text.get(), out.get(), mode);

    const auto length = static_cast<unsigned>(size);
    const unsigned room = (length * 8 + 4) / 5 + 2;
    std::vector<char> encoded(room);
    if (base32_encode(data, length, encoded.data(), room, 3) != room - 1) std::abort();
    std::vector<uint8_t> back(size + 1);
    if (base32_decode(encoded.data(), back.data(), 3) != 7) std::abort();
    if (size != 0 && std::memcmp(back.data(), data, size) != 0) std::abort();

    const unsigned cut = size == 0 ? 0 : data[0] % room;
    const std::unique_ptr<char[]> little(new char[cut]);
    if (base32_encode(data, length, little.get(), cut, 3) > cut) std::abort();
    return 0;
}
