// remote_gui_fault_test.cpp - threads, memory and sockets that fail, on whichever thread they are
// needed: no failure may leave a record, a descriptor or a thread behind.
#include "vnlib/remote_gui.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <future>
#include <memory>
#include <netinet/tcp.h>
#include <thread>

#include "support/fault_alloc.h"
#include "support/log_lines.h"
#include "support/rgui_peer.h"

using namespace test;

namespace {

// Next results to be forced, each for the one call that comes next; 0: none.
struct Faults {
    std::atomic<int> thread_starts_to_fail = 0;
    std::atomic<int> accept_errno = 0, recv_errno = 0, second_recv_errno = 0, send_errno = 0;
    std::atomic<int> no_delay_errno = 0;
    std::atomic<size_t> most_sent_at_once = 0;
    std::atomic<int> made_up_clients = 0;
};
Faults faults;

// What a test does inside the library's next call, once.
using Interlude = std::atomic<const std::function<void()> *>;
Interlude in_thread_start, in_signal, in_shutdown, in_no_delay, in_send;

void play(Interlude &interlude)
{
    if (const auto *const act = interlude.exchange(nullptr)) (*act)();
}

bool fails(std::atomic<int> &plan)
{
    const int code = plan.exchange(0);
    if (code == 0) return false;
    errno = code;
    return true;
}

} // namespace

extern "C" {
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                          void *arg);
int __real_pthread_kill(pthread_t thread, int signal);
int __real_accept(int fd, sockaddr *address, socklen_t *length);
ssize_t __real_recv(int fd, void *to, size_t size, int flags);
ssize_t __real_send(int fd, const void *from, size_t size, int flags);
int __real_setsockopt(int fd, int level, int option, const void *value, socklen_t length);
int __real_shutdown(int fd, int how);

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                          void *arg);
int __wrap_pthread_kill(pthread_t thread, int signal);
int __wrap_accept(int fd, sockaddr *address, socklen_t *length);
ssize_t __wrap_recv(int fd, void *to, size_t size, int flags);
ssize_t __wrap_send(int fd, const void *from, size_t size, int flags);
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t length);
int __wrap_shutdown(int fd, int how);

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                          void *arg)
{
    play(in_thread_start);
    if (faults.thread_starts_to_fail > 0) {
        --faults.thread_starts_to_fail;
        return EAGAIN;
    }
    return __real_pthread_create(thread, attr, body, arg);
}
int __wrap_pthread_kill(pthread_t thread, int signal)
{
    play(in_signal);
    return __real_pthread_kill(thread, signal);
}
int __wrap_accept(int fd, sockaddr *address, socklen_t *length)
{
    if (fails(faults.accept_errno)) return -1;
    if (faults.made_up_clients > 0) {
        --faults.made_up_clients;
        return open("/dev/null", O_RDWR | O_CLOEXEC);
    }
    return __real_accept(fd, address, length);
}
ssize_t __wrap_recv(int fd, void *to, size_t size, int flags)
{
    if ((flags & MSG_DONTWAIT) != 0 && fails(faults.second_recv_errno)) return -1;
    const ssize_t got = __real_recv(fd, to, size, flags);
    if (got >= 0 && (flags & MSG_WAITALL) != 0 && fails(faults.recv_errno)) return -1;
    return got;
}
ssize_t __wrap_send(int fd, const void *from, size_t size, int flags)
{
    EXPECT_NE(flags & MSG_NOSIGNAL, 0);
    play(in_send);
    if (fails(faults.send_errno)) return -1;
    const size_t most = faults.most_sent_at_once;
    return __real_send(fd, from, most != 0 ? std::min(most, size) : size, flags);
}
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t length)
{
    if (level == IPPROTO_TCP && option == TCP_NODELAY) {
        play(in_no_delay);
        if (fails(faults.no_delay_errno)) return -1;
    }
    return __real_setsockopt(fd, level, option, value, length);
}
int __wrap_shutdown(int fd, int how)
{
    play(in_shutdown);
    return __real_shutdown(fd, how);
}
}

