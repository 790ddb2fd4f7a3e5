#include "remote_gui/pdu.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/bytes.h"
#include "vnlib/log.h"

namespace vn::remote_gui {

Header read_header(const unsigned char *pdu, size_t length)
{
    unsigned char arrived[kHeaderSize] = {};
    memcpy(arrived, pdu, std::min(length, kHeaderSize));
    return {arrived[0], bytes::load_little<uint16_t>(arrived + 2),
            bytes::load_little<uint32_t>(arrived + 4)};
}

void write_header(unsigned char *pdu, Opcode opcode, uint16_t id, size_t size)
{
    pdu[0] = static_cast<unsigned char>(opcode);
    pdu[1] = 0;
    bytes::store_little(pdu + 2, id);
    bytes::store_little(pdu + 4, static_cast<uint32_t>(size));
}

unsigned char *allocate_pdu(size_t payload)
{
    auto *const pdu = static_cast<unsigned char *>(malloc(kHeaderSize + payload));
    if (pdu == nullptr) vn_errno("create_pdu");
    return pdu;
}

unsigned char *make_pdu(Opcode opcode, uint16_t id)
{
    unsigned char *const pdu = allocate_pdu(0);
    if (pdu != nullptr) write_header(pdu, opcode, id, 0);
    return pdu;
}

void dump_pdu(int level, const Header &header, const unsigned char *pdu, size_t length,
              const char *name)
{
    constexpr size_t kMostBytes = 64;
    constexpr unsigned kBytesALine = 16;
    const size_t payload = length - std::min(length, kHeaderSize);
    __vn_log(level, "Remote GUI PDU Dump: '%s'", name);
    __vn_log(level, "\tOpcode:\t%#.8x", unsigned{header.opcode});
    __vn_log(level, "\tSize:\t%u", header.size);
    __vn_log(level, "\tID:\t%u", unsigned{header.id});
    __vn_loghex_line(level, pdu + (length - payload),
                     std::min(std::min<size_t>(header.size, payload), kMostBytes), kBytesALine, 0);
}

} // namespace vn::remote_gui
