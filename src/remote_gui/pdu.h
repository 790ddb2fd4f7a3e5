// pdu.h - what travels between the two ends of a Remote GUI link.
//
//     0        1          2        4            8
//     | opcode | reserved | id u16 | size u32   | size bytes of payload ...
//
// Fields are little-endian and stand at any address, so they are read and written by bytes. Header
// and payload share one block from malloc, which the send callback takes over: a received byte is
// copied by the kernel alone.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vn::remote_gui {

constexpr int kError = 3; // log level

enum class Opcode : unsigned char { kData = 1, kOpen = 2, kClose = 3 };

constexpr size_t kHeaderSize = 8;

struct Header {
    unsigned char opcode;
    uint16_t id;
    uint32_t size;
};

// Fields that did not arrive count as 0.
[[nodiscard]] Header read_header(const unsigned char *pdu, size_t length);
void write_header(unsigned char *pdu, Opcode opcode, uint16_t id, size_t size);

// A block for a header and `payload` bytes, not filled in; null after logging why.
[[nodiscard]] unsigned char *allocate_pdu(size_t payload);

// A whole Open or Close PDU; null after logging why.
[[nodiscard]] unsigned char *make_pdu(Opcode opcode, uint16_t id);

// Logs the header fields and the first bytes of the payload. The PDU may be malformed: nothing
// beyond `length` is read.
void dump_pdu(int level, const Header &header, const unsigned char *pdu, size_t length,
              const char *name);

} // namespace vn::remote_gui
