#include "remote_gui/session.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <new>
#include <sys/socket.h>
#include <unistd.h>

#include "support/errno_guard.h"
#include "vnlib/log.h"

using namespace vn::remote_gui;
using vn::ErrnoGuard;
using vn::Mutex;
using vn::MutexLock;

namespace {

// Every session that somebody still holds. It answers whether a pointer is a session, so that a PDU
// which arrives after a stop is refused and not followed into freed memory.
constinit Mutex registry_lock;
constinit Link registry VN_GUARDED_BY(registry_lock);

// A copy of an optional text. False when memory ran out.
bool copy_text(char *&to, const char *from)
{
    to = from != nullptr ? strdup(from) : nullptr;
    return from == nullptr || to != nullptr;
}

} // namespace

namespace vn::remote_gui {

void interrupt(pthread_t thread)
{
    struct sigaction action;
    if (sigaction(SIGUSR1, nullptr, &action) == 0 && action.sa_handler != SIG_DFL)
        pthread_kill(thread, SIGUSR1);
}

void send_without_delay(int fd)
{
    const int on = 1;
    if (setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0)
        vn_errno("RGUI: setsockopt: TCP_NODELAY");
}

Connection *Connection::create(Session &owner, int socket)
{
    void *const memory = malloc(sizeof(Connection));
    if (memory == nullptr) return nullptr;
    owner.hold_again();
    return new (memory) Connection(owner, socket);
}

void Connection::destroy()
{
    Session &owner = session;
    if (fd >= 0) close(fd);
    free(this);
    owner.drop();
}

} // namespace vn::remote_gui

// ---- life of a session

rgui_session *rgui_session::create(Role role, const char *node, const char *service,
                                   rgui_send_fn send, void *ctx)
{
    void *const memory = malloc(sizeof(rgui_session));
    if (memory == nullptr) return nullptr;
    auto *const session = new (memory) rgui_session(role, send, ctx);
    {
        const MutexLock guard(registry_lock);
        registry.append(*session);
    }
    if (copy_text(session->node, node) && copy_text(session->service, service)) return session;
    session->drop();
    return nullptr;
}

bool rgui_session::hold(rgui_session *session)
{
    const MutexLock guard(registry_lock);
    for (const Link *at = registry.next; at != &registry; at = at->next) {
        if (at != session) continue;
        ++session->holders_;
        return true;
    }
    return false;
}

void rgui_session::hold_again()
{
    const MutexLock guard(registry_lock);
    ++holders_;
}

void rgui_session::drop()
{
    {
        const MutexLock guard(registry_lock);
        if (--holders_ > 0) return;
        unlink();
    }
    destroy();
}

void rgui_session::destroy()
{
    const ErrnoGuard keep;
    lock_.destroy();
    free(node);
    free(service);
    free(this);
}

// ---- sending

int rgui_session::send(unsigned char *pdu, size_t length) const
{
    if (send_ != nullptr) return send_(pdu, length, ctx_);
    free(pdu);
    return -1;
}

bool rgui_session::announce(Opcode opcode, uint16_t id) const
{
    unsigned char *const pdu = make_pdu(opcode, id);
    if (pdu == nullptr) return false;
    send(pdu, kHeaderSize);
    return true;
}

void rgui_session::say_goodbye(Connection &connection)
{
    // Without memory the application is called all the same: it may be able to drop the link.
    if (connection.announce_close) send(make_pdu(Opcode::kClose, connection.id), kHeaderSize);
}

// ---- connections

Connection *rgui_session::find(uint16_t id)
{
    for (Link *at = connections_.next; at != &connections_; at = at->next) {
        auto *const connection = static_cast<Connection *>(at);
        if (connection->id == id) return connection;
    }
    return nullptr;
}

Connection *rgui_session::find_and_hold(uint16_t id)
{
    const MutexLock guard(lock_);
    Connection *const connection = find(id);
    if (connection != nullptr) ++connection->holders;
    return connection;
}

void rgui_session::release(Connection &connection)
{
    {
        const MutexLock guard(lock_);
        if (--connection.holders > 0) return;
        connection.unlink();
    }
    connection.destroy();
}

