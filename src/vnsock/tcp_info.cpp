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

#include "vnlib/log.h"

namespace vn::vnsock {
namespace {

constexpr int kSilent = 23; // the level at which every dump prints nothing
constexpr socklen_t kRecordSize = 104;

// The fields in the order of the record; the seventh byte holds two.
constexpr char kLabels[] = "State\0"
                           "CA State\0"
                           "Retransmits\0"
                           "Probes\0"
                           "Backoff\0"
                           "Options\0"
                           "Snd WScale\0"
                           "Rcv WScale\0"
                           "RTO\0"
                           "ATO\0"
                           "Snd MSS\0"
                           "Rcv MSS\0"
                           "Un-ACK'ed\0"
                           "SACK'ed\0"
                           "Lost\0"
                           "Retrans\0"
                           "Fackets\0"
                           "Last Data Sent\0"
                           "Last ACK Sent\0"
                           "Last Data Recv\0"
                           "Last ACK Recv\0"
                           "PMTU\0"
                           "Rcv SSThresh\0"
                           "RTT\0"
                           "RTT Var\0"
                           "Snd SSThresh\0"
                           "Snd CWND\0"
                           "Adv MSS\0"
                           "Reordering\0"
                           "Rcv RTT\0"
                           "Rcv Space\0"
                           "Total Retrans\0";
constexpr unsigned kSendScale = 6, kReceiveScale = 7, kFirstWord = 8;

unsigned value_of(unsigned field, const unsigned char *info)
{
    if (field == kSendScale) return info[kSendScale] & 0xFu;
    if (field == kReceiveScale) return info[kSendScale] >> 4;
    if (field < kSendScale) return info[field];
    uint32_t word;
    memcpy(&word, info + kFirstWord + sizeof word * (field - kFirstWord), sizeof word);
    return word;
}

constexpr int digits_of(unsigned field)
{
    return field >= kFirstWord ? 8 : field < kSendScale ? 2 : 1;
}

} // namespace
} // namespace vn::vnsock

using namespace vn::vnsock;

extern "C" {

int read_tcp_info(int fd, unsigned char *info)
{
    socklen_t length = kRecordSize;
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, info, &length) == 0) return 0;
    vn_errno("read_tcp_info: getsockopt");
    return -1;
}

void display_tcp_info(int level, const unsigned char *info)
{
    if (level == kSilent || info == nullptr) return;
    __vn_log(level, "==== Dumping Full TCP Information ====");
    unsigned field = 0;
    for (const char *label = kLabels; *label != '\0'; label += strlen(label) + 1, ++field)
        __vn_log(level, "%-15s%#.*x", label, digits_of(field), value_of(field, info));
    __vn_log(level, "==== End of Full TCP Information ====");
}
}
