// remote_gui.cpp - what arrives from the other end, and the C interface.
#include "vnlib/remote_gui.h"

#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

#include "log/assertion.h"
#include "remote_gui/session.h"
#include "vnlib/log.h"
#include "vnlib/vnsock.h"

namespace vn::remote_gui {
namespace {

constexpr const char *kSource = "remote_gui";
constexpr const char *kGuiNode = "127.0.0.1"; // where the appliance's management GUI listens
constexpr const char *kGuiService = "8008";

// A hold on a session for one call.
class SessionHold {
public:
    explicit SessionHold(Session *session) : session_(Session::hold(session) ? session : nullptr) {}
    ~SessionHold()
    {
        if (session_ != nullptr) session_->drop();
    }
    SessionHold(const SessionHold &) = delete;
    SessionHold &operator=(const SessionHold &) = delete;

    explicit operator bool() const { return session_ != nullptr; }
    Session &operator*() const { return *session_; }

private:
    Session *const session_;
};

// A hold on the connection that a PDU names, if there is one.
class ConnectionHold {
public:
    ConnectionHold(Session &session, uint16_t id)
        : session_(session), connection_(session.find_and_hold(id))
    {
    }
    ~ConnectionHold()
    {
        if (connection_ != nullptr) session_.release(*connection_);
    }
    ConnectionHold(const ConnectionHold &) = delete;
    ConnectionHold &operator=(const ConnectionHold &) = delete;

    explicit operator bool() const { return connection_ != nullptr; }
    Connection &operator*() const { return *connection_; }

private:
    Session &session_;
    Connection *const connection_;
};

// Writes everything, or as much as the TCP peer takes. A signal to the caller's thread, meant for
// something else, must not tear a hole into the stream.
void deliver(const Connection &connection, const unsigned char *bytes, size_t size)
{
    while (size > 0) {
        const ssize_t sent = ::send(connection.fd, bytes, size, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR && !connection.stop) continue;
            return;
        }
        bytes += sent;
        size -= static_cast<size_t>(sent);
    }
}

int connect_to_gui()
{
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    return vnsock_connect(&hints, kGuiNode, kGuiService, nullptr, 0, 0, "RGUI: Connect");
}

int start_relaying(Session &session, Connection &connection)
{
    const int result = session.start_relay(connection);
    if (result == 0) return 0;
    errno = result;
    vn_errno("%s: create pthread", "create_connection");
    session.release(connection);
    return -1;
}

int report_duplicate()
{
    __vn_log(kError, "RGUI: Open Connection: Duplicate connection ID");
    return 0;
}

// 0, or -1 when the other end's client cannot be served.
int open_connection(Session &session, uint16_t id)
{
    Connection *const connection = Connection::create(session, -1);
    if (connection == nullptr) {
        vn_errno("RGUI: New connection");
        return -1;
    }
    connection->fd = connect_to_gui();
    if (connection->fd < 0) {
        connection->destroy();
        return -1;
    }
    send_without_delay(connection->fd);
    const Joined joined = session.join_as(*connection, id);
    if (joined == Joined::kYes) return start_relaying(session, *connection);
    connection->destroy();
    return joined == Joined::kDuplicate ? report_duplicate() : -1;
}

int handle_open(Session &session, uint16_t id, const ConnectionHold &named)
{
    if (session.role == Role::kLocal) { // the other end could not connect
        if (!named) return -1;
        session.end_for_other_side(*named);
        return 0;
    }
    if (named) return report_duplicate();
    if (open_connection(session, id) == 0) return 0;
    (void)session.announce(Opcode::kClose, id);
    return -1;
}

int handle_data(const ConnectionHold &named, const unsigned char *payload, size_t size)
{
    if (!named) return -1;
    deliver(*named, payload, size);
    return 0;
}

int handle_close(Session &session, const ConnectionHold &named)
{
    if (named) session.end_for_other_side(*named);
    return 0;
}

int handle(Session &session, const unsigned char *pdu)
{
    const Header header = read_header(pdu);
    const ConnectionHold named(session, header.id);
    switch (static_cast<Opcode>(header.opcode)) {
    case Opcode::kOpen: return handle_open(session, header.id, named);
    case Opcode::kData: return handle_data(named, pdu + kHeaderSize, header.size);
    case Opcode::kClose: return handle_close(session, named);
    }
    __vn_log(kError, "RGUI: Unknown or Illegal Opcode %#.2x", unsigned{header.opcode});
    return handle_close(session, named);
}

int receive_pdu(Session *session, const unsigned char *pdu, size_t length)
{
    if (session == nullptr) log::report_assertion("session != ((void *)0)", kSource, __LINE__);
    if (pdu == nullptr) {
        log::report_assertion("data != ((void *)0)", kSource, __LINE__);
        errno = EINVAL;
        return -1;
    }
    if (!is_whole(pdu, length)) {
        __vn_log(kError, "RGUI: Invalid PDU length or partial buffer");
        dump_pdu(kError, pdu, length, "rgui_data_rx");
        return -1;
    }
    const SessionHold held(session);
    return held ? handle(*held, pdu) : -1;
}

void stop(Session *session)
{
    const SessionHold held(session);
    if (held) (*held).stop();
}

} // namespace
} // namespace vn::remote_gui

using namespace vn::remote_gui;

extern "C" {

struct rgui_session *rgui_start_local(const char *node, const char *service, unsigned,
                                      rgui_send_fn send, void *ctx)
{
    constexpr const char *kName = "rgui_start_local";
    Session *const session = Session::create(Role::kLocal, node, service, send, ctx);
    if (session == nullptr) {
        vn_errno("%s", kName);
        return nullptr;
    }
    const int result = session->start_listener();
    if (result == 0) return session;
    errno = result;
    vn_errno("%s: create pthread", kName);
    session->drop();
    return nullptr;
}

struct rgui_session *rgui_start_remote(rgui_send_fn send, void *ctx)
{
    return Session::create(Role::kRemote, nullptr, nullptr, send, ctx);
}

int rgui_data_rx(struct rgui_session *session, const unsigned char *pdu, size_t length)
{
    return receive_pdu(session, pdu, length);
}

void rgui_stop_local(struct rgui_session *session)
{
    stop(session);
}

void rgui_stop_remote(struct rgui_session *session)
{
    stop(session);
}
}
