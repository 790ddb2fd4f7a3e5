// tcp_info.cpp - the kernel's statistics of a TCP connection, read and written to the log.
//
//     0      6             7     8                                                    104
//     | 6 x u8 | scales u8 | pad | 24 x u32, host byte order ...                        |
//
// That is how Linux has laid out struct tcp_info since 2.6.22; later kernels only append. The
// record travels as bytes, so it may stand anywhere and no system header has to know all of its
// fields.
#include "vnlib/vnsock.h"

#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include "support/errno_guard.h"
#include "vnlib/log.h"

namespace vn::vnsock {
namespace {

constexpr int kSilent = 23; // the level at which every dump prints nothing
constexpr socklen_t kRecordSize = 104;

enum class Kind : unsigned char { kByte, kLowNibble, kHighNibble, kWord };

struct Field {
    char label[15]; // in place: pointers would be filled in at every start of a program
    unsigned char offset;
    Kind kind;
};

constexpr Field kFields[] = {
    {"State", 0, Kind::kByte},
    {"CA State", 1, Kind::kByte},
    {"Retransmits", 2, Kind::kByte},
    {"Probes", 3, Kind::kByte},
    {"Backoff", 4, Kind::kByte},
    {"Options", 5, Kind::kByte},
    {"Snd WScale", 6, Kind::kLowNibble},
    {"Rcv WScale", 6, Kind::kHighNibble},
    {"RTO", 8, Kind::kWord},
    {"ATO", 12, Kind::kWord},
    {"Snd MSS", 16, Kind::kWord},
    {"Rcv MSS", 20, Kind::kWord},
    {"Un-ACK'ed", 24, Kind::kWord},
    {"SACK'ed", 28, Kind::kWord},
    {"Lost", 32, Kind::kWord},
    {"Retrans", 36, Kind::kWord},
    {"Fackets", 40, Kind::kWord},
    {"Last Data Sent", 44, Kind::kWord},
    {"Last ACK Sent", 48, Kind::kWord},
    {"Last Data Recv", 52, Kind::kWord},
    {"Last ACK Recv", 56, Kind::kWord},
    {"PMTU", 60, Kind::kWord},
    {"Rcv SSThresh", 64, Kind::kWord},
    {"RTT", 68, Kind::kWord},
    {"RTT Var", 72, Kind::kWord},
    {"Snd SSThresh", 76, Kind::kWord},
    {"Snd CWND", 80, Kind::kWord},
    {"Adv MSS", 84, Kind::kWord},
    {"Reordering", 88, Kind::kWord},
    {"Rcv RTT", 92, Kind::kWord},
    {"Rcv Space", 96, Kind::kWord},
    {"Total Retrans", 100, Kind::kWord},
};

unsigned value_of(const Field &field, const unsigned char *info)
{
    const unsigned char byte = info[field.offset];
    switch (field.kind) {
    case Kind::kByte: return byte;
    case Kind::kLowNibble: return byte & 0xFu;
    case Kind::kHighNibble: return byte >> 4;
    case Kind::kWord: break;
    }
    uint32_t word;
    memcpy(&word, info + field.offset, sizeof word);
    return word;
}

constexpr int digits_of(Kind kind)
{
    return kind == Kind::kWord ? 8 : kind == Kind::kByte ? 2 : 1;
}

} // namespace
} // namespace vn::vnsock

using namespace vn::vnsock;

extern "C" {

int read_tcp_info(int fd, unsigned char *info)
{
    socklen_t length = kRecordSize;
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, info, &length) == 0) return 0;
    const vn::ErrnoGuard keep;
    vn_errno("%s: getsockopt", "read_tcp_info");
    return -1;
}

void display_tcp_info(int level, const unsigned char *info)
{
    if (level == kSilent || info == nullptr) return;
    __vn_log(level, "==== Dumping Full TCP Information ====");
    for (const Field &field : kFields)
        __vn_log(level, "%-15s%#.*x", field.label, digits_of(field.kind), value_of(field, info));
    __vn_log(level, "==== End of Full TCP Information ====");
}
}
