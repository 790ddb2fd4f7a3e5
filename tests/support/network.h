// network.h - sockets and network namespaces for tests.
#pragma once

#include <chrono>
#include <cstdint>
#include <dirent.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace test {

// Moves the calling thread into a network namespace of its own, with the loopback interface up, so
// that fixed ports never clash with other tests. Call it while the process has one thread. Returns
// whether the machine allows it; if not, the process stays where it was.
inline bool enter_private_network()
{
    if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request = {};
    request.ifr_name[0] = 'l';
    request.ifr_name[1] = 'o';
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    close(fd);
    return up;
}

inline sockaddr_in loopback(uint16_t port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

inline uint16_t port_of(int fd)
{
    sockaddr_storage bound = {};
    socklen_t length = sizeof bound;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&bound), &length) != 0) return 0;
    return ntohs(bound.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6 &>(bound).sin6_port
                                             : reinterpret_cast<sockaddr_in &>(bound).sin_port);
}

// A socket listening on 127.0.0.1, made without the library; port 0: any. -1 on failure.
inline int listen_on_loopback(uint16_t port = 0, int backlog = 64)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = loopback(port);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
        listen(fd, backlog) == 0)
        return fd;
    close(fd);
    return -1;
}

// A connection to 127.0.0.1, made without the library. -1 on failure.
inline int connect_to_loopback(uint16_t port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return fd;
    close(fd);
    return -1;
}

inline size_t entries_of(const char *directory)
{
    DIR *const dir = opendir(directory);
    size_t count = 0;
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
    return count;
}
inline size_t open_descriptors()
{
    return entries_of("/proc/self/fd");
}
// A sanitizer starts a thread of its own with the program's first one, which must not count as one
// that the library left behind: so there has been a first one before anything is counted. It is
// listed for a moment after it was joined, under emulation for a long one.
inline size_t running_threads()
{
    [[maybe_unused]] static const bool has_had_one = [] {
        std::string task;
        std::thread([&] { task = "/proc/self/task/" + std::to_string(gettid()); }).join();
        while (access(task.c_str(), F_OK) == 0) std::this_thread::yield();
        return true;
    }();
    return entries_of("/proc/self/task");
}

// Waits until `condition` holds, at most `seconds`; returns whether it does.
template <typename Condition>
bool eventually(Condition condition, int seconds = 10)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

} // namespace test
