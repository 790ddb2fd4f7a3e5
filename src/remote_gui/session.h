// session.h - one end of a Remote GUI link, the connections it relays, and who holds them.
//
//     registry ---> session <---- holders: the application (until it stops the session), the
//                     |  ^         listener thread, every connection
//                     |  |    <---- callers: every running rgui_data_rx and rgui_stop_*
//                     v  |
//                   connections <-- holders: the receive thread (or, if it could not be started,
//                                   whoever ends the connection), every rgui_data_rx that uses it
//
// Invariants
//   - A record is touched only by a holder or a caller, or under the lock of the list that it
//     stands in. The last one to let go takes it out of that list and frees it, whichever thread
//     that is.
//   - All holders of a session together count as one caller, which leaves with the last of them.
//     Callers come in through the registry, so one that found the session keeps it, holders or not.
//     A session without holders gets none again: it has no connections, and takes no more once it
//     is stopped.
//   - A connection's socket is open for as long as the connection is in its session's list, so a
//     wake-up under the lock never meets a descriptor that has been closed or reused.
//   - A receive thread is signalled under the lock while `thread_runs`, which the thread itself
//     clears before it ends, so a signal never meets a thread that has gone.
//
// Waking. A signal alone can be lost: it may arrive just before the blocking call. So a wake-up
// sets the stop flag, signals, and shuts the socket down, which a later recv, send or accept still
// sees.
//
// Locks. Each session has one, over its connections, their holders and its own. It is held for a
// few instructions, the start of a thread or a system call that does not block, and never while the
// send callback runs or a socket is written to. All sessions share the registry's, over which
// sessions there are and how many callers each has: a few instructions, and no system call. Neither
// is taken while the other is held, so no session waits for another one's system calls.
#pragma once

#include <atomic>
#include <cstdint>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>

#include "remote_gui/pdu.h"
#include "support/mutex.h"
#include "vnlib/remote_gui.h"

namespace vn::remote_gui {

extern Mutex registry_lock;

// Read without the lock. Relaxed: whoever is to see a change is woken by a system call after it.
class Flag {
public:
    explicit Flag(bool set) : set_(set) {}
    Flag &operator=(bool set)
    {
        set_.store(set, std::memory_order_relaxed);
        return *this;
    }
    operator bool() const { return set_.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> set_;
};

// Circular and intrusive; an empty list's head links to itself.
struct Link {
    Link *next = this;
    Link *prev = this;

    void append(Link &link)
    {
        Link *const last = prev;
        link.next = this;
        link.prev = last;
        last->next = prev = &link;
    }
    void unlink() const // for good
    {
        prev->next = next;
        next->prev = prev;
    }
};

enum class Role : uint32_t { kLocal = 1, kRemote = 2 };

struct Connection : Link {
    // Null when memory ran out.
    [[nodiscard]] static Connection *create(rgui_session &owner, int socket);
    void destroy(); // for a connection that nobody else can know

    rgui_session &session;
    uint16_t id = 0; // settled when it joins the session's list
    int fd;
    Flag stop{false};          // asks the receive thread to end
    Flag announce_close{true}; // the other end is to hear of our end
    unsigned holders = 1;      // this and the rest: under the session's lock
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

    // Held once, for the application. Null when memory ran out.
    [[nodiscard]] static rgui_session *create(vn::remote_gui::Role role, const char *node,
                                              const char *service, rgui_send_fn send, void *ctx);

    // The session, until the caller leaves it, or null if it is none; any pointer will do.
    [[nodiscard]] static rgui_session *enter(rgui_session *session);
    void leave();
    void drop(); // by a holder

    int send(unsigned char *pdu, size_t length) const; // takes the PDU; null is passed on, too
    [[nodiscard]] bool announce(vn::remote_gui::Opcode opcode, uint16_t id) const;

    // The connection with that ID, held for the caller, or null.
    [[nodiscard]] Connection *find_and_hold(uint16_t id);
    void release(Connection &connection);

    // Puts a new connection into the list, from where on it holds its session. A local end numbers
    // it; false: no ID is left.
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
    const char *node = nullptr; // this and the next lie behind the record
    const char *service = nullptr;
    vn::remote_gui::Flag stopping{false};

private:
    rgui_session(vn::remote_gui::Role which, rgui_send_fn send_pdu, void *context)
        : role(which), send_(send_pdu), ctx_(context)
    {
    }
    ~rgui_session() = default;
    Connection *find(uint16_t id) VN_REQUIRES(lock_);
    void add(Connection &connection, uint16_t id) VN_REQUIRES(lock_);
    void wake(Connection &connection, int how) VN_REQUIRES(lock_);
    Connection *take_orphan();

    const rgui_send_fn send_;
    void *const ctx_;
    pthread_t listener_{};
    unsigned callers_ VN_GUARDED_BY(vn::remote_gui::registry_lock) = 1; // the holders
    vn::Mutex lock_;
    unsigned holders_ VN_GUARDED_BY(lock_) = 1;
    vn::remote_gui::Link connections_ VN_GUARDED_BY(lock_);
    uint16_t next_id_ VN_GUARDED_BY(lock_) = 1;
    int listening_fd_ VN_GUARDED_BY(lock_) = -1;
};

namespace vn::remote_gui {

using Session = rgui_session;

// What both ends speak to their TCP peers.
inline constexpr addrinfo kTcp = [] {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    return hints;
}();

// Thread bodies.
void *relay_thread(void *connection);
void *listener_thread(void *session);

// Sends SIGUSR1, unless the application has no handler for it and would be ended by it.
void interrupt(pthread_t thread);

// GUI requests and replies are small and wait for each other: pass them on without delay.
void send_without_delay(int fd);

} // namespace vn::remote_gui