namespace {

using Lines = std::vector<std::string>;

[[maybe_unused]] const bool private_network = enter_private_network();

constexpr uint16_t kLocalPort = 9208;
const char *const kLocalService = "9208";

// For a callback: lets allocation number `nth` from now of the calling thread fail. The plan lives
// until the thread ends or plans again.
void fail_allocation_here(size_t nth)
{
    thread_local std::unique_ptr<fault::FailAllocations> plan;
    plan.reset();
    plan = std::make_unique<fault::FailAllocations>(nth);
}

class Faulty : public testing::Test {
protected:
    Footprint before_;
    Wire wire_;

    static void ignore(int) {}
    void SetUp() override
    {
        struct sigaction action = {};
        action.sa_handler = ignore;
        sigaction(SIGUSR1, &action, nullptr);
    }
    void TearDown() override
    {
        EXPECT_TRUE(before_.returned()) << "a descriptor or a thread was left behind";
    }
};

class LocalFault : public Faulty {
protected:
    rgui_session *start()
    {
        return rgui_start_local("127.0.0.1", kLocalService, 0, Wire::send, &wire_);
    }
    int open_client(unsigned id)
    {
        const int fd = connect_when_open(kLocalPort);
        EXPECT_EQ(wire_.next(), make_pdu(kOpen, id));
        return fd;
    }
};

TEST_F(LocalFault, StartFailsWithoutMemoryForTheSession)
{
    int failure = 0;
    const Lines lines = log_lines([&] {
        const fault::FailAllocations plan(1);
        EXPECT_EQ(start(), nullptr);
        failure = errno;
    });
    EXPECT_EQ(lines, Lines{"ERROR: rgui_start_local: Cannot allocate memory (12)"});
}

TEST_F(LocalFault, StartFailsWithoutAThread)
{
    faults.thread_starts_to_fail = 1;
    EXPECT_EQ(
        log_lines([&] { EXPECT_EQ(start(), nullptr); }),
        Lines{"ERROR: rgui_start_local: create pthread: Resource temporarily unavailable (11)"});
}

// With its thread missing a connection is one-way. Nothing tells of it, and others are served.
TEST_F(LocalFault, KeepsAClientWithoutAThreadUntilTheOtherEndClosesIt)
{
    rgui_session *const session = start();
    close(open_client(1));
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    EXPECT_EQ(log_lines([&] {
                  faults.thread_starts_to_fail = 1;
                  const int client = open_client(2);
                  const int next = open_client(3);
                  write_all(client, "unheard");
                  EXPECT_EQ(feed(session, make_pdu(kData, 2, "heard")), 0);
                  EXPECT_EQ(read_exactly(client, 5), "heard");
                  EXPECT_TRUE(wire_.silent());
                  EXPECT_EQ(feed(session, make_pdu(kClose, 2)), 0);
                  EXPECT_NE(read_exactly(client, 1), "x"); // ended, by a reset: bytes were unread
                  EXPECT_EQ(feed(session, make_pdu(kData, 2, "x")), -1);
                  close(client);
                  write_all(next, "x");
                  EXPECT_EQ(wire_.next(), make_pdu(kData, 3, "x"));
                  close(next);
                  EXPECT_EQ(wire_.next(), make_pdu(kClose, 3));
              }),
              Lines{});
    rgui_stop_local(session);
}

TEST_F(LocalFault, SaysGoodbyeForAClientWithoutAThreadWhenStopped)
{
    rgui_session *const session = start();
    faults.thread_starts_to_fail = 2;
    const int first = open_client(1), second = open_client(2);
    const int third = open_client(3);
    rgui_stop_local(session);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(wire_.next()[0], kClose);
    for (const int client : {first, second, third}) {
        EXPECT_TRUE(at_end(client));
        close(client);
    }
}

TEST_F(LocalFault, EndsAClientWithoutAThreadThatWasClosedAtItsStart)
{
    rgui_session *session = nullptr;
    wire_.on_send([&](const Bytes &pdu) {
        return pdu[0] == kOpen ? feed(session, make_pdu(kClose, id_of(pdu))) : 0;
    });
    session = start();
    faults.thread_starts_to_fail = 1;
    const int client = open_client(1);
    EXPECT_TRUE(at_end(client));
    EXPECT_TRUE(wire_.silent());
    close(client);
    rgui_stop_local(session);
}

TEST_F(LocalFault, LeavesTheLoopWhenAcceptFails)
{
    wire_.on_send([](const Bytes &pdu) {
        if (pdu == make_pdu(kOpen, 2)) faults.accept_errno = EMFILE;
        return 0;
    });
    rgui_session *const session = start();
    const int first = open_client(1);
    EXPECT_EQ(log_lines([&] {
                  const int last = open_client(2);
                  EXPECT_EQ(wire_.next()[0], kClose);
                  EXPECT_EQ(wire_.next()[0], kClose);
                  EXPECT_TRUE(at_end(first));
                  EXPECT_TRUE(at_end(last));
                  close(last);
              }),
              Lines{"ERROR: listener_thread: accept: Too many open files (24)"});
    close(first);
    EXPECT_TRUE(eventually([] { return is_refused(kLocalPort); }));
    EXPECT_EQ(log_lines([&] { rgui_stop_local(session); }), Lines{});
}

TEST_F(LocalFault, LeavesTheLoopWithoutMemoryForAConnection)
{
    wire_.on_send([](const Bytes &pdu) {
        if (pdu == make_pdu(kOpen, 1)) fail_allocation_here(1);
        return 0;
    });
    rgui_session *const session = start();
    EXPECT_EQ(log_lines(
                  [&] {
                      const int client = open_client(1);
                      const int unlucky = connect_when_open(kLocalPort);
                      EXPECT_TRUE(at_end(unlucky));
                      EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
                      EXPECT_TRUE(at_end(client));
                      close(unlucky);
                      close(client);
                  },
                  3),
              Lines{"ERROR: listener_thread: Cannot allocate memory (12)"});
    rgui_stop_local(session);
}

TEST_F(LocalFault, EndsItsListenerAtOnceWithoutMemoryForAnOpenPdu)
{
    wire_.on_send([](const Bytes &pdu) {
        if (pdu == make_pdu(kOpen, 1)) fail_allocation_here(2);
        return 0;
    });
    rgui_session *const session = start();
    EXPECT_EQ(log_lines(
                  [&] {
                      const int client = open_client(1);
                      const int unlucky = connect_when_open(kLocalPort);
                      EXPECT_TRUE(at_end(unlucky));
                      close(unlucky);
                      // The connections that there were go on until the session is stopped.
                      write_all(client, "still here");
                      EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "still here"));
                      EXPECT_EQ(feed(session, make_pdu(kData, 1, "so am I")), 0);
                      EXPECT_EQ(read_exactly(client, 7), "so am I");
                      EXPECT_TRUE(eventually([] { return is_refused(kLocalPort); }));
                      rgui_stop_local(session);
                      EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
                      EXPECT_TRUE(at_end(client));
                      close(client);
                  },
                  3),
              Lines{"ERROR: create_pdu: Cannot allocate memory (12)"});
}

