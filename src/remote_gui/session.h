// session.h - one end of a Remote GUI link, the connections it relays, and who holds them.
//
//     registry ---> session <---- holders: the application (until it stops the session), the
//                     |  ^         listener thread, every connection, every running rgui_data_rx
//                     v  |
//                   connections <-- holders: the receive thread (or, if it could not be started,
//                                   whoever ends the connection), every rgui_data_rx that uses it
//
// Invariants
//   - A record is touched only by a holder, or under the lock of the list that it stands in. The
//     last holder to let go takes it out of that list and frees it, whichever thread that is.
//   - A connection's socket is open for as long as the connection is in its session's list, so a
//     wake-up under the lock never meets a descriptor that has been closed or reused.
//   - A receive thread is signalled under the lock while `thread_runs`, which the thread itself
//     clears before it ends, so a signal never meets a thread that has gone.
//
// Waking. A signal alone can be lost: it may arrive just before the blocking call. So a wake-up
// sets the stop flag, signals, and shuts the socket down, which a later recv, send or accept still
// sees.
//
// Locks: the registry's (sessions and their holders) and each session's (its connections and their
// holders, its listening socket). Neither is taken while the other is held, and none is held while
// the send callback runs or a socket is written to.
#pragma once

#include <atomic>
#include <cstdint>
#include <pthread.h>

#include "remote_gui/pdu.h"
#include "support/mutex.h"
#include "vnlib/remote_gui.h"

namespace vn::remote_gui {

// Circular and intrusive; an empty list's head links to itself.
struct Link {
    Link *next = this;
    Link *prev = this;

    void append(Link &link)
    {
        link.next = this;
        link.prev = prev;
        prev->next = &link;
        prev = &link;
    }
    void unlink()
    {
        prev->next = next;
        next->prev = prev;
        next = prev = this;
    }
};

enum class Role : uint32_t { kLocal = 1, kRemote = 2 };

struct Connection : Link {
    // The connection holds its session from here to its destruction. Null when memory ran out.
    [[nodiscard]] static Connection *create(rgui_session &owner, int socket);
    void destroy(); // for a connection that nobody else can know

    rgui_session &session;
    uint16_t id = 0; // settled when it joins the session's list
    int fd;
    std::atomic<bool> stop = false;          // asks the receive thread to end
    std::atomic<bool> announce_close = true; // the other end is to hear of our end
    unsigned holders = 1;                    // this and the rest: under the session's lock
    bool thread_runs = false;
    bool orphan = false; // its thread could not be started: whoever ends it takes the first hold
    bool cut = false;    // the session's stop has woken it
    pthread_t thread{};

private:
    Connection(rgui_session &owner, int socket) : session(owner), fd(socket) {}
};

enum class Joined { kYes, kDuplicate, kSessionStopped };

} // namespace vn::remote_gui

struct rgui_session : vn::remote_gui::Link {
    using Connection = vn::remote_gui::Connection;

    // Held once, by the application. Null when memory ran out.
    [[nodiscard]] static rgui_session *create(vn::remote_gui::Role role, const char *node,
                                              const char *service, rgui_send_fn send, void *ctx);

    // Takes a hold on `session` if that is a session at all; any pointer will do.
    [[nodiscard]] static bool hold(rgui_session *session);
    void hold_again(); // by a holder
    void drop();

    int send(unsigned char *pdu, size_t length) const; // takes the PDU; null is passed on, too
    [[nodiscard]] bool announce(vn::remote_gui::Opcode opcode, uint16_t id) const;

    // The connection with that ID, held for the caller, or null.
    [[nodiscard]] Connection *find_and_hold(uint16_t id);
    void release(Connection &connection);

    // Puts a new connection into the list. A local end numbers it; false: no ID is left.
    [[nodiscard]] bool join(Connection &connection);
    [[nodiscard]] vn::remote_gui::Joined join_as(Connection &connection, uint16_t id);

    // The receive thread has the connection's first hold: from its start ...
    [[nodiscard]] int start_relay(Connection &connection); // 0, or an error number
    void leave_orphaned(Connection &connection);           // ... or lack of one ...
    void end_relay(Connection &connection);                // ... to its end.
    void say_goodbye(Connection &connection);

    void end_for_other_side(Connection &connection);
    void stop_connections();
    void stop();

    [[nodiscard]] int start_listener();          // 0, or an error number
    [[nodiscard]] bool open_for_clients(int fd); // false: stopped meanwhile
    void close_for_clients();

    const vn::remote_gui::Role role;
    char *node = nullptr;
    char *service = nullptr;
    std::atomic<bool> stopping = false;

private:
    rgui_session(vn::remote_gui::Role which, rgui_send_fn send_pdu, void *context)
        : role(which), send_(send_pdu), ctx_(context)
    {
    }
    ~rgui_session() = default;
    void destroy();
    void end_listener();
    Connection *find(uint16_t id) VN_REQUIRES(lock_);
    void wake(Connection &connection, int how) VN_REQUIRES(lock_);
    Connection *take_orphan();

    const rgui_send_fn send_;
    void *const ctx_;
    unsigned holders_ = 1; // under the registry's lock
    pthread_t listener_{};
    vn::Mutex lock_;
    vn::remote_gui::Link connections_ VN_GUARDED_BY(lock_);
    uint32_t next_id_ VN_GUARDED_BY(lock_) = 1;
    int listening_fd_ VN_GUARDED_BY(lock_) = -1;
};

namespace vn::remote_gui {

using Session = rgui_session;

// Thread bodies.
void *relay_thread(void *connection);
void *listener_thread(void *session);

// Sends SIGUSR1, unless the application has no handler for it and would be ended by it.
void interrupt(pthread_t thread);

// GUI requests and replies are small and wait for each other: pass them on without delay.
void send_without_delay(int fd);

} // namespace vn::remote_gui
