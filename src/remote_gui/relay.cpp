// relay.cpp - the receive thread: bytes from one TCP peer become Data PDUs until one side ends.
//
// One blocking receive waits for the first byte, one that does not block takes what else is there:
// a PDU holds whatever had arrived, and waits for no more. The next buffer is twice that large: 64
// bytes for a connection that exchanges keystrokes, 64 KiB two PDUs after a bulk transfer began.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <sys/socket.h>

#include "remote_gui/session.h"
#include "vnlib/log.h"

namespace vn::remote_gui {
namespace {

constexpr size_t kLeastCapacity = 64;
constexpr size_t kMostCapacity = 65536;

// Bytes received; 0: the peer closed; -1: failed.
ssize_t receive(int fd, unsigned char *to, size_t capacity)
{
    const ssize_t first = recv(fd, to, 1, MSG_WAITALL);
    if (first <= 0) return first;
    const ssize_t rest = recv(fd, to + 1, capacity - 1, MSG_DONTWAIT);
    if (rest >= 0) return 1 + rest;
    return errno == EAGAIN ? 1 : -1;
}

void report_read_error(const Connection &connection)
{
    if (!connection.stop && errno != ECONNRESET) vn_errno("read()");
}

enum class End { kTold, kUntold }; // whether the other end is to hear of it

// Moves bytes until the connection or the session ends, or a PDU cannot be made or sent.
End relay(const Connection &connection)
{
    size_t capacity = kMostCapacity;
    while (!connection.stop) {
        unsigned char *const pdu = allocate_pdu(capacity);
        if (pdu == nullptr) {
            vn_errno("rgui_recv_data");
            return End::kUntold;
        }
        const ssize_t received = receive(connection.fd, pdu + kHeaderSize, capacity);
        if (received <= 0) {
            if (received < 0) report_read_error(connection);
            free(pdu);
            return End::kTold;
        }
        const auto total = static_cast<size_t>(received);
        write_header(pdu, Opcode::kData, connection.id, total);
        capacity = std::clamp(2 * total, kLeastCapacity, kMostCapacity);
        if (connection.session.send(pdu, kHeaderSize + total) < 0) return End::kUntold;
    }
    return End::kTold;
}

} // namespace

void *relay_thread(void *argument)
{
    auto &connection = *static_cast<Connection *>(argument);
    pthread_detach(pthread_self());
    if (relay(connection) == End::kTold) connection.session.say_goodbye(connection);
    connection.session.end_relay(connection);
    return nullptr;
}

} // namespace vn::remote_gui