TEST_F(LocalFault, EndsAConnectionWithoutMemoryForItsNextPdu)
{
    wire_.on_send([](const Bytes &pdu) {
        if (pdu[0] == kData) fail_allocation_here(1);
        return 0;
    });
    rgui_session *const session = start();
    EXPECT_EQ(log_lines(
                  [&] {
                      const int client = open_client(1);
                      write_all(client, "x");
                      EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
                      EXPECT_TRUE(at_end(client));
                      EXPECT_TRUE(wire_.silent());
                      close(client);
                  },
                  3),
              (Lines{"ERROR: create_pdu: Cannot allocate memory (12)",
                     "ERROR: rgui_recv_data: Cannot allocate memory (12)"}));
    rgui_stop_local(session);
}

TEST_F(LocalFault, TellsTheApplicationThatAClosePduCouldNotBeMade)
{
    wire_.on_send([](const Bytes &pdu) {
        if (pdu[0] == kData) fail_allocation_here(2); // the first is the next buffer
        return 0;
    });
    rgui_session *const session = start();
    EXPECT_EQ(log_lines(
                  [&] {
                      const int client = open_client(1);
                      write_all(client, "x");
                      EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
                      close(client);
                      EXPECT_EQ(wire_.next(),
                                Bytes(8, 0xFF)); // how a Wire notes a null PDU of length 8
                  },
                  3),
              Lines{"ERROR: create_pdu: Cannot allocate memory (12)"});
    rgui_stop_local(session);
}

