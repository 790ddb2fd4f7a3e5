// base64_fuzz.cpp - any text must decode to the same bytes in every version, within the room that
// its symbols ask for; what is encoded must come back.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "../src/support/cpu.h"
#include "vnlib/base64.h"

namespace {

std::vector<uint8_t> decoded(const char *text, size_t length)
{
    const size_t room = (length + 3) / 4 * 3;
    const std::unique_ptr<uint8_t[]> out(new uint8_t[room]); // no byte more, so that ASan sees all
    const unsigned size = base64_decode(text, out.get(), static_cast<unsigned>(length));
    return {out.get(), out.get() + size};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    namespace cpu = vn::cpu;
    if (size == 0) return 0;
    const std::unique_ptr<char[]> text(
        new char[size]); // the last character is the one after the text
    std::memcpy(text.get(), data, size);
    cpu::force(cpu::kNothing);
    const auto expected = decoded(text.get(), size - 1);
    for (const uint32_t version : {cpu::kSsse3 | cpu::kAvx2, uint32_t{cpu::kSsse3},
                                   uint32_t{cpu::kVbmi}, uint32_t{cpu::kNeon}}) {
        cpu::force(version);
        if (decoded(text.get(), size - 1) != expected) std::abort();
        for (const bool wrap : {false, true}) {
            std::vector<char> encoded((size + 2) / 3 * 4 + size / 48 + 2);
            const unsigned length =
                base64_encode(data, encoded.data(), static_cast<unsigned>(size), wrap);
            const auto back = decoded(encoded.data(), length);
            if (back != std::vector<uint8_t>(data, data + size)) std::abort();
        }
    }
    return 0;
}
