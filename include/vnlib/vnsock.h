/*
 * vnsock.h - socket helpers, TCP diagnostics, MAC lookup
 *
 * Each call does one socket job whole and reports its own failures through the log (level 3), so a
 * caller only tests the result: a descriptor or 0 on success, -1 (or null) on failure, with errno
 * as the failing system call left it. Names and services are resolved with getaddrinfo, so IPv4 and
 * IPv6 are alike. Descriptors belong to the caller, who ends them with close(). A call that fails
 * leaves nothing open and nothing allocated.
 *
 * Every function may be called from any thread. None of them retries, and none raises a signal.
 */
#ifndef VNLIB_VNSOCK_H
#define VNLIB_VNSOCK_H

#include <netdb.h>
#include <sys/socket.h>
#include <sys/types.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

struct addrinfo; /* of <netdb.h>, which hides it from a strictly standard C compilation */

/*
 * Opens a socket bound to the first address that works, and for SOCK_STREAM listening on it with a
 * backlog of 10. SO_REUSEADDR is set.
 *
 *   hints      family, type, protocol and flags as for getaddrinfo; AI_PASSIVE is added to a copy.
 *              Null stands for all zero.
 *   node       the address or host name to bind to; null: all interfaces
 *   service    the port number or service name; null: a port of the system's choice
 *   broadcast  not 0: allow broadcasts (SO_BROADCAST) on a datagram socket
 *   addfl      file-status flags to add (O_NONBLOCK, ...); 0: none
 *   bufsize    bytes for both socket buffers; 0: the system's defaults
 *
 * Addresses are tried in the order of getaddrinfo. One whose family the kernel lacks is skipped in
 * silence. A failure to allow broadcasts is final: no other address is tried.
 *
 * Returns the descriptor after logging the bound address at level 6, or -1 after logging why.
 */
VN_API int vnsock_listen(const struct addrinfo *hints, const char *node, const char *service,
                         unsigned char broadcast, int addfl, int bufsize);

/*
 * Opens a stream connection to the first address that getaddrinfo gives; others are not tried.
 *
 *   hints          family, protocol and flags; the type becomes SOCK_STREAM in a copy. Null stands
 *                  for all zero.
 *   node, service  the host and port to connect to
 *   ifname         bind to this network interface first; null: none. A failure to do so is logged
 *                  and the connection is made unbound.
 *   addfl          file-status flags to add; with O_NONBLOCK the connection may still be in
 *                  progress on return, and the caller waits until the descriptor is writable
 *   bufsize        bytes for both socket buffers; 0: the system's defaults
 *   who            the caller's name, which its log lines begin with
 *
 * Returns the descriptor, or -1. Blocks for as long as the system tries to connect.
 */
VN_API int vnsock_connect(const struct addrinfo *hints, const char *node, const char *service,
                          const char *ifname, int addfl, int bufsize, const char *who);

/*
 * Accepts one connection from the listening socket `fd`. When `host` is not null, the peer's
 * numeric address is written to its `hostlen` bytes (NUL included). `who` is the caller's name for
 * the log. Returns the new descriptor, or -1; that a non-blocking listener has nobody waiting
 * (EAGAIN) is not logged.
 */
VN_API int vnsock_accept(int fd, char *host, size_t hostlen, const char *who);

/*
 * Writes the numeric address of the peer of `fd` to the `hostlen` bytes at `host` (NUL included).
 * Returns `host`, or null.
 */
VN_API char *vnsock_getpeername(int fd, char *host, size_t hostlen);

/*
 * Sets the send buffer, then the receive buffer of `fd`, in bytes; 0 leaves that one as it is.
 * Returns 0, or -1 at the first failure. Logs nothing.
 */
VN_API int vnsock_set_sockbuffers(int fd, int rcvbuf, int sndbuf);

/*
 * Binds `fd` to the network interface `ifname`, of which the first 15 characters count; an empty
 * name takes the binding away. Returns 0, or -1 (EINVAL for a null name). Logs nothing.
 */
VN_API int vnsock_bind_iface(int fd, const char *ifname);

/*
 * Reads the kernel's statistics of the TCP socket `fd` into the 104 bytes at `info`, which need no
 * alignment: the first 104 bytes of Linux' struct tcp_info, in host byte order. Returns 0, or -1
 * after logging why.
 */
VN_API int read_tcp_info(int fd, unsigned char *info);

/*
 * Logs the 104-byte record at `info` (as read_tcp_info fills it) at `level`: a title, one field a
 * line in hexadecimal (times too), and an end line. Level 23 logs nothing.
 */
VN_API void display_tcp_info(int level, const unsigned char *info);

/*
 * Reads the hardware address of the network interface `ifname` from sysfs into the six bytes of
 * `mac`, in transmission order. Returns 0, or -1 when there is no such interface, its address is
 * not six hexadecimal pairs, or memory ran out; `mac` is then unspecified. Logs nothing.
 */
VN_API int vn_getmac(const char *ifname, unsigned char mac[6]);

/*
 * The same address as a number: the first byte in bits 40 to 47, the last in bits 0 to 7. Returns 0
 * when it cannot be read, so an all-zero address (the loopback's) looks like a failure.
 */
VN_API uint64_t vn_getmac64(const char *ifname);

VN_END_DECLS

#endif