TEST_F(LocalFault, ReportsAReadErrorAndSaysGoodbye)
{
    rgui_session *const session = start();
    const int client = open_client(1);
    EXPECT_EQ(log_lines([&] {
                  faults.recv_errno = ETIMEDOUT;
                  write_all(client, "x");
                  EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
              }),
              Lines{"ERROR: read(): Connection timed out (110)"});
    close(client);
    rgui_stop_local(session);
}

TEST_F(LocalFault, TakesAFailureOfTheSecondReceiveForAReadError)
{
    rgui_session *const session = start();
    const int client = open_client(1);
    EXPECT_EQ(log_lines([&] {
                  faults.second_recv_errno = EIO;
                  write_all(client, "xyz");
                  EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
              }),
              Lines{"ERROR: read(): Input/output error (5)"});
    close(client);
    rgui_stop_local(session);
}

TEST_F(LocalFault, IsSilentAboutAReadErrorAfterTheOtherEndClosed)
{
    rgui_session *session = nullptr;
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu[0] == kData) feed(session, make_pdu(kClose, 1));
        return 0;
    });
    session = start();
    const int client = open_client(1);
    EXPECT_EQ(log_lines([&] {
                  write_all(client, "x");
                  EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
                  EXPECT_TRUE(at_end(client));
              }),
              Lines{});
    EXPECT_TRUE(wire_.silent());
    close(client);
    rgui_stop_local(session);
}

TEST_F(LocalFault, ServesAClientThatCannotBeSentToWithoutDelay)
{
    rgui_session *const session = start();
    close(open_client(1));
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    EXPECT_EQ(log_lines([&] {
                  faults.no_delay_errno = EINVAL;
                  const int client = open_client(2);
                  write_all(client, "x");
                  EXPECT_EQ(wire_.next(), make_pdu(kData, 2, "x"));
                  close(client);
                  EXPECT_EQ(wire_.next(), make_pdu(kClose, 2));
              }),
              Lines{"ERROR: RGUI: setsockopt: TCP_NODELAY: Invalid argument (22)"});
    rgui_stop_local(session);
}

TEST_F(LocalFault, WritesOnUntilAllIsWritten)
{
    rgui_session *const session = start();
    const int client = open_client(1);
    faults.most_sent_at_once = 3;
    EXPECT_EQ(feed(session, make_pdu(kData, 1, "piece by piece")), 0);
    faults.most_sent_at_once = 0;
    EXPECT_EQ(read_exactly(client, 14), "piece by piece");
    close(client);
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    rgui_stop_local(session);
}

TEST_F(LocalFault, GivesUpAWriteThatFailsInSilence)
{
    rgui_session *const session = start();
    const int client = open_client(1);
    EXPECT_EQ(log_lines([&] {
                  faults.send_errno = EPIPE;
                  EXPECT_EQ(feed(session, make_pdu(kData, 1, "lost")), 0);
                  EXPECT_EQ(feed(session, make_pdu(kData, 1, "kept")), 0);
                  EXPECT_EQ(read_exactly(client, 4), "kept");
              }),
              Lines{});
    close(client);
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    rgui_stop_local(session);
}

