// loopback.h - addresses and ports for tests that talk to themselves.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test {

inline sockaddr_in loopback(unsigned port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    return address;
}

// A TCP port that nobody listens on, and that no ended connection keeps. It is below those that the
// system gives to outgoing connections, and tests that run side by side search different ranges, so
// it stays free until it is used.
inline unsigned free_port()
{
    static unsigned next = static_cast<unsigned>(getpid()) * 41;
    for (;;) {
        const unsigned port = 10000 + next++ % 20000;
        const sockaddr_in address = loopback(port);
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        const int result = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
        close(fd);
        if (result == 0) return port;
    }
}

} // namespace test
