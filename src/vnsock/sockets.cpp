// sockets.cpp - sockets opened, bound, connected, accepted and named in one call each.
//
//   listen   getaddrinfo -> for each address: socket, buffers, options, bind, flags, listen, name
//   connect  getaddrinfo -> the first address: socket, buffers, interface, flags, connect
//
// Invariant: errno on return is that of the call that failed. Closing and the release of the
// address list happen on the way out, so each of them puts errno back, as every report does (it is
// also part of a message: the last line of a failed listen names the last failure).
#include "vnlib/vnsock.h"

#include <cerrno>
#include <fcntl.h>

#include "support/fd.h"
#include "vnlib/log.h"

namespace vn::vnsock {
namespace {

constexpr int kError = 3;
constexpr int kInfo = 6;
constexpr int kBacklog = 10;
constexpr size_t kHostSize = 1025; // room for any name; the C libraries disagree on NI_MAXHOST
constexpr size_t kServiceSize = 32;
constexpr size_t kInterfaceRequestSize = 32; // struct ifreq of the 32-bit target; 40 on 64 bits
constexpr size_t kInterfaceNameSize = 16;    // its name field, NUL included

// Names are optional in several calls, and a missing one shows as the same text on every C library.
const char *printable(const char *text)
{
    return text != nullptr ? text : "(null)";
}

void report(const char *who, const char *what)
{
    vn_errno("%s: %s", who, what);
}

void report_name_failure(int code, const char *who)
{
    vn_gaierror(code, "%s: getnameinfo", who);
}

int switch_on(int fd, int option)
{
    const int on = 1;
    return setsockopt(fd, SOL_SOCKET, option, &on, sizeof on);
}

int set_buffer(int fd, int option, int size)
{
    return size == 0 ? 0 : setsockopt(fd, SOL_SOCKET, option, &size, sizeof size);
}

// Adds `flags` to the descriptor's file-status flags; logs a failure under `who`.
bool add_status_flags(int fd, int flags, const char *who)
{
    if (flags == 0) return true;
    const int present = fcntl(fd, F_GETFL);
    if (present >= 0 && fcntl(fd, F_SETFL, present | flags) >= 0) return true;
    vn_errno("%s: addfl: %#lx", who, static_cast<unsigned long>(flags));
    return false;
}

// A socket address as the kernel fills it in.
class Address {
public:
    // Asks `call`, which is accept(), getsockname() or getpeername().
    [[gnu::noinline]] Address(int (*call)(int, sockaddr *, socklen_t *), int fd)
        : result_(call(fd, raw(), &length_))
    {
    }
    [[nodiscard]] int result() const { return result_; }

    // 0 or an EAI code; `host` is numeric, a service that has a name goes by it.
    [[nodiscard]] int name(char *host, size_t host_size, char *service = nullptr,
                           size_t service_size = 0)
    {
        return getnameinfo(raw(), length_, host, static_cast<socklen_t>(host_size), service,
                           static_cast<socklen_t>(service_size), NI_NUMERICHOST);
    }

private:
    sockaddr *raw() { return reinterpret_cast<sockaddr *>(&storage_); }