// The counter of IDs is wider than the wire's field: after 65,536 clients the first numbers come
// again, and a client that is still there must keep its own.
TEST_F(LocalFault, PassesOverAnIdInUseWhenTheNumbersComeRound)
{
    constexpr int kMadeUp = 65535;
    rgui_session *session = nullptr;
    std::atomic<unsigned> opened = 0, out_of_order = 0;
    std::atomic<bool> at_once = false;
    // A client that the other end closes at once and whose thread does not start is gone at once.
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu[0] != kOpen) return 0;
        out_of_order += id_of(pdu) != (++opened & 0xFFFF); // 65,536 is 0 on the wire
        return at_once ? feed(session, make_pdu(kClose, id_of(pdu))) : 0;
    });
    session = start();
    const int first = open_client(1);
    at_once = true;
    faults.thread_starts_to_fail = kMadeUp;
    faults.made_up_clients = kMadeUp - 1;
    close(connect_to_loopback(kLocalPort)); // for the call that may wait already
    ASSERT_TRUE(eventually([&] { return opened == 65536; }, 100));
    EXPECT_EQ(out_of_order, 0u);
    at_once = false;
    while (!wire_.silent()) {
    }
    const int second = connect_to_loopback(kLocalPort);
    EXPECT_EQ(wire_.next(), make_pdu(kOpen, 2)) << "1 is taken";
    EXPECT_EQ(feed(session, make_pdu(kData, 1, "to the first")), 0);
    EXPECT_EQ(feed(session, make_pdu(kData, 2, "to the second")), 0);
    EXPECT_EQ(read_exactly(first, 12), "to the first");
    EXPECT_EQ(read_exactly(second, 13), "to the second");
    write_all(second, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 2, "x"));
    rgui_stop_local(session);
    close(first);
    close(second);
}

