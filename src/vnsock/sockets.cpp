// sockets.cpp - sockets opened, bound, connected, accepted and named in one call each.
//
//   listen   getaddrinfo -> for each address: socket, buffers, options, bind, flags, listen, name
//   connect  getaddrinfo -> the first address: socket, buffers, interface, flags, connect
//
// Invariant: errno on return is that of the call that failed. Reports, closing and the release of
// the address list happen on the way out, so each of them puts errno back (it is also part of a
// message: the last line of a failed listen names the last failure).
#include "vnlib/vnsock.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>

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

struct FreeAddresses {
    void operator()(addrinfo *list) const
    {
        const ErrnoGuard keep;
        freeaddrinfo(list);
    }
};
using Addresses = std::unique_ptr<addrinfo, FreeAddresses>;

// Names are optional in several calls, and a missing one shows as the same text on every C library.
const char *printable(const char *text)
{
    return text != nullptr ? text : "(null)";
}

void report(const char *who, const char *what)
{
    const ErrnoGuard keep;
    vn_errno("%s: %s", printable(who), what);
}

void report_name_failure(int code, const char *who)
{
    const ErrnoGuard keep;
    vn_gaierror(code, "%s: getnameinfo", printable(who));
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
    const ErrnoGuard keep;
    vn_errno("%s: addfl: %#lx", printable(who), static_cast<unsigned long>(flags));
    return false;
}

// A socket address as the kernel fills it in.
class Address {
public:
    sockaddr *raw() { return reinterpret_cast<sockaddr *>(&storage_); }
    socklen_t *length() { return &length_; }

    // 0 or an EAI code; `host` is numeric, a service that has a name goes by it.
    [[nodiscard]] int name(char *host, size_t host_size, char *service = nullptr,
                           size_t service_size = 0)
    {
        return getnameinfo(raw(), length_, host, static_cast<socklen_t>(host_size), service,
                           static_cast<socklen_t>(service_size), NI_NUMERICHOST);
    }

private:
    sockaddr_storage storage_ = {};
    socklen_t length_ = sizeof storage_;
    static_assert(sizeof(sockaddr_storage) == 128);
};

addrinfo copy_of(const addrinfo *hints)
{
    return hints != nullptr ? *hints : addrinfo{};
}

// ---- listening

constexpr const char *kListen = "vnsock_listen";

struct ListenOptions {
    bool broadcast;
    int status_flags;
    int buffer_size;
};

enum class Outcome { kOpen, kTryNext, kGiveUp };

// Tells the log where the socket ended up, which for port 0 only the kernel knows.
bool announce_binding(int fd)
{
    Address bound;
    if (getsockname(fd, bound.raw(), bound.length()) != 0) return false;
    char host[kHostSize];
    char service[kServiceSize];
    if (const int code = bound.name(host, sizeof host, service, sizeof service); code != 0) {
        report_name_failure(code, kListen);
        return false;
    }
    __vn_log(kInfo, "Socket bound on interface %s port %s", host, service);
    return true;
}

// The part of opening that an address can fail at while another one may still do.
bool bind_and_listen(int fd, const addrinfo &at, int status_flags)
{
    return bind(fd, at.ai_addr, at.ai_addrlen) == 0 &&
           add_status_flags(fd, status_flags, kListen) &&
           (at.ai_socktype != SOCK_STREAM || listen(fd, kBacklog) == 0) && announce_binding(fd);
}

Outcome open_at(const addrinfo &at, const ListenOptions &options, int &descriptor)
{
    Fd fd(socket(at.ai_family, at.ai_socktype, at.ai_protocol));
    if (!fd.valid()) {
        if (errno != EAFNOSUPPORT) report(kListen, "socket");
        return Outcome::kTryNext;
    }
    if (vnsock_set_sockbuffers(fd.get(), options.buffer_size, options.buffer_size) != 0)
        return Outcome::kTryNext;
    if (switch_on(fd.get(), SO_REUSEADDR) != 0) report(kListen, "setsockopt: reuse");
    // A broadcaster that cannot broadcast is of no use on any address.
    if (at.ai_socktype == SOCK_DGRAM && options.broadcast &&
        switch_on(fd.get(), SO_BROADCAST) != 0) {
        report(kListen, "setsockopt SO_BROADCAST");
        return Outcome::kGiveUp;
    }
    if (!bind_and_listen(fd.get(), at, options.status_flags)) return Outcome::kTryNext;
    descriptor = fd.release();
    return Outcome::kOpen;
}

void report_unresolved(int code)
{
    const ErrnoGuard keep;
    if (code == EAI_SYSTEM)
        vn_errno("getaddrinfo");
    else
        __vn_log(kError, "getaddrinfo: %s", gai_strerror(code));
}

void report_unbound(const char *service)
{
    const ErrnoGuard keep;
    __vn_log(kError, "%s: unable to bind to port %s %s", kListen, printable(service),
             errno != 0 ? strerror(errno) : "");
}

