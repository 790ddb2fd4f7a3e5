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
using vn::MutexLock;

namespace {

// Every session that is not freed yet. It answers whether a pointer is a session, so that a PDU
// which arrives after a stop is refused and not followed into freed memory.
constinit Link registry VN_GUARDED_BY(registry_lock);

size_t size_of(const char *text)
{
    return text != nullptr ? strlen(text) + 1 : 0;
}

// A copy at `to` of an optional text of that size.
const char *copied(char *to, const char *text, size_t size)
{
    return size != 0 ? static_cast<const char *>(memcpy(to, text, size)) : nullptr;
}

} // namespace

namespace vn::remote_gui {

constinit Mutex registry_lock;

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
    return memory != nullptr ? new (memory) Connection(owner, socket) : nullptr;
}

void Connection::destroy()
{
    if (fd >= 0) close(fd);
    free(this);
}

} // namespace vn::remote_gui

// ---- life of a session

rgui_session *rgui_session::create(Role role, const char *node, const char *service,
                                   rgui_send_fn send, void *ctx)
{
    const size_t node_size = size_of(node);
    const size_t service_size = size_of(service);
    void *const memory = malloc(sizeof(rgui_session) + node_size + service_size);
    if (memory == nullptr) return nullptr;
    auto *const session = new (memory) rgui_session(role, send, ctx);
    auto *const texts = reinterpret_cast<char *>(session + 1);
    session->node = copied(texts, node, node_size);
    session->service = copied(texts + node_size, service, service_size);
    const MutexLock guard(registry_lock);
    registry.append(*session);
    return session;
}

rgui_session *rgui_session::enter(rgui_session *session)
{
    const MutexLock guard(registry_lock);
    for (const Link *at = registry.next; at != &registry; at = at->next) {
        if (at != session) continue;
        ++session->callers_;
        return session;
    }
    return nullptr;
}

void rgui_session::leave()
{
    {
        const MutexLock guard(registry_lock);
        if (--callers_ > 0) return;
        unlink();
    }
    const vn::ErrnoGuard keep;
    lock_.destroy();
    free(this);
}

void rgui_session::drop()
{
    {
        const MutexLock guard(lock_);
        if (--holders_ > 0) return;
    }
    leave();
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

void rgui_session::add(Connection &connection, uint16_t id)
{
    connection.id = id;
    connections_.append(connection);
    ++holders_;
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
    drop();
}

bool rgui_session::join(Connection &connection)
{
    const MutexLock guard(lock_);
    uint16_t id = next_id_;
    // Once the numbers have gone round, one may still be in use by a long-lived connection, whose
    // bytes must not reach another client: pass over it.
    while (find(id) != nullptr)
        if (++id == next_id_) return false;
    next_id_ = static_cast<uint16_t>(id + 1);
    add(connection, id);
    return true;
}

Joined rgui_session::join_as(Connection &connection, uint16_t id)
{
    const MutexLock guard(lock_);
    if (stopping) return Joined::kSessionStopped;
    if (find(id) != nullptr) return Joined::kDuplicate;
    add(connection, id);
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
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): the caller holds the session
    while (Connection *const orphan = take_orphan()) {
        say_goodbye(*orphan);
        release(*orphan);
    }
}

void rgui_session::stop()
{
    {
        const MutexLock guard(lock_);
        if (stopping) return;
        stopping = true;
        if (role == Role::kLocal) interrupt(listener_);
        if (listening_fd_ >= 0) shutdown(listening_fd_, SHUT_RDWR);
    }
    // A send callback may stop its own session, on this very thread: then nobody can wait for it.
    if (role == Role::kLocal) {
        if (pthread_self() == listener_)
            pthread_detach(listener_);
        else
            pthread_join(listener_, nullptr);
    }
    stop_connections();
    drop();
}

// ---- the listener

int rgui_session::start_listener()
{
    const MutexLock guard(lock_); // the thread lets go of its hold no earlier than it has one
    const int result = pthread_create(&listener_, nullptr, listener_thread, this);
    if (result == 0) ++holders_;
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
