// remote_gui.cpp - what arrives from the other end, and the C interface.
#include "vnlib/remote_gui.h"

#include <cerrno>
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
    return vnsock_connect(&kTcp, kGuiNode, kGuiService, nullptr, 0, 0, "RGUI: Connect");
}

int start_relaying(Session &session, Connection &connection)
{
    const int result = session.start_relay(connection);
    if (result == 0) return 0;
    errno = result;
    vn_errno("create_connection: create pthread");
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

int handle_open(Session &session, uint16_t id, Connection *named)
{
    if (session.role == Role::kLocal) { // the other end could not connect
        if (named == nullptr) return -1;
        session.end_for_other_side(*named);
        return 0;
    }
    if (named != nullptr) return report_duplicate();
    if (open_connection(session, id) == 0) return 0;
    (void)session.announce(Opcode::kClose, id);
    return -1;
}

int handle_data(const Connection *named, const unsigned char *payload, size_t size)
{
    if (named == nullptr) return -1;
    deliver(*named, payload, size);
    return 0;
}

int handle_close(Session &session, Connection *named)
{
    if (named != nullptr) session.end_for_other_side(*named);
    return 0;
}

// `named` is the connection that the header names, if there is one.
int handle(Session &session, Connection *named, const Header &header, const unsigned char *payload)
{
    switch (static_cast<Opcode>(header.opcode)) {
    case Opcode::kOpen: return handle_open(session, header.id, named);
    case Opcode::kData: return handle_data(named, payload, header.size);
    case Opcode::kClose: break;
    default: __vn_log(kError, "RGUI: Unknown or Illegal Opcode %#.2x", unsigned{header.opcode});
    }
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
    const Header header = read_header(pdu, length);
    if (length < kHeaderSize || header.size != length - kHeaderSize) {
        __vn_log(kError, "RGUI: Invalid PDU length or partial buffer");
        dump_pdu(kError, header, pdu, length, "rgui_data_rx");
        return -1;
    }
    Session *const entered = Session::enter(session);
    if (entered == nullptr) return -1;
    Connection *const named = entered->find_and_hold(header.id);
    const int result = handle(*entered, named, header, pdu + kHeaderSize);
    if (named != nullptr) entered->release(*named);
    entered->leave();
    return result;
}

void stop(Session *session)
{
    Session *const entered = Session::enter(session);
    if (entered == nullptr) return;
    entered->stop();
    entered->leave();
}

} // namespace
} // namespace vn::remote_gui

using namespace vn::remote_gui;

extern "C" {

struct rgui_session *rgui_start_local(const char *node, const char *service, unsigned,
                                      rgui_send_fn send, void *ctx)
{
    Session *const session = Session::create(Role::kLocal, node, service, send, ctx);
    if (session == nullptr) {
        vn_errno("rgui_start_local");
        return nullptr;
    }
    const int result = session->start_listener();
    if (result == 0) return session;
    errno = result;
    vn_errno("rgui_start_local: create pthread");
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
