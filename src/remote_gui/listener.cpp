// listener.cpp - the listener thread of a local end: every TCP client becomes a connection, is
// announced to the other end, and gets a receive thread.
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>

#include "remote_gui/session.h"
#include "vnlib/log.h"
#include "vnlib/vnsock.h"

namespace vn::remote_gui {
namespace {

enum class Next { kNextClient, kCleanUp, kEndAtOnce };

// A socket shut down by a stop answers EINVAL, an interrupted call EINTR: neither is news then.
bool was_stopped(const Session &session)
{
    return session.stopping && (errno == EINTR || errno == EINVAL);
}

Next admit(Session &session, int client)
{
    Connection *const connection = Connection::create(session, client);
    if (connection == nullptr) {
        vn_errno("listener_thread");
        close(client);
        return Next::kCleanUp;
    }
    send_without_delay(client);
    if (!session.join(*connection)) {
        connection->destroy();
        return Next::kNextClient;
    }
    if (!session.announce(Opcode::kOpen, connection->id)) {
        session.release(*connection);
        return Next::kEndAtOnce;
    }
    // A client whose thread cannot be started is kept as it is: what the other end sends still
    // reaches it, and the other end or a stop will end it.
    if (session.start_relay(*connection) != 0) session.leave_orphaned(*connection);
    return Next::kNextClient;
}

Next accept_clients(Session &session, int listener)
{
    while (!session.stopping) {
        const int client = accept(listener, nullptr, nullptr);
        if (client < 0) {
            if (!was_stopped(session)) vn_errno("listener_thread: accept");
            break;
        }
        if (const Next next = admit(session, client); next != Next::kNextClient) return next;
    }
    return Next::kCleanUp;
}

void serve(Session &session)
{
    const int listener = vnsock_listen(&kTcp, session.node, session.service, 0, 0, 0);
    if (listener < 0) return;
    // Without memory even for a header the connections there are go on; they end with the session.
    Next next = Next::kCleanUp;
    if (session.open_for_clients(listener)) next = accept_clients(session, listener);
    if (next == Next::kCleanUp) session.stop_connections();
    session.close_for_clients();
}

} // namespace

void *listener_thread(void *argument)
{
    auto &session = *static_cast<Session *>(argument);
    serve(session);
    session.drop();
    return nullptr;
}

} // namespace vn::remote_gui
