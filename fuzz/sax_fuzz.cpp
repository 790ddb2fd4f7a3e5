// sax_fuzz.cpp - any bytes as an XML document: the parser must see what a plain walk through its
// table sees, and leave the stream in the same place. The first byte is the size of the stream's
// buffer, so that characters run out in the middle of everything.
#include <cstdlib>
#include <cstring>

#include "support/sax_reference.h"

namespace {

struct Outcome {
    int result;
    long position;
    sax_reference::Events events;
    bool operator==(const Outcome &) const = default;
};

template <typename Parse>
Outcome outcome_of(const uint8_t *data, size_t size, Parse parse)
{
    static char buffer[1 << 8];
    FILE *const stream = fmemopen(const_cast<uint8_t *>(data + 1), size - 1, "r");
    if (stream == nullptr || setvbuf(stream, buffer, _IOFBF, 1 + size_t{data[0]}) != 0) abort();
    Outcome outcome{};
    outcome.result = parse(stream, outcome.events);
    outcome.position = ftell(stream);
    fclose(stream);
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) return 0;
    const Outcome real = outcome_of(data, size, [](FILE *stream, sax_reference::Events &events) {
        return sax_parse_file(stream, &sax_reference::kRecording, &events);
    });
    const Outcome plain = outcome_of(data, size, [](FILE *stream, sax_reference::Events &events) {
        return sax_reference::Machine(stream, events).run();
    });
    if (real != plain) abort();
    return 0;
}