int listen_on(addrinfo hints, const char *node, const char *service, const ListenOptions &options)
{
    hints.ai_flags |= AI_PASSIVE;
    addrinfo *found = nullptr;
    if (const int code = getaddrinfo(node, service, &hints, &found); code != 0) {
        report_unresolved(code);
        return -1;
    }
    const Addresses addresses(found);
    for (const addrinfo *at = found; at != nullptr; at = at->ai_next) {
        int descriptor = -1;
        const Outcome outcome = open_at(*at, options, descriptor);
        if (outcome != Outcome::kTryNext) return descriptor;
    }
    report_unbound(service);
    return -1;
}

// ---- connecting

struct ConnectOptions {
    const char *interface_name;
    int status_flags;
    int buffer_size;
    const char *who;
};

// An unbound connection is better than none, so this failure is only told.
void bind_to_interface(int fd, const char *name)
{
    if (name == nullptr || vnsock_bind_iface(fd, name) == 0) return;
    const ErrnoGuard keep;
    vn_errno("%s: setsockopt: bind to %s", "vnsock_connect", name);
}

bool connect_or_begin(int fd, const addrinfo &to, const ConnectOptions &options)
{
    if (connect(fd, to.ai_addr, to.ai_addrlen) == 0) return true;
    if (errno == EINPROGRESS && (options.status_flags & O_NONBLOCK) != 0) return true;
    report(options.who, "connect");
    return false;
}

int open_connection(const addrinfo &to, const ConnectOptions &options)
{
    Fd fd(socket(to.ai_family, to.ai_socktype, to.ai_protocol));
    if (!fd.valid()) {
        report(options.who, "socket");
        return -1;
    }
    if (vnsock_set_sockbuffers(fd.get(), options.buffer_size, options.buffer_size) != 0) return -1;
    bind_to_interface(fd.get(), options.interface_name);
    if (!add_status_flags(fd.get(), options.status_flags, options.who)) return -1;
    return connect_or_begin(fd.get(), to, options) ? fd.release() : -1;
}

int connect_to(addrinfo hints, const char *node, const char *service, const ConnectOptions &options)
{
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (const int code = getaddrinfo(node, service, &hints, &found); code != 0) {
        const ErrnoGuard keep;
        vn_gaierror(code, "%s: getaddrinfo: %s:%s", printable(options.who), printable(node),
                    printable(service));
        return -1;
    }
    const Addresses addresses(found);
    return open_connection(*addresses, options);
}

} // namespace
} // namespace vn::vnsock

using namespace vn::vnsock;

extern "C" {

int vnsock_listen(const struct addrinfo *hints, const char *node, const char *service,
                  unsigned char broadcast, int addfl, int bufsize)
{
    return listen_on(copy_of(hints), node, service, {broadcast != 0, addfl, bufsize});
}

int vnsock_connect(const struct addrinfo *hints, const char *node, const char *service,
                   const char *ifname, int addfl, int bufsize, const char *who)
{
    return connect_to(copy_of(hints), node, service, {ifname, addfl, bufsize, who});
}

int vnsock_accept(int fd, char *host, size_t hostlen, const char *who)
{
    Address peer;
    vn::Fd accepted(accept(fd, peer.raw(), peer.length()));
    if (!accepted.valid()) {
        if (errno != EAGAIN) report(who, "accept");
        return -1;
    }
    if (host != nullptr) {
        if (const int code = peer.name(host, hostlen); code != 0) {
            report_name_failure(code, who);
            return -1;
        }
    }
    return accepted.release();
}

char *vnsock_getpeername(int fd, char *host, size_t hostlen)
{
    constexpr const char *kName = "vnsock_getpeername";
    Address peer;
    if (getpeername(fd, peer.raw(), peer.length()) != 0) {
        const vn::ErrnoGuard keep;
        vn_errno("%s", kName);
        return nullptr;
    }
    if (const int code = peer.name(host, hostlen); code != 0) {
        const vn::ErrnoGuard keep;
        vn_gaierror(code, "%s", kName);
        return nullptr;
    }
    return host;
}

int vnsock_set_sockbuffers(int fd, int rcvbuf, int sndbuf)
{
    if (set_buffer(fd, SO_SNDBUF, sndbuf) != 0) return -1;
    return set_buffer(fd, SO_RCVBUF, rcvbuf) == 0 ? 0 : -1;
}

int vnsock_bind_iface(int fd, const char *ifname)
{
    if (ifname == nullptr) {
        errno = EINVAL;
        return -1;
    }
    std::array<char, kInterfaceRequestSize> request{};
    memcpy(request.data(), ifname, strnlen(ifname, kInterfaceNameSize - 1));
    return setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, request.data(), request.size()) == 0 ? 0
                                                                                            : -1;
}
}