    sockaddr_storage storage_ = {};
    socklen_t length_ = sizeof storage_;
    int result_; // of the call
    static_assert(sizeof(sockaddr_storage) == 128);
};

// ---- opening

// What is wanted of a socket, and in whose name its failures are told.
struct Request {
    bool listens;
    const char *who;
    const char *node;
    const char *service;
    int status_flags;
    int buffer_size;
    bool broadcast = false;               // for a listener
    const char *interface_name = nullptr; // for a connection
};

enum class Outcome { kOpen, kTryNext, kGiveUp };

// Tells the log where the socket ended up, which for port 0 only the kernel knows.
bool announce_binding(int fd, const char *who)
{
    Address bound(getsockname, fd);
    if (bound.result() != 0) return false;
    char host[kHostSize];
    char service[kServiceSize];
    if (const int code = bound.name(host, sizeof host, service, sizeof service); code != 0) {
        report_name_failure(code, who);
        return false;
    }
    __vn_log(kInfo, "Socket bound on interface %s port %s", host, service);
    return true;
}

// The part of listening that an address can fail at while another one may still do.
bool bind_and_listen(int fd, const addrinfo &at, const Request &request)
{
    return bind(fd, at.ai_addr, at.ai_addrlen) == 0 &&
           add_status_flags(fd, request.status_flags, request.who) &&
           (at.ai_socktype != SOCK_STREAM || listen(fd, kBacklog) == 0) &&
           announce_binding(fd, request.who);
}

Outcome listen_at(int fd, const addrinfo &at, const Request &request)
{
    if (switch_on(fd, SO_REUSEADDR) != 0) report(request.who, "setsockopt: reuse");
    // A broadcaster that cannot broadcast is of no use on any address.
    if (at.ai_socktype == SOCK_DGRAM && request.broadcast && switch_on(fd, SO_BROADCAST) != 0) {
        report(request.who, "setsockopt SO_BROADCAST");
        return Outcome::kGiveUp;
    }
    return bind_and_listen(fd, at, request) ? Outcome::kOpen : Outcome::kTryNext;
}

// An unbound connection is better than none, so this failure is only told.
void bind_to_interface(int fd, const char *name)
{
    if (name != nullptr && vnsock_bind_iface(fd, name) != 0)
        vn_errno("vnsock_connect: setsockopt: bind to %s", name);
}

bool connect_or_begin(int fd, const addrinfo &to, const Request &request)
{
    if (connect(fd, to.ai_addr, to.ai_addrlen) == 0) return true;
    if (errno == EINPROGRESS && (request.status_flags & O_NONBLOCK) != 0) return true;
    report(request.who, "connect");
    return false;
}

Outcome connect_to(int fd, const addrinfo &to, const Request &request)
{
    bind_to_interface(fd, request.interface_name);
    const bool open = add_status_flags(fd, request.status_flags, request.who) &&
                      connect_or_begin(fd, to, request);
    return open ? Outcome::kOpen : Outcome::kGiveUp;
}

// The descriptor, or -1. A listener takes the first address that does, a connection the first.
int open_at(const addrinfo *addresses, const Request &request)
{
    for (const addrinfo *at = addresses; at != nullptr; at = at->ai_next) {
        Outcome outcome = request.listens ? Outcome::kTryNext : Outcome::kGiveUp;
        Fd fd(socket(at->ai_family, at->ai_socktype, at->ai_protocol));
        if (!fd.valid()) {
            if (!request.listens || errno != EAFNOSUPPORT) report(request.who, "socket");
        } else if (vnsock_set_sockbuffers(fd.get(), request.buffer_size, request.buffer_size) == 0)
            outcome = (request.listens ? listen_at : connect_to)(fd.get(), *at, request);
        if (outcome == Outcome::kOpen) return fd.release();
        if (outcome == Outcome::kGiveUp) return -1;
    }
    // Without an error number the reason is left empty. "%m" is no standard's, but every log knows
    // it.
    __extension__ __vn_log(kError, "%s: unable to bind to port %s %.*m", request.who,
                           printable(request.service), errno != 0 ? -1 : 0);
    return -1;
}

void report_unresolved(int code, const Request &request)
{
    if (!request.listens)
        vn_gaierror(code, "%s: getaddrinfo: %s:%s", request.who, printable(request.node),
                    printable(request.service));
    else if (code == EAI_SYSTEM)
        vn_errno("getaddrinfo");
    else
        __vn_log(kError, "getaddrinfo: %s", gai_strerror(code));
}

int open_socket(const addrinfo *hints, const Request &request)
{
    addrinfo wanted = {};
    if (hints != nullptr) wanted = *hints;
    if (request.listens)
        wanted.ai_flags |= AI_PASSIVE;
    else
        wanted.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (const int code = getaddrinfo(request.node, request.service, &wanted, &found); code != 0) {
        report_unresolved(code, request);
        return -1;
    }
    const int fd = open_at(found, request);
    const ErrnoGuard keep;
    freeaddrinfo(found);
    return fd;
}

} // namespace
} // namespace vn::vnsock

using namespace vn::vnsock;

extern "C" {

int vnsock_listen(const struct addrinfo *hints, const char *node, const char *service,
                  unsigned char broadcast, int addfl, int bufsize)
{
    return open_socket(hints, {.listens = true,
                               .who = "vnsock_listen",
                               .node = node,
                               .service = service,
                               .status_flags = addfl,
                               .buffer_size = bufsize,
                               .broadcast = broadcast != 0});
}

int vnsock_connect(const struct addrinfo *hints, const char *node, const char *service,
                   const char *ifname, int addfl, int bufsize, const char *who)
{
    return open_socket(hints, {.listens = false,
                               .who = printable(who),
                               .node = node,
                               .service = service,
                               .status_flags = addfl,
                               .buffer_size = bufsize,
                               .interface_name = ifname});
}

int vnsock_accept(int fd, char *host, size_t hostlen, const char *who)
{
    who = printable(who);
    Address peer(accept, fd);
    vn::Fd accepted(peer.result());
    if (!accepted.valid()) {
        if (errno != EAGAIN) report(who, "accept");
        return -1;
    }
    if (const int code = host != nullptr ? peer.name(host, hostlen) : 0; code != 0) {
        report_name_failure(code, who);
        return -1;
    }
    return accepted.release();
}

char *vnsock_getpeername(int fd, char *host, size_t hostlen)
{
    Address peer(getpeername, fd);
    if (peer.result() != 0) {
        vn_errno("vnsock_getpeername");
        return nullptr;
    }
    if (const int code = peer.name(host, hostlen); code != 0) {
        vn_gaierror(code, "vnsock_getpeername");
        return nullptr;
    }
    return host;
}

int vnsock_set_sockbuffers(int fd, int rcvbuf, int sndbuf)
{
    if (set_buffer(fd, SO_SNDBUF, sndbuf) != 0) return -1;
    return set_buffer(fd, SO_RCVBUF, rcvbuf);
}

int vnsock_bind_iface(int fd, const char *ifname)
{
    if (ifname == nullptr) {
        errno = EINVAL;
        return -1;
    }
    char request[kInterfaceRequestSize] = {};
    for (size_t i = 0; i < kInterfaceNameSize - 1 && ifname[i] != '\0'; ++i) request[i] = ifname[i];
    return setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, request, sizeof request);
}
}