bool rgui_session::join(Connection &connection)
{
    constexpr unsigned kIds = 65536;
    const MutexLock guard(lock_);
    // The counter is wider than the wire's field. Once it has gone round, a number may still be in
    // use by a long-lived connection, whose bytes must not reach another client: pass over it.
    for (unsigned tried = 0; tried < kIds; ++tried) {
        const auto id = static_cast<uint16_t>(next_id_++);
        if (find(id) != nullptr) continue;
        connection.id = id;
        connections_.append(connection);
        return true;
    }
    return false;
}

Joined rgui_session::join_as(Connection &connection, uint16_t id)
{
    const MutexLock guard(lock_);
    if (stopping) return Joined::kSessionStopped;
    if (find(id) != nullptr) return Joined::kDuplicate;
    connection.id = id;
    connections_.append(connection);
    return Joined::kYes;
}

int rgui_session::start_relay(Connection &connection)
{
    // Under the lock, so that nobody signals the thread before its handle has been stored.
    const MutexLock guard(lock_);
    const int result = pthread_create(&connection.thread, nullptr, relay_thread, &connection);
    connection.thread_runs = result == 0;
    return result;
}

void rgui_session::leave_orphaned(Connection &connection)
{
    {
        const MutexLock guard(lock_);
        connection.orphan = !connection.stop;
        if (connection.orphan) return;
    }
    say_goodbye(connection);
    release(connection);
}

void rgui_session::end_relay(Connection &connection)
{
    {
        const MutexLock guard(lock_);
        connection.thread_runs = false;
    }
    release(connection);
}

// ---- waking and stopping

void rgui_session::wake(Connection &connection, int how)
{
    connection.stop = true;
    // The signal first: a thread that the shutdown has woken may already be sending a PDU.
    if (connection.thread_runs) interrupt(connection.thread);
    shutdown(connection.fd, how);
}

void rgui_session::end_for_other_side(Connection &connection)
{
    connection.announce_close = false;
    bool orphan;
    {
        const MutexLock guard(lock_);
        // Bytes that are being written to the TCP peer just now came before the Close: let them go.
        wake(connection, SHUT_RD);
        orphan = connection.orphan;
        connection.orphan = false;
    }
    if (orphan) release(connection);
}

Connection *rgui_session::take_orphan()
{
    const MutexLock guard(lock_);
    for (Link *at = connections_.next; at != &connections_; at = at->next) {
        auto *const connection = static_cast<Connection *>(at);
        if (!connection->orphan) continue;
        connection->orphan = false;
        return connection;
    }
    return nullptr;
}

void rgui_session::stop_connections()
{
    {
        const MutexLock guard(lock_);
        for (Link *at = connections_.next; at != &connections_; at = at->next) {
            auto &connection = static_cast<Connection &>(*at);
            if (connection.cut) continue;
            connection.cut = true;
            wake(connection, SHUT_RDWR);
        }
    }
    while (Connection *const orphan = take_orphan()) {
        say_goodbye(*orphan);
        release(*orphan);
    }
}

void rgui_session::stop()
{
    {
        const MutexLock guard(lock_);
        if (stopping.exchange(true)) return;
    }
    if (role == Role::kLocal) end_listener();
    stop_connections();
    drop();
}

// ---- the listener

int rgui_session::start_listener()
{
    hold_again(); // for the thread
    const int result = pthread_create(&listener_, nullptr, listener_thread, this);
    if (result != 0) drop();
    return result;
}

bool rgui_session::open_for_clients(int fd)
{
    const MutexLock guard(lock_);
    listening_fd_ = fd;
    return !stopping;
}

void rgui_session::close_for_clients()
{
    const MutexLock guard(lock_);
    close(listening_fd_);
    listening_fd_ = -1;
}

void rgui_session::end_listener()
{
    {
        const MutexLock guard(lock_);
        interrupt(listener_);
        if (listening_fd_ >= 0) shutdown(listening_fd_, SHUT_RDWR);
    }
    // A send callback may stop its own session, on this very thread: then nobody can wait for it.
    if (pthread_equal(pthread_self(), listener_))
        pthread_detach(listener_);
    else
        pthread_join(listener_, nullptr);
}
