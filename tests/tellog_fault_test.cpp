// The stream when the system refuses: memory, threads, sockets, and sends that do only a part.
#include "vnlib/tellog.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/fault_alloc.h"
#include "support/loopback.h"

extern "C" {
int __real_socket(int domain, int type, int protocol);
int __real_bind(int fd, const sockaddr *address, socklen_t length);
int __real_listen(int fd, int backlog);
int __real_shutdown(int fd, int how);
int __real_poll(pollfd *fds, nfds_t count, int timeout);
int __real_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
char *__real_ctime_r(const time_t *now, char *text);
int __real_accept4(int fd, sockaddr *address, socklen_t *length, int flags);
int __wrap_accept4(int fd, sockaddr *address, socklen_t *length, int flags);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_bind(int fd, const sockaddr *address, socklen_t length);
int __wrap_listen(int fd, int backlog);
int __wrap_shutdown(int fd, int how);
long __wrap_syscall(long number, ...);
int __wrap_poll(pollfd *fds, nfds_t count, int timeout);
int __wrap_pthread_create(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
char *__wrap_ctime_r(const time_t *now, char *text);
}

namespace {

using test::free_port;
using test::loopback;

struct Faults {
    bool socket = false, bind = false, listen = false, thread = false, ctime = false;
    int poll = 0;               // an error number
    std::vector<ssize_t> sends; // for the next calls: at most so many bytes, or -error number
    std::vector<size_t> parts;  // how many parts each call was given
    std::vector<int> flags;
    std::vector<int> shutdowns; // in which direction
    int backlog = -1;
    sockaddr_in bound{};
} faults;

std::atomic<bool> no_memory_for_clients = false; // read in the server thread

void send_line(vn_tellog *sink, const char *format, ...) VN_PRINTF(2, 3);
void send_line(vn_tellog *sink, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vn_vtellog(sink, 3, format, args);
    va_end(args);
}

int connect_to(unsigned port)
{
    const int fd = __real_socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return fd;
    close(fd);
    return -1;
}

// What has come within a moment; "<end>" behind it when the connection has ended.
std::string received(int fd)
{
    std::string text;
    for (;;) {
        pollfd waiting{fd, POLLIN, 0};
        if (__real_poll(&waiting, 1, 50) <= 0) return text;
        char piece[4096];
        const ssize_t got = recv(fd, piece, sizeof piece, 0);
        if (got <= 0) return text + "<end>";
        text.append(piece, static_cast<size_t>(got));
    }
}

class TellogFaults : public testing::Test {
protected:
    TellogFaults() { faults = {}; }
    ~TellogFaults() override { faults = {}; }

    const unsigned port_ = free_port();
};

// A stream with one client whose line begins at a known place.
class TellogSends : public TellogFaults {
protected:
    TellogSends() : sink_(tellog_start(port_)), client_(connect_to(port_))
    {
        while (received(client_).empty()) send_line(sink_, "probe");
        received(client_);
        faults = {};
    }
    ~TellogSends() override
    {
        EXPECT_EQ(tellog_finish(sink_), 0);
        close(client_);
    }
    std::string received_message()
    {
        const std::string line = received(client_);
        return line.size() > 25 ? line.substr(25) : line;
    }

    vn_tellog *sink_;
    int client_;
};

TEST_F(TellogFaults, AllocatesNothingWithoutClients)
{
    vn_tellog *const sink = tellog_start(port_);
    const size_t before = fault::allocations_made();
    for (int i = 0; i < 100; ++i) send_line(sink, "%d", i);
    send_line(nullptr, "x");
    EXPECT_EQ(fault::allocations_made(), before);
    EXPECT_EQ(tellog_finish(sink), 0);
}

TEST_F(TellogFaults, ListensWithABacklogOfTwo)
{
    EXPECT_EQ(tellog_finish(tellog_start(port_)), 0);
    EXPECT_EQ(faults.backlog, 2);
}

TEST_F(TellogFaults, ListensOnAllInterfaces)
{
    EXPECT_EQ(tellog_finish(tellog_start(port_)), 0);
    EXPECT_EQ(faults.bound.sin_family, AF_INET);
    EXPECT_EQ(faults.bound.sin_addr.s_addr, htonl(INADDR_ANY));
    EXPECT_EQ(faults.bound.sin_port, htons(static_cast<uint16_t>(port_)));
}

TEST_F(TellogFaults, EndsItsListeningSocketInBothDirections)
{
    EXPECT_EQ(tellog_finish(tellog_start(port_)), 0);
    EXPECT_EQ(faults.shutdowns, std::vector<int>{SHUT_RDWR});
}

TEST_F(TellogFaults, AnswersNullWithoutMemory)
{
    std::vector<vn_tellog *> streams; // records of earlier streams are used first
    fault::FailAllocations plan(1, 1000);
    for (;;) {
        vn_tellog *const sink = tellog_start(port_);
        if (sink == nullptr) break;
        streams.push_back(sink);
    }
    EXPECT_EQ(plan.failed(), 1u);
    for (vn_tellog *const sink : streams) EXPECT_EQ(tellog_finish(sink), 0);
}

TEST_F(TellogFaults, AnswersNullWithoutAThread)
{
    faults.thread = true;
    EXPECT_EQ(tellog_start(port_), nullptr);
    EXPECT_EQ(connect_to(port_), -1); // and listens no more
    faults.thread = false;
    vn_tellog *const sink = tellog_start(port_);
    EXPECT_NE(sink, nullptr);
    EXPECT_EQ(tellog_finish(sink), 0);
}

TEST_F(TellogFaults, RunsWithoutClientsWhenItCannotListen)
{
    for (bool Faults::*const fault : {&Faults::socket, &Faults::bind, &Faults::listen}) {
        faults.*fault = true;
        vn_tellog *const sink = tellog_start(port_);
        faults.*fault = false;
        ASSERT_NE(sink, nullptr);
        EXPECT_EQ(connect_to(port_), -1);
        send_line(sink, "to nobody");
        EXPECT_EQ(tellog_finish(sink), 0);
    }
}

TEST_F(TellogFaults, TakesNoMoreClientsWithoutMemoryForOne)
{
    no_memory_for_clients = true;
    vn_tellog *const sink = tellog_start(port_);
    const int client = connect_to(port_);
    EXPECT_EQ(received(client), "<end>");
    no_memory_for_clients = false;
    send_line(sink, "to nobody");
    EXPECT_EQ(tellog_finish(sink), 0);
    close(client);
}

TEST_F(TellogSends, MakesOneCallForTheThreePartsOfALine)
{
    send_line(sink_, "x");
    EXPECT_EQ(faults.parts, std::vector<size_t>{3});
    EXPECT_NE(faults.flags[0] & MSG_NOSIGNAL, 0);
    EXPECT_EQ(received_message(), "ERROR: x\n");
}

TEST_F(TellogSends, SendsTheRestOfALineThatWentOutInPart)
{
    for (const ssize_t count : {1, 24, 25, 26, 29, 30, 31, 32, 33}) {
        faults.sends = {count, 1, 2};
        send_line(sink_, "abcdef");
        EXPECT_EQ(received_message(), "ERROR: abcdef\n") << count;
    }
}

TEST_F(TellogSends, TriesAgainWhenASignalInterrupts)
{
    faults.sends = {-EINTR, 5, -EINTR};
    send_line(sink_, "x");
    EXPECT_EQ(received_message(), "ERROR: x\n");
}

TEST_F(TellogSends, WaitsForAClientThatHasNoRoom)
{
    faults.sends = {-EAGAIN, 5, -EAGAIN};
    faults.poll = EINTR;
    send_line(sink_, "x");
    EXPECT_EQ(received_message(), "ERROR: x\n");
}

TEST_F(TellogSends, DropsAClientThatCannotBeSentTo)
{
    const int second = connect_to(port_);
    while (received(second).empty()) send_line(sink_, "probe");
    received(second);
    received(client_);
    faults.sends = {-ECONNRESET}; // for the newest client, which comes first
    send_line(sink_, "x");
    EXPECT_EQ(received_message(), "ERROR: x\n");
    EXPECT_EQ(received(second), "<end>");
    close(second);
}

TEST_F(TellogSends, DropsAClientThatCannotBeWaitedFor)
{
    faults.sends = {-EAGAIN};
    faults.poll = ENOMEM;
    send_line(sink_, "x");
    EXPECT_EQ(received(client_), "<end>");
}

TEST_F(TellogSends, SendsLinesAlsoWhenTheTimeCannotBeTold)
{
    faults.ctime = true;
    sleep(1); // the text of the last second is no longer good
    send_line(sink_, "x");
    EXPECT_EQ(received(client_), "ERROR: x\n");
}

} // namespace

int __wrap_socket(int domain, int type, int protocol)
{
    return faults.socket ? -1 : __real_socket(domain, type, protocol);
}
int __wrap_bind(int fd, const sockaddr *address, socklen_t length)
{
    memcpy(&faults.bound, address, std::min<size_t>(length, sizeof faults.bound));
    return faults.bind ? -1 : __real_bind(fd, address, length);
}
int __wrap_listen(int fd, int backlog)
{
    faults.backlog = backlog;
    return faults.listen ? -1 : __real_listen(fd, backlog);
}
int __wrap_accept4(int fd, sockaddr *address, socklen_t *length, int flags)
{
    thread_local std::optional<fault::FailAllocations> plan; // for the server thread
    if (no_memory_for_clients) plan.emplace(1);
    return __real_accept4(fd, address, length, flags);
}
int __wrap_shutdown(int fd, int how)
{
    faults.shutdowns.push_back(how);
    return __real_shutdown(fd, how);
}
// The library makes one system call by its number.
long __wrap_syscall(long number, ...)
{
    if (number != SYS_sendmsg) abort();
    va_list args;
    va_start(args, number);
    const int fd = va_arg(args, int);
    const msghdr *const message = va_arg(args, const msghdr *);
    const int flags = va_arg(args, int);
    va_end(args);
    faults.parts.push_back(message->msg_iovlen);
    faults.flags.push_back(flags);
    if (faults.sends.empty()) return sendmsg(fd, message, flags);
    const ssize_t planned = faults.sends.front();
    faults.sends.erase(faults.sends.begin());
    if (planned < 0) {
        errno = static_cast<int>(-planned);
        return -1;
    }
    std::string text;
    for (size_t i = 0; i < message->msg_iovlen; ++i)
        text.append(static_cast<char *>(message->msg_iov[i].iov_base), message->msg_iov[i].iov_len);
    text.resize(std::min(text.size(), static_cast<size_t>(planned)));
    return send(fd, text.data(), text.size(), flags);
}
int __wrap_poll(pollfd *fds, nfds_t count, int timeout)
{
    if (faults.poll == 0) return __real_poll(fds, count, timeout);
    errno = std::exchange(faults.poll, 0);
    return -1;
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*body)(void *), void *argument)
{
    return faults.thread ? EAGAIN : __real_pthread_create(thread, attributes, body, argument);
}
char *__wrap_ctime_r(const time_t *now, char *text)
{
    return faults.ctime ? nullptr : __real_ctime_r(now, text);
}
