#include "remote_gui/pdu.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/errno_guard.h"
#include "vnlib/log.h"

namespace vn::remote_gui {

Header read_header(const unsigned char *pdu)
{
    return {pdu[0], static_cast<uint16_t>(pdu[2] | pdu[3] << 8),
            static_cast<uint32_t>(pdu[4]) | static_cast<uint32_t>(pdu[5]) << 8 |
                static_cast<uint32_t>(pdu[6]) << 16 | static_cast<uint32_t>(pdu[7]) << 24};
}

void write_header(unsigned char *pdu, Opcode opcode, uint16_t id, size_t size)
{
    pdu[0] = static_cast<unsigned char>(opcode);
    pdu[1] = 0;
    pdu[2] = static_cast<unsigned char>(id);
    pdu[3] = static_cast<unsigned char>(id >> 8);
    for (size_t byte = 0; byte < 4; ++byte)
        pdu[4 + byte] = static_cast<unsigned char>(size >> (8 * byte));
}

unsigned char *allocate_pdu(size_t payload)
{
    auto *const pdu = static_cast<unsigned char *>(malloc(kHeaderSize + payload));
    if (pdu == nullptr) {
        const ErrnoGuard keep;
        vn_errno("%s", "create_pdu");
    }
    return pdu;
}

unsigned char *make_pdu(Opcode opcode, uint16_t id)
{
    unsigned char *const pdu = allocate_pdu(0);
    if (pdu != nullptr) write_header(pdu, opcode, id, 0);
    return pdu;
}

bool is_whole(const unsigned char *pdu, size_t length)
{
    return length >= kHeaderSize && read_header(pdu).size == length - kHeaderSize;
}

void dump_pdu(int level, const unsigned char *pdu, size_t length, const char *name)
{
    constexpr size_t kMostBytes = 64;
    constexpr unsigned kBytesALine = 16;
    unsigned char arrived[kHeaderSize] = {};
    memcpy(arrived, pdu, std::min(length, kHeaderSize));
    const Header header = read_header(arrived);
    const size_t payload = length - std::min(length, kHeaderSize);
    __vn_log(level, "Remote GUI PDU Dump: '%s'", name);
    __vn_log(level, "\tOpcode:\t%#.8x", unsigned{header.opcode});
    __vn_log(level, "\tSize:\t%u", header.size);
    __vn_log(level, "\tID:\t%u", unsigned{header.id});
    __vn_loghex_line(level, pdu + (length - payload),
                     std::min({size_t{header.size}, payload, kMostBytes}), kBytesALine, 0);
}

} // namespace vn::remote_gui
