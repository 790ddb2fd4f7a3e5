#include "relays.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

#include "support/network.h"
#include "vnlib/remote_gui.h"

namespace relays {
namespace {

constexpr uint16_t kServer = 8008; // where a remote end connects to
constexpr size_t kBuffer = 256 * 1024;

void set_no_delay(int fd)
{
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// ---- processes

// What has been started, with whatever that has started itself, ends with the program.
struct Children {
    std::vector<pid_t> groups;
    ~Children()
    {
        for (const pid_t group : groups) kill(-group, SIGKILL);
        while (!groups.empty() && wait(nullptr) > 0) {
        }
    }
};
Children children;

void run(const char *name, const std::function<void()> &body)
{
    prctl(PR_SET_CHILD_SUBREAPER, 1); // so that orphans can be waited for
    const pid_t parent = getpid(), child = fork();
    if (child == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        prctl(PR_SET_NAME, name);
        if (getppid() == parent) body();
        _exit(1);
    }
    setpgid(child, child); // both do, as nobody knows who is first
    children.groups.push_back(child);
}

void execute(const std::string &command)
{
    run("sh", [&] {
        const int null = open("/dev/null", O_RDWR);
        for (const int fd : {0, 1, 2}) dup2(null, fd);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    });
}

bool is_installed(const std::string &program)
{
    return system(("PATH=$PATH:/usr/sbin; command -v " + program + " >/dev/null").c_str()) == 0;
}

// ---- the server

void serve(int fd)
{
    set_no_delay(fd);
    std::vector<unsigned char> buffer(kBuffer);
    const auto answer = [] {
        std::vector<unsigned char> bytes(kBuffer);
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = byte_at(i);
        return bytes;
    }();
    Order order{};
    while (recv(fd, &order, sizeof order, MSG_WAITALL) == sizeof order) {
        for (size_t left = order.upload; left > 0;) {
            const ssize_t got = recv(fd, buffer.data(), std::min(left, buffer.size()), 0);
            if (got <= 0) return;
            left -= static_cast<size_t>(got);
        }
        for (size_t at = 0; at < order.download; at += kBuffer) {
            if (!write_all(fd, answer.data(), std::min(order.download - at, kBuffer))) return;
        }
    }
}

void accept_all(int listener, const std::function<void(int)> &handle)
{
    for (int fd; (fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        std::thread([fd, handle] {
            handle(fd);
            close(fd);
        }).detach();
    }
}

// ---- the library's relay: PDUs, one after the other, as packets or on a stream

class Link {
public:
    explicit Link(int fd) : fd_(fd) {}

    static int send(unsigned char *pdu, size_t length, void *link)
    {
        auto &self = *static_cast<Link *>(link);
        const std::lock_guard hold(self.lock_);
        const bool sent = pdu != nullptr && write_all(self.fd_, pdu, length);
        free(pdu);
        return sent ? 0 : -1;
    }

    void feed(rgui_session *session)
    {
        std::vector<unsigned char> buffer(2 * kBuffer);
        for (size_t filled = 0;;) {
            const ssize_t got = read(fd_, &buffer[filled], buffer.size() - filled);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return;
            filled += static_cast<size_t>(got);
            size_t at = 0;
            while (filled - at >= kHeader && filled - at >= length_of(&buffer[at])) {
                const size_t length = length_of(&buffer[at]);
                rgui_data_rx(session, &buffer[at], length);
                at += length;
            }
            memmove(buffer.data(), &buffer[at], filled - at);
            filled -= at;
        }
    }

private:
    static constexpr size_t kHeader = 8;
    static size_t length_of(const unsigned char *pdu)
    {
        uint32_t size;
        memcpy(&size, pdu + 4, sizeof size);
        return kHeader + size;
    }

    const int fd_;
    std::mutex lock_;
};

void let_sessions_wake_threads()
{
    struct sigaction wake_up = {};
    wake_up.sa_handler = [](int) {};
    sigaction(SIGUSR1, &wake_up, nullptr);
}

void run_library(uint16_t port, int near, int far)
{
    const auto run_end = [](const char *name, int fd, int other,
                            const std::function<rgui_session *(Link &)> &start) {
        run(name, [&] {
            close(other);
            let_sessions_wake_threads();
            Link link(fd);
            link.feed(start(link));
        });
    };
    const std::string service = std::to_string(port);
    run_end("near end", near, far, [&](Link &link) {
        return rgui_start_local("127.0.0.1", service.c_str(), 0, Link::send, &link);
    });
    run_end("far end", far, near, [](Link &link) { return rgui_start_remote(Link::send, &link); });
    close(near);
    close(far);
}

void run_library_over_unix(uint16_t port)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0) run_library(port, ends[0], ends[1]);
}

void run_library_over_tcp(uint16_t port)
{
    const int listener = test::listen_on_loopback();
    const int near = test::connect_to_loopback(test::port_of(listener));
    const int far = accept(listener, nullptr, nullptr);
    close(listener);
    set_no_delay(near);
    set_no_delay(far);
    run_library(port, near, far);
}

// Both ends in one process, each feeding the other: no link, so that what is left is the library.
void run_library_in_one_process(uint16_t port)
{
    using End = std::atomic<rgui_session *>;
    run("both ends", [&] {
        static End near, far;
        constexpr rgui_send_fn kFeed = [](unsigned char *pdu, size_t length, void *other) {
            if (pdu != nullptr) rgui_data_rx(*static_cast<End *>(other), pdu, length);
            free(pdu);
            return 0;
        };
        let_sessions_wake_threads();
        far = rgui_start_remote(kFeed, &near);
        near = rgui_start_local("127.0.0.1", std::to_string(port).c_str(), 0, kFeed, &far);
        for (;;) pause();
    });
}

// ---- relays that only move bytes

// Moves everything from one socket to the other within the kernel.
void splice_all(int from, int to)
{
    constexpr size_t kMost = 1 << 20;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    fcntl(ends[0], F_SETPIPE_SZ, int{kMost});
    for (ssize_t got; (got = splice(from, nullptr, ends[1], nullptr, kMost, SPLICE_F_MOVE)) > 0;) {
        while (got > 0) {
            const ssize_t put =
                splice(ends[0], nullptr, to, nullptr, static_cast<size_t>(got), SPLICE_F_MOVE);
            if (put <= 0) break;
            got -= put;
        }
        if (got > 0) break;
    }
    shutdown(to, SHUT_WR);
    shutdown(from, SHUT_RD);
    close(ends[0]);
    close(ends[1]);
}

void run_splice(uint16_t port, uint16_t to)
{
    const int listener = test::listen_on_loopback(port);
    run("splice", [&] {
        accept_all(listener, [to](int client) {
            const int server = connect_to(to);
            if (server < 0) return;
            set_no_delay(client);
            std::thread back([&] { splice_all(server, client); });
            splice_all(client, server);
            back.join();
            close(server);
        });
    });
    close(listener);
}

void run_socat(uint16_t port, uint16_t between, const std::string &options)
{
    const auto relay = [&](uint16_t from, uint16_t to) {
        execute("exec socat " + options + " TCP-LISTEN:" + std::to_string(from) +
                ",bind=127.0.0.1,reuseaddr,fork,nodelay,backlog=64 TCP:127.0.0.1:" +
                std::to_string(to) + ",nodelay");
    };
    relay(between, kServer);
    relay(port, between);
}

// A server for this alone, with keys that are made now. It wants a directory of the system that may
// not be there: all of it happens on a file system that nobody else sees, and that goes with it.
void run_ssh(uint16_t port, uint16_t between)
{
    const std::string near = std::to_string(port), link = std::to_string(between),
                      server = std::to_string(kServer);
    execute("exec unshare -m sh -e -c '\n"
            "mount -t tmpfs none /run; mkdir -m 755 /run/sshd; cd /run\n"
            "for key in host user; do ssh-keygen -q -t ed25519 -N \"\" -f $key; done\n"
            "setpriv --pdeathsig KILL /usr/sbin/sshd -D -f /dev/null -h /run/host -o Port=" +
            link +
            " -o ListenAddress=127.0.0.1 -o AuthorizedKeysFile=/run/user.pub -o StrictModes=no"
            " -o PermitRootLogin=prohibit-password -o PasswordAuthentication=no"
            " -o KbdInteractiveAuthentication=no -o UsePAM=no -o PidFile=none &\n"
            "for try in 1 2 3 4 5 6 7 8 9; do\n"
            "  sleep 0.2; setpriv --pdeathsig KILL ssh -N -F none -i user -p " +
            link +
            " -o BatchMode=yes -o StrictHostKeyChecking=no -o UserKnownHostsFile=/dev/null"
            " -o ExitOnForwardFailure=yes -L 127.0.0.1:" +
            near + ":127.0.0.1:" + server +
            " $(id -un)@127.0.0.1 && break\n"
            "done'");
}

// Whether an answer comes through, after a while.
bool works(uint16_t port)
{
    return test::eventually([port] {
        const int fd = connect_to(port);
        const Order order{0, 100};
        const bool good = fd >= 0 && write_all(fd, &order, sizeof order) && read_all(fd, 100);
        close(fd);
        return good;
    });
}

} // namespace

unsigned char byte_at(size_t place)
{
    return static_cast<unsigned char>((place % kBuffer) * 167 >> 4);
}

int connect_to(uint16_t port)
{
    const int fd = test::connect_to_loopback(port);
    if (fd >= 0) set_no_delay(fd);
    return fd;
}

bool write_all(int fd, const void *bytes, size_t size)
{
    const auto *at = static_cast<const unsigned char *>(bytes);
    while (size > 0) {
        const ssize_t sent = send(fd, at, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) return false;
        at += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool read_all(int fd, size_t size)
{
    static unsigned char buffer[kBuffer];
    for (size_t done = 0; done < size;) {
        const ssize_t got = recv(fd, buffer, std::min(size - done, kBuffer), 0);
        if (got <= 0 || buffer[0] != byte_at(done)) return false;
        done += static_cast<size_t>(got);
        if (buffer[got - 1] != byte_at(done - 1)) return false;
    }
    return true;
}

std::vector<Way> start()
{
    if (!test::enter_private_network())
        fputs("no network of our own: port 8008 must be free\n", stderr);
    signal(SIGPIPE, SIG_IGN);
    const int listener = test::listen_on_loopback(kServer);
    run("server", [&] { accept_all(listener, serve); });
    close(listener);

    std::vector<Way> ways = {
        {"direct", kServer}, {"vnlib", 9001}, {"vnlib-tcp", 9002}, {"vnlib-no-link", 9007}};
    run_library_over_unix(9001);
    run_library_over_tcp(9002);
    run_library_in_one_process(9007);
    ways.push_back({"splice", 9003});
    run_splice(9103, kServer);
    run_splice(9003, 9103);
    if (is_installed("socat")) {
        ways.push_back({"socat", 9004});
        run_socat(9004, 9104, "");
        ways.push_back({"socat-64k", 9005});
        run_socat(9005, 9105, "-b65536");
    }
    if (is_installed("sshd")) {
        ways.push_back({"ssh", 9006});
        run_ssh(9006, 9106);
    }
    std::erase_if(ways, [](const Way &way) {
        const bool there = works(way.port);
        if (!there) fprintf(stderr, "%s does not work here and is left out\n", way.who.c_str());
        return !there;
    });
    return ways;
}

} // namespace relays