// A session starts, signals and wakes its threads under its own lock: those who need it wait, but
// no other session does, and they do not keep it from being found.
TEST_F(LocalFault, KeepsNoOtherSessionWaiting)
{
    using namespace std::chrono_literals;
    rgui_session *const other = rgui_start_remote(Wire::send, &wire_);
    rgui_session *const session = start();
    const Bytes pdu = make_pdu(kData, 99, "for nobody");
    std::vector<std::future<int>> calls;
    int answered = 0;
    const std::function<void()> call_both = [&] {
        calls.push_back(std::async(std::launch::async, feed, session, pdu));
        std::this_thread::sleep_for(20ms); // it is waiting by now
        calls.push_back(std::async(std::launch::async, feed, other, pdu));
        answered += calls.back().wait_for(3s) == std::future_status::ready;
    };

    in_thread_start = &call_both;
    const int client = open_client(1);
    write_all(client, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
    EXPECT_EQ(answered, 1) << "while a thread is started";
    in_signal = in_shutdown = &call_both;
    EXPECT_EQ(feed(session, make_pdu(kClose, 1)), 0);
    EXPECT_EQ(answered, 3) << "while a connection is ended";
    EXPECT_TRUE(at_end(client));
    close(client);
    in_signal = in_shutdown = &call_both;
    rgui_stop_local(session);
    EXPECT_EQ(answered, 5) << "while the listener is ended";
    for (auto &call : calls) EXPECT_EQ(call.get(), -1);
    rgui_stop_remote(other);
}

class RemoteFault : public Faulty {
protected:
    int gui_ = listen_on_loopback(kGuiPort);
    rgui_session *session_ = rgui_start_remote(Wire::send, &wire_);

    void TearDown() override
    {
        rgui_stop_remote(session_);
        close(gui_);
        Faulty::TearDown();
    }
};

TEST_F(RemoteFault, StartFailsInSilenceWithoutMemory)
{
    EXPECT_EQ(log_lines([] {
                  const fault::FailAllocations plan(1);
                  EXPECT_EQ(rgui_start_remote(nullptr, nullptr), nullptr);
              }),
              Lines{});
}

TEST_F(RemoteFault, RefusesAnOpenWithoutMemoryForTheConnection)
{
    EXPECT_EQ(log_lines([&] {
                  const Bytes open = make_pdu(kOpen, 5);
                  const fault::FailAllocations plan(1);
                  EXPECT_EQ(rgui_data_rx(session_, open.data(), open.size()), -1);
              }),
              Lines{"ERROR: RGUI: New connection: Cannot allocate memory (12)"});
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
}

TEST_F(RemoteFault, RefusesAnOpenWithoutAThread)
{
    faults.thread_starts_to_fail = 1;
    EXPECT_EQ(
        log_lines([&] { EXPECT_EQ(feed(session_, make_pdu(kOpen, 5)), -1); }),
        Lines{"ERROR: create_connection: create pthread: Resource temporarily unavailable (11)"});
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
    EXPECT_EQ(feed(session_, make_pdu(kData, 5, "x")), -1);
    const int server = accept(gui_, nullptr, nullptr);
    EXPECT_TRUE(at_end(server));
    close(server);
}

TEST_F(RemoteFault, ReportsARefusalThatCouldNotBeSent)
{
    faults.thread_starts_to_fail = 1;
    const Lines lines = log_lines([&] {
        const Bytes open = make_pdu(kOpen, 5);
        size_t needed = 0;
        {
            faults.thread_starts_to_fail = 1;
            const fault::FailAllocations plan(1000);
            EXPECT_EQ(rgui_data_rx(session_, open.data(), open.size()), -1);
            needed = plan.seen();
        }
        EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
        faults.thread_starts_to_fail = 1;
        const fault::FailAllocations plan(needed); // the last block made is the refusal
        EXPECT_EQ(rgui_data_rx(session_, open.data(), open.size()), -1);
    });
    const std::string failed =
        "ERROR: create_connection: create pthread: Resource temporarily unavailable (11)";
    EXPECT_EQ(lines, (Lines{failed, failed, "ERROR: create_pdu: Cannot allocate memory (12)"}));
    EXPECT_TRUE(wire_.silent());
    faults.thread_starts_to_fail = 0;
}

TEST_F(RemoteFault, KeepsOnlyTheConnectionOfAnOpenThatOvertookAnother)
{
    const std::function<void()> overtake = [this] {
        EXPECT_EQ(feed(session_, make_pdu(kOpen, 5)), 0);
    };
    in_no_delay = &overtake;
    ASSERT_EQ(log_lines([&] { EXPECT_EQ(feed(session_, make_pdu(kOpen, 5)), 0); }),
              Lines{"ERROR: RGUI: Open Connection: Duplicate connection ID"});
    const int overtaken = accept(gui_, nullptr, nullptr), kept = accept(gui_, nullptr, nullptr);
    EXPECT_TRUE(at_end(overtaken));
    write_all(kept, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 5, "x"));
    close(overtaken);
    close(kept);
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
    EXPECT_TRUE(wire_.silent());
}

TEST_F(RemoteFault, SignalsNoReceiveThreadThatHasEnded)
{
    const size_t threads = running_threads();
    ASSERT_EQ(feed(session_, make_pdu(kOpen, 5)), 0);
    const int server = accept(gui_, nullptr, nullptr);
    bool signalled = false;
    const std::function<void()> note = [&] { signalled = true; };
    const std::function<void()> end = [&] { // while a writer holds the connection
        shutdown(server, SHUT_WR);
        EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
        EXPECT_TRUE(eventually([&] { return running_threads() <= threads; }));
        in_signal = &note;
        EXPECT_EQ(feed(session_, make_pdu(kClose, 5)), 0);
        in_signal = nullptr;
    };
    in_send = &end;
    EXPECT_EQ(feed(session_, make_pdu(kData, 5, "x")), 0);
    EXPECT_FALSE(signalled);
    close(server);
}

TEST_F(RemoteFault, ConnectsAlthoughItCannotSendWithoutDelay)
{
    faults.no_delay_errno = EINVAL;
    EXPECT_EQ(log_lines([&] { EXPECT_EQ(feed(session_, make_pdu(kOpen, 5)), 0); }),
              Lines{"ERROR: RGUI: setsockopt: TCP_NODELAY: Invalid argument (22)"});
    const int server = accept(gui_, nullptr, nullptr);
    write_all(server, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 5, "x"));
    close(server);
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
}

} // namespace
