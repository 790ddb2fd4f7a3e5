// remote_gui_test.cpp - both ends of the Remote GUI against real TCP peers.
#include "vnlib/remote_gui.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <netinet/tcp.h>
#include <poll.h>
#include <random>
#include <thread>

#include "support/log_lines.h"
#include "support/rgui_peer.h"

namespace {

using namespace test;
using Lines = std::vector<std::string>;

// The remote end connects to a fixed port: have it for ourselves where the machine allows it.
[[maybe_unused]] const bool private_network = enter_private_network();

constexpr uint16_t kLocalPort = 9108;
const char *const kLocalService = "9108";

// While alive, SIGUSR1 interrupts blocking calls and is counted, as in an application.
class WakeUpHandler {
public:
    explicit WakeUpHandler(int flags = 0)
    {
        count = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { ++count; };
        action.sa_flags = flags;
        sigaction(SIGUSR1, &action, &saved_);
    }
    ~WakeUpHandler() { sigaction(SIGUSR1, &saved_, nullptr); }

    static inline std::atomic<int> count = 0;

private:
    struct sigaction saved_ = {};
};

// The descriptor in this process whose TCP peer has `port`.
int descriptor_with_peer(uint16_t port)
{
    for (int fd = 3; fd < 1024; ++fd) {
        sockaddr_in peer = {};
        socklen_t length = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &length) == 0 &&
            peer.sin_family == AF_INET && ntohs(peer.sin_port) == port)
            return fd;
    }
    return -1;
}

bool sends_without_delay(int fd)
{
    int value = 0;
    socklen_t length = sizeof value;
    return getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &value, &length) == 0 && value != 0;
}

// More than the buffers between a writer and a peer that does not read can hold.
const Bytes &flood()
{
    static const Bytes pdu = make_pdu(kData, 1, std::string(32 << 20, 'w'));
    return pdu;
}

void reset(int fd)
{
    const linger now = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    close(fd);
}

// ---- the local end

class LocalEnd : public testing::Test {
protected:
    WakeUpHandler handler_;
    Footprint before_;
    Wire wire_;
    rgui_session *session_ = rgui_start_local("127.0.0.1", kLocalService, 0, Wire::send, &wire_);

    void stop()
    {
        rgui_stop_local(session_);
        session_ = nullptr;
    }
    void TearDown() override
    {
        if (session_ != nullptr) stop();
        EXPECT_TRUE(before_.returned()) << "a descriptor or a thread was left behind";
    }
    // A client whose Open PDU has been seen.
    int open_client(unsigned id = 1)
    {
        const int fd = connect_when_open(kLocalPort);
        EXPECT_EQ(wire_.next(), make_pdu(kOpen, id));
        return fd;
    }
};

TEST_F(LocalEnd, AnnouncesAClientWithAnOpenPdu)
{
    const int client = connect_when_open(kLocalPort);
    EXPECT_EQ(wire_.next(), (Bytes{2, 0, 1, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(wire_.silent());
    close(client);
    EXPECT_EQ(wire_.next(), (Bytes{3, 0, 1, 0, 0, 0, 0, 0}));
}

TEST_F(LocalEnd, NumbersItsClientsFromOne)
{
    std::vector<int> clients;
    for (unsigned id = 1; id <= 5; ++id) clients.push_back(open_client(id));
    for (const int client : clients) close(client);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(wire_.next()[0], kClose);
}

TEST(RguiStartLocal, LogsWhereItListens)
{
    const Lines lines = log_lines([&] {
        Wire wire;
        rgui_session *const second = rgui_start_local("127.0.0.1", "9109", 0, Wire::send, &wire);
        const int client = connect_when_open(9109);
        wire.next();
        rgui_stop_local(second);
        wire.next();
        close(client);
    });
    EXPECT_EQ(lines, Lines{"INFOR: Socket bound on interface 127.0.0.1 port 9109"});
}

TEST_F(LocalEnd, SendsTenBytesAsOnePduOfEighteen)
{
    const int client = open_client();
    write_all(client, "0123456789");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "0123456789"));
    EXPECT_TRUE(wire_.silent());
    close(client);
}

TEST_F(LocalEnd, FitsTheNextBufferToTheTraffic)
{
    const int client = open_client();
    write_all(client, "0123456789");
    EXPECT_EQ(wire_.next().size(), 18u);
    const std::string burst(200, 'x');
    write_all(client, burst);
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, burst.substr(0, 64))); // the least
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, burst.substr(0, 128)));
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, burst.substr(0, 8)));
    write_all(client, std::string(100, 'y'));
    EXPECT_EQ(wire_.next().size(), 72u);
    EXPECT_EQ(wire_.next().size(), 44u);
    close(client);
}

TEST_F(LocalEnd, NeverSendsMoreThan64KibibytesAtOnce)
{
    constexpr size_t kTotal = 4 << 20;
    wire_.on_send([](const Bytes &pdu) { // slow enough for the bytes to queue up
        if (pdu[0] == kData) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return 0;
    });
    const int client = open_client();
    std::thread writer([&] {
        EXPECT_TRUE(write_all(client, std::string(kTotal, 'z')));
        close(client);
    });
    size_t total = 0, largest = 0;
    for (Bytes pdu = wire_.next(); !pdu.empty() && pdu[0] == kData; pdu = wire_.next()) {
        total += pdu.size() - 8;
        largest = std::max(largest, pdu.size());
    }
    writer.join();
    EXPECT_EQ(total, kTotal);
    EXPECT_EQ(largest, 65536u + 8);
}

TEST_F(LocalEnd, WritesDataToTheClientThatItNames)
{
    const int first = open_client(1), second = open_client(2);
    EXPECT_EQ(feed(session_, make_pdu(kData, 2, "to the second")), 0);
    EXPECT_EQ(feed(session_, make_pdu(kData, 1, "to the first")), 0);
    EXPECT_EQ(read_exactly(first, 12), "to the first");
    EXPECT_EQ(read_exactly(second, 13), "to the second");
    close(first);
    close(second);
}

TEST_F(LocalEnd, WritesAnyBytes)
{
    const int client = open_client();
    std::string all;
    for (int value = 0; value < 256; ++value) all += static_cast<char>(value);
    EXPECT_EQ(feed(session_, make_pdu(kData, 1, all)), 0);
    EXPECT_EQ(read_exactly(client, 256), all);
    write_all(client, all);
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, all));
    close(client);
}

TEST_F(LocalEnd, WritesNothingForDataOfSizeZero)
{
    const int client = open_client();
    EXPECT_EQ(feed(session_, make_pdu(kData, 1)), 0);
    EXPECT_EQ(feed(session_, make_pdu(kData, 1, "x")), 0);
    EXPECT_EQ(read_exactly(client, 1), "x");
    close(client);
}

TEST_F(LocalEnd, RefusesDataForAnUnknownConnection)
{
    const int client = open_client();
    EXPECT_EQ(log_lines([&] {
                  EXPECT_EQ(feed(session_, make_pdu(kData, 2, "x")), -1);
                  EXPECT_EQ(feed(session_, make_pdu(kData, 2)), -1);
                  EXPECT_EQ(feed(session_, make_pdu(kData, 0x101, "x")), -1);
              }),
              Lines{});
    close(client);
}

TEST_F(LocalEnd, TakesAPduAtAnyAddress)
{
    const int client = open_client();
    Bytes room(1);
    const Bytes pdu = make_pdu(kData, 1, "shifted");
    for (size_t shift = 1; shift < 4; ++shift) {
        room.assign(shift, 0);
        room.insert(room.end(), pdu.begin(), pdu.end());
        EXPECT_EQ(rgui_data_rx(session_, room.data() + shift, pdu.size()), 0);
        EXPECT_EQ(read_exactly(client, 7), "shifted");
    }
    close(client);
}

TEST_F(LocalEnd, IgnoresTheReservedByte)
{
    const int client = open_client();
    Bytes pdu = make_pdu(kData, 1, "x");
    pdu[1] = 0xFF;
    EXPECT_EQ(feed(session_, pdu), 0);
    EXPECT_EQ(read_exactly(client, 1), "x");
    close(client);
}

TEST_F(LocalEnd, EndsAConnectionThatTheOtherEndClosesWithoutAnAnswer)
{
    const int client = open_client();
    write_all(client, "x"); // its thread runs
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
    EXPECT_EQ(log_lines([&] { EXPECT_EQ(feed(session_, make_pdu(kClose, 1)), 0); }), Lines{});
    EXPECT_TRUE(at_end(client));
    EXPECT_TRUE(wire_.silent());
    EXPECT_TRUE(eventually([&] { return feed(session_, make_pdu(kData, 1, "x")) == -1; }));
    EXPECT_GE(WakeUpHandler::count, 1);
    close(client);
}

TEST_F(LocalEnd, DeliversWhatCameBeforeAClose)
{
    const int client = open_client();
    const std::string page(300000, 'p');
    std::thread link([&] {
        EXPECT_EQ(feed(session_, make_pdu(kData, 1, page)), 0);
        EXPECT_EQ(feed(session_, make_pdu(kClose, 1)), 0);
    });
    EXPECT_EQ(read_exactly(client, page.size()), page);
    EXPECT_TRUE(at_end(client));
    link.join();
    close(client);
}

TEST_F(LocalEnd, IgnoresACloseForAnUnknownConnection)
{
    EXPECT_EQ(log_lines([&] { EXPECT_EQ(feed(session_, make_pdu(kClose, 77)), 0); }, 5), Lines{});
    EXPECT_TRUE(wire_.silent());
}

TEST_F(LocalEnd, TakesAnOpenPduForARefusal)
{
    const int client = open_client();
    EXPECT_EQ(feed(session_, make_pdu(kOpen, 1)), 0);
    EXPECT_TRUE(at_end(client));
    EXPECT_TRUE(wire_.silent());
    close(client);
}

TEST_F(LocalEnd, RefusesAnOpenPduThatNamesNoConnection)
{
    EXPECT_EQ(feed(session_, make_pdu(kOpen, 9)), -1);
    EXPECT_TRUE(wire_.silent());
}

TEST_F(LocalEnd, TakesAnUnknownOpcodeForAClose)
{
    const int client = open_client();
    EXPECT_EQ(log_lines([&] {
                  EXPECT_EQ(feed(session_, make_pdu(7, 1)), 0);
                  EXPECT_EQ(feed(session_, make_pdu(0xAB, 99)), 0);
                  EXPECT_EQ(feed(session_, make_pdu(0, 99, "payload")), 0);
              }),
              (Lines{"ERROR: RGUI: Unknown or Illegal Opcode 0x07",
                     "ERROR: RGUI: Unknown or Illegal Opcode 0xab",
                     "ERROR: RGUI: Unknown or Illegal Opcode 00"}));
    EXPECT_TRUE(at_end(client));
    EXPECT_TRUE(wire_.silent());
    close(client);
}

TEST_F(LocalEnd, RelaysTheRestBeforeItTellsThatTheClientClosed)
{
    const int client = open_client();
    write_all(client, "last words");
    close(client);
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "last words"));
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    EXPECT_TRUE(wire_.silent());
}

TEST_F(LocalEnd, RelaysALastSingleByteBeforeItTellsThatTheClientClosed)
{
    std::atomic<bool> closed = false; // before the receive thread starts
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu[0] == kOpen) eventually([&] { return closed.load(); });
        return 0;
    });
    const int client = connect_when_open(kLocalPort);
    write_all(client, "x");
    close(client);
    closed = true;
    EXPECT_EQ(wire_.next(), make_pdu(kOpen, 1));
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
}

TEST_F(LocalEnd, TellsOfAResetConnectionWithoutALogLine)
{
    const int client = open_client();
    EXPECT_EQ(log_lines([&] {
                  reset(client);
                  EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
              }),
              Lines{});
}

TEST_F(LocalEnd, ReportsAReadErrorOfAThreadInterruptedByOthers)
{
    const int client = open_client();
    pthread_t relay{};
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu[0] == kData) relay = pthread_self();
        return 0;
    });
    write_all(client, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
    EXPECT_EQ(log_lines([&] {
                  usleep(20000); // until it waits in recv again
                  pthread_kill(relay, SIGUSR1);
                  EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
              }),
              Lines{"ERROR: read(): Interrupted system call (4)"});
    EXPECT_TRUE(at_end(client));
    close(client);
}

TEST_F(LocalEnd, LeavesTheLoopWhenItsListenerIsInterruptedByOthers)
{
    pthread_t listener{};
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu[0] == kOpen) listener = pthread_self();
        return 0;
    });
    const int client = open_client();
    EXPECT_EQ(log_lines([&] {
                  usleep(20000); // until it waits in accept again
                  pthread_kill(listener, SIGUSR1);
                  EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
                  EXPECT_TRUE(at_end(client));
              }),
              Lines{"ERROR: listener_thread: accept: Interrupted system call (4)"});
    EXPECT_TRUE(eventually([] { return is_refused(kLocalPort); }));
    EXPECT_EQ(log_lines([&] { stop(); }), Lines{});
    close(client);
}

TEST_F(LocalEnd, EndsAConnectionWhosePduCouldNotBeSentWithoutAClose)
{
    const int client = open_client();
    wire_.on_send([](const Bytes &) { return -1; });
    write_all(client, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
    EXPECT_TRUE(at_end(client));
    EXPECT_TRUE(wire_.silent());
    close(client);
}

TEST_F(LocalEnd, IgnoresWhetherAnOpenPduCouldBeSent)
{
    wire_.on_send([](const Bytes &pdu) { return pdu[0] == kOpen ? -1 : 0; });
    const int client = open_client();
    write_all(client, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
    close(client);
}

TEST_F(LocalEnd, SendsToItsClientsWithoutDelay)
{
    const int client = open_client();
    const int served = descriptor_with_peer(port_of(client));
    ASSERT_GE(served, 0);
    EXPECT_TRUE(sends_without_delay(served));
    close(client);
}

TEST_F(LocalEnd, SaysGoodbyeForEveryOpenConnectionWhenStopped)
{
    std::vector<int> clients;
    for (unsigned id = 1; id <= 3; ++id) clients.push_back(open_client(id));
    EXPECT_EQ(log_lines([&] { stop(); }), Lines{});
    std::vector<unsigned> ids;
    for (int i = 0; i < 3; ++i) {
        const Bytes pdu = wire_.next();
        ASSERT_EQ(pdu.size(), 8u);
        EXPECT_EQ(pdu[0], kClose);
        ids.push_back(id_of(pdu));
    }
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(ids, (std::vector<unsigned>{1, 2, 3}));
    EXPECT_TRUE(wire_.silent());
    for (const int client : clients) {
        EXPECT_TRUE(at_end(client));
        close(client);
    }
}

TEST_F(LocalEnd, ClosesItsPortWhenStopped)
{
    close(connect_when_open(kLocalPort));
    stop();
    EXPECT_EQ(connect_to_loopback(kLocalPort), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(LocalEnd, WakesAWriterWhoseClientDoesNotReadWhenStopped)
{
    const int client = open_client();
    std::atomic<bool> returned = false;
    const Bytes &pdu = flood();
    std::thread link([&] {
        EXPECT_EQ(feed(session_, pdu), 0);
        returned = true;
    });
    usleep(50000);
    EXPECT_FALSE(returned);
    rgui_session *const stopped = session_;
    stop();
    link.join();
    EXPECT_TRUE(returned);
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    // The receive thread lets go of the session a moment after it has sent the Close.
    const Bytes late = make_pdu(kData, 1, "x");
    for (int tries = 0; tries < 500 && feed(stopped, late) != -1; ++tries) usleep(10000);
    EXPECT_EQ(feed(stopped, late), -1);
    close(client);
}

TEST_F(LocalEnd, KeepsWritingWhenASignalInterruptsTheCaller)
{
    const int client = open_client();
    const std::string page(16 << 20, 's');
    std::atomic<bool> done = false;
    std::thread link([&] {
        EXPECT_EQ(feed(session_, make_pdu(kData, 1, page)), 0);
        done = true;
    });
    for (int i = 0; i < 20; ++i) {
        usleep(2000);
        pthread_kill(link.native_handle(), SIGUSR1);
    }
    EXPECT_FALSE(done);
    EXPECT_TRUE(read_exactly(client, page.size()) == page);
    link.join();
    close(client);
}

TEST_F(LocalEnd, CanBeStoppedTwice)
{
    const int client = open_client();
    rgui_stop_local(session_);
    rgui_stop_local(session_);
    session_ = nullptr;
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    close(client);
}

TEST_F(LocalEnd, CanBeStoppedByAReceiveThreadsCallback)
{
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu[0] == kData) stop();
        return 0;
    });
    const int client = open_client();
    write_all(client, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    EXPECT_TRUE(at_end(client));
    close(client);
    EXPECT_TRUE(before_.returned());
}

TEST_F(LocalEnd, CanBeStoppedByTheListenersCallback)
{
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu[0] == kOpen) stop();
        return 0;
    });
    const int client = open_client();
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    EXPECT_TRUE(at_end(client));
    close(client);
    EXPECT_TRUE(before_.returned());
}

TEST_F(LocalEnd, TakesAClosePduInsideItsOwnOpenCallback)
{
    wire_.on_send([&](const Bytes &pdu) {
        return pdu[0] == kOpen ? feed(session_, make_pdu(kClose, id_of(pdu))) : 0;
    });
    const int client = open_client();
    EXPECT_TRUE(at_end(client));
    EXPECT_TRUE(wire_.silent());
    close(client);
}

TEST_F(LocalEnd, RefusesPdusOnceItIsGone)
{
    rgui_session *const gone = session_;
    stop();
    EXPECT_EQ(feed(gone, make_pdu(kData, 1, "x")), -1);
    EXPECT_EQ(feed(gone, make_pdu(kClose, 1)), -1);
}

TEST_F(LocalEnd, LivesOnWhileItsListenerCannotBind)
{
    Wire wire;
    rgui_session *second = nullptr;
    close(connect_when_open(kLocalPort));
    Lines lines = log_lines([&] {
        second = rgui_start_local("127.0.0.1", kLocalService, 0, Wire::send, &wire);
        ASSERT_NE(second, nullptr);
        usleep(50000);
        EXPECT_EQ(feed(second, make_pdu(kData, 1, "x")), -1);
        rgui_stop_local(second);
    });
    // The first session's notice of its port follows the moment at which clients can connect.
    std::erase(lines, "INFOR: Socket bound on interface 127.0.0.1 port 9108");
    EXPECT_EQ(lines,
              Lines{"ERROR: vnsock_listen: unable to bind to port 9108 Address already in use"});
}

TEST(RguiStartLocal, CopiesItsTexts)
{
    char node[] = "127.0.0.1", service[] = "9110";
    Wire wire;
    rgui_session *const second = rgui_start_local(node, service, 0, Wire::send, &wire);
    memset(node, 'x', sizeof node - 1);
    memset(service, 'x', sizeof service - 1);
    const int client = connect_when_open(9110);
    EXPECT_EQ(wire.next(), make_pdu(kOpen, 1));
    close(client);
    EXPECT_EQ(wire.next(), make_pdu(kClose, 1));
    rgui_stop_local(second);
}

TEST(RguiStartLocal, ListensOnAllAddressesWithoutANode)
{
    Wire wire;
    const Lines lines = log_lines([&] {
        rgui_session *const second = rgui_start_local(nullptr, "9111", 0, Wire::send, &wire);
        close(connect_when_open(9111));
        EXPECT_EQ(wire.next(), make_pdu(kOpen, 1));
        EXPECT_EQ(wire.next(), make_pdu(kClose, 1));
        rgui_stop_local(second);
    });
    EXPECT_EQ(lines, Lines{"INFOR: Socket bound on interface 0.0.0.0 port 9111"});
}

TEST(RguiStartLocal, NeedsANodeOrAService)
{
    Wire wire;
    const Lines lines = log_lines([&] {
        rgui_session *const second = rgui_start_local(nullptr, nullptr, 0, Wire::send, &wire);
        EXPECT_NE(second, nullptr);
        rgui_stop_local(second);
    });
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("ERROR: getaddrinfo: ", 0), 0u) << lines[0];
}

TEST(RguiStartLocal, TakesNoCallbackForALinkThatIsDown)
{
    rgui_session *const mute = rgui_start_local("127.0.0.1", "9112", 0, nullptr, nullptr);
    const int client = connect_when_open(9112);
    write_all(client, "x");
    EXPECT_TRUE(at_end(client));
    close(client);
    rgui_stop_local(mute);
}

// ---- malformed PDUs

class MalformedPdu : public LocalEnd {
protected:
    Lines refuse(const Bytes &pdu)
    {
        // A block of exactly that size, so that the sanitizers see a step too far.
        const std::unique_ptr<unsigned char[]> block(new unsigned char[pdu.size()]);
        std::copy(pdu.begin(), pdu.end(), block.get());
        close(connect_when_open(kLocalPort));
        wire_.next();
        wire_.next();
        return log_lines([&] { EXPECT_EQ(rgui_data_rx(session_, block.get(), pdu.size()), -1); });
    }
};

const std::string kHexTitle = "ERROR: **Hex Dump**********************************************";

TEST_F(MalformedPdu, IsDumped)
{
    Bytes pdu = make_pdu(kData, 0x1234, "ABC");
    pdu[4] = 4; // one more than there are
    EXPECT_EQ(refuse(pdu),
              (Lines{"ERROR: RGUI: Invalid PDU length or partial buffer",
                     "ERROR: Remote GUI PDU Dump: 'rgui_data_rx'", "ERROR: \tOpcode:\t0x00000001",
                     "ERROR: \tSize:\t4", "ERROR: \tID:\t4660", kHexTitle,
                     "ERROR: 0000: 41 42 43 " + std::string(13 * 3, ' ') + " ABC"}));
}

TEST_F(MalformedPdu, MayHaveMoreBytesThanItSays)
{
    Bytes pdu = make_pdu(kClose, 7, "ABC");
    pdu[4] = 2;
    EXPECT_EQ(refuse(pdu),
              (Lines{"ERROR: RGUI: Invalid PDU length or partial buffer",
                     "ERROR: Remote GUI PDU Dump: 'rgui_data_rx'", "ERROR: \tOpcode:\t0x00000003",
                     "ERROR: \tSize:\t2", "ERROR: \tID:\t7", kHexTitle,
                     "ERROR: 0000: 41 42 " + std::string(14 * 3, ' ') + " AB"}));
}

TEST_F(MalformedPdu, ShowsNoMoreThanItsFirst64Bytes)
{
    Bytes pdu = make_pdu(kData, 1, std::string(100, 'a'));
    pdu[7] = 0xFF;
    const std::string line = [] {
        std::string hex;
        for (int i = 0; i < 16; ++i) hex += "61 ";
        return hex + " aaaaaaaa aaaaaaaa";
    }();
    // A dump ends a line early when it is longer than a line: three lines show 64 bytes.
    EXPECT_EQ(refuse(pdu),
              (Lines{"ERROR: RGUI: Invalid PDU length or partial buffer",
                     "ERROR: Remote GUI PDU Dump: 'rgui_data_rx'", "ERROR: \tOpcode:\t0x00000001",
                     "ERROR: \tSize:\t4278190180", "ERROR: \tID:\t1", kHexTitle,
                     "ERROR: 0000: " + line, "ERROR: 0010: " + line, "ERROR: 0020: " + line}));
}

TEST_F(MalformedPdu, MayBeShorterThanAHeader)
{
    const Lines all = refuse({2, 0, 5, 0, 9});
    EXPECT_EQ(all,
              (Lines{"ERROR: RGUI: Invalid PDU length or partial buffer",
                     "ERROR: Remote GUI PDU Dump: 'rgui_data_rx'", "ERROR: \tOpcode:\t0x00000002",
                     "ERROR: \tSize:\t9", "ERROR: \tID:\t5", kHexTitle}));
    for (size_t length = 0; length < 8; ++length)
        EXPECT_EQ(refuse(Bytes(length, 0)).size(), 6u) << length;
}

TEST(RguiDataRx, AssertsItsPointersAndGoesOn)
{
    const Bytes good = make_pdu(kClose, 1);
    Bytes bad = good;
    bad[4] = 1;
    const Lines lines = log_lines([&] {
        EXPECT_EQ(rgui_data_rx(nullptr, nullptr, 8), -1);
        EXPECT_EQ(rgui_data_rx(nullptr, good.data(), good.size()), -1);
        EXPECT_EQ(rgui_data_rx(nullptr, bad.data(), bad.size()), -1);
    });
    ASSERT_EQ(lines.size(), 10u);
    const std::string session = "ERROR: assert session != ((void *)0) remote_gui:";
    const std::string data = "ERROR: assert data != ((void *)0) remote_gui:";
    EXPECT_EQ(lines[0].substr(0, session.size()), session);
    EXPECT_GT(std::stoi(lines[0].substr(session.size())), 0);
    EXPECT_EQ(lines[1].substr(0, data.size()), data);
    EXPECT_EQ(lines[2], lines[0]);
    EXPECT_EQ(lines[3], lines[0]);
    EXPECT_EQ(lines[4], "ERROR: RGUI: Invalid PDU length or partial buffer");
}

TEST(RguiStop, IgnoresNoSession)
{
    EXPECT_EQ(log_lines([] {
                  rgui_stop_local(nullptr);
                  rgui_stop_remote(nullptr);
              }),
              Lines{});
}

// ---- the remote end

class RemoteEnd : public testing::Test {
protected:
    WakeUpHandler handler_;
    Footprint before_;
    Wire wire_;
    int gui_ = listen_on_loopback(kGuiPort);
    std::atomic<bool> saying_goodbye_ = false, may_go_ = false; // they outlive the receive threads
    rgui_session *session_ = rgui_start_remote(Wire::send, &wire_);

    void SetUp() override { ASSERT_GE(gui_, 0) << "port 8008 is taken on this machine"; }
    void stop()
    {
        rgui_stop_remote(session_);
        session_ = nullptr;
    }
    void close_gui()
    {
        close(gui_);
        gui_ = -1;
    }
    void TearDown() override
    {
        if (session_ != nullptr) stop();
        if (gui_ >= 0) close(gui_);
        EXPECT_TRUE(before_.returned()) << "a descriptor or a thread was left behind";
    }
    // The server's side of a connection opened through the session.
    int open(unsigned id)
    {
        EXPECT_EQ(feed(session_, make_pdu(kOpen, id)), 0);
        return accept(gui_, nullptr, nullptr);
    }
};

TEST_F(RemoteEnd, ConnectsToTheGuiForEveryOpenPdu)
{
    EXPECT_EQ(log_lines([&] {
                  const int server = open(5);
                  EXPECT_EQ(feed(session_, make_pdu(kData, 5, "GET /")), 0);
                  EXPECT_EQ(read_exactly(server, 5), "GET /");
                  write_all(server, "200 OK");
                  EXPECT_EQ(wire_.next(), make_pdu(kData, 5, "200 OK"));
                  EXPECT_TRUE(sends_without_delay(descriptor_with_peer(kGuiPort)));
                  close(server);
                  EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
              }),
              Lines{});
}

TEST_F(RemoteEnd, TakesEveryConnectionId)
{
    for (const unsigned id : {0u, 1u, 0xFFu, 0x100u, 0xFFFFu}) {
        const int server = open(id);
        write_all(server, "x");
        EXPECT_EQ(wire_.next(), make_pdu(kData, id, "x"));
        close(server);
        EXPECT_EQ(wire_.next(), make_pdu(kClose, id));
    }
}

TEST_F(RemoteEnd, AnswersARefusedOpenWithAClose)
{
    close_gui();
    EXPECT_EQ(log_lines([&] { EXPECT_EQ(feed(session_, make_pdu(kOpen, 0x0203)), -1); }),
              Lines{"ERROR: RGUI: Connect: connect: Connection refused (111)"});
    EXPECT_EQ(wire_.next(), (Bytes{3, 0, 3, 2, 0, 0, 0, 0}));
    EXPECT_TRUE(wire_.silent());
}

TEST_F(RemoteEnd, IgnoresASecondOpenForAConnection)
{
    const int server = open(5);
    EXPECT_EQ(log_lines([&] {
                  for (int i = 0; i < 3; ++i) EXPECT_EQ(feed(session_, make_pdu(kOpen, 5)), 0);
              }),
              Lines(3, "ERROR: RGUI: Open Connection: Duplicate connection ID"));
    pollfd waiting = {gui_, POLLIN, 0};
    EXPECT_EQ(poll(&waiting, 1, 20), 0) << "a second connection was made";
    EXPECT_TRUE(wire_.silent());
    close(server);
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
    // The connection is gone, not kept alive by the second Open: the ID is free again.
    EXPECT_TRUE(eventually([&] { return feed(session_, make_pdu(kData, 5)) == -1; }));
    close(open(5));
}

TEST_F(RemoteEnd, MakesOneConnectionOfOpensThatRace)
{
    std::vector<std::thread> links;
    std::atomic<int> handled = 0;
    const Lines lines = log_lines([&] {
        for (int i = 0; i < 8; ++i)
            links.emplace_back([&] { handled += feed(session_, make_pdu(kOpen, 5)) == 0; });
        for (std::thread &link : links) link.join();
    });
    EXPECT_EQ(handled, 8);
    EXPECT_EQ(lines, Lines(7, "ERROR: RGUI: Open Connection: Duplicate connection ID"));
    stop();
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 5));
    EXPECT_TRUE(wire_.silent());
}

TEST_F(RemoteEnd, EndsAConnectionThatTheOtherEndClosesWithoutAnAnswer)
{
    for (const unsigned char opcode : {kClose, static_cast<unsigned char>(9)}) {
        const int server = open(5);
        EXPECT_EQ(feed(session_, make_pdu(opcode, 5)), 0);
        EXPECT_TRUE(at_end(server));
        EXPECT_TRUE(wire_.silent());
        close(server);
    }
}

TEST_F(RemoteEnd, SaysGoodbyeForEveryOpenConnectionWhenStopped)
{
    const int first = open(1), second = open(2);
    EXPECT_EQ(feed(session_, make_pdu(kClose, 1)), 0);
    EXPECT_TRUE(at_end(first));
    EXPECT_EQ(log_lines([&] { stop(); }), Lines{});
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 2));
    EXPECT_TRUE(at_end(second));
    EXPECT_TRUE(wire_.silent());
    close(first);
    close(second);
}

TEST_F(RemoteEnd, TakesALateOpenForARefusalWhileItEnds)
{
    const int server = open(1);
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu == make_pdu(kClose, 1)) {
            saying_goodbye_ = true;
            eventually([&] { return may_go_.load(); });
        }
        return 0;
    });
    rgui_session *const ending = session_;
    stop();
    EXPECT_TRUE(eventually([&] { return saying_goodbye_.load(); }));
    EXPECT_EQ(feed(ending, make_pdu(kOpen, 2)), -1);
    may_go_ = true;
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 2));
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    close(server);
}

TEST_F(RemoteEnd, OutlivesFurtherStopsUntilItsLastConnectionEnds)
{
    std::atomic<int> late_close = -1;
    wire_.on_send([&](const Bytes &pdu) {
        if (pdu[0] != kData) return 0;
        rgui_stop_remote(session_);
        rgui_stop_remote(session_);
        late_close = feed(session_, make_pdu(kClose, 99)); // -1 once it is gone
        return 0;
    });
    const int server = open(1);
    write_all(server, "x");
    EXPECT_EQ(wire_.next(), make_pdu(kData, 1, "x"));
    EXPECT_EQ(late_close, 0);
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
    EXPECT_TRUE(eventually([&] { return feed(session_, make_pdu(kClose, 99)) == -1; }));
    close(server);
}

TEST_F(RemoteEnd, WakesAWriterWhoseServerDoesNotReadWhenStopped)
{
    const int server = open(1);
    rgui_session *const stopped = session_;
    const Bytes &pdu = flood();
    std::thread link([&] { EXPECT_EQ(feed(stopped, pdu), 0); });
    usleep(50000);
    stop();
    link.join();
    close(server);
}

TEST_F(RemoteEnd, SurvivesAServerThatVanishesWhileItIsWrittenTo)
{
    const int server = open(1);
    const Bytes &pdu = flood();
    std::thread link([&] { EXPECT_EQ(feed(session_, pdu), 0); });
    usleep(20000);
    reset(server);
    link.join();
    EXPECT_EQ(wire_.next(), make_pdu(kClose, 1));
}

TEST_F(RemoteEnd, IsStoppedByEitherCall)
{
    rgui_stop_local(session_);
    session_ = nullptr;
}

// ---- waking

TEST(RguiWaking, SendsNoSignalThatWouldEndTheProcess)
{
    const ChildResult result = run_in_child([] {
        signal(SIGUSR1, SIG_DFL);
        Wire wire;
        rgui_session *const session =
            rgui_start_local("127.0.0.1", kLocalService, 0, Wire::send, &wire);
        const int client = connect_when_open(kLocalPort);
        wire.next();
        rgui_data_rx(session, make_pdu(kClose, 1).data(), 8);
        const bool closed = at_end(client);
        close(connect_when_open(kLocalPort));
        rgui_stop_local(session);
        printf("%d", closed);
        fflush(stdout);
    });
    EXPECT_TRUE(result.exited_with(0)) << result.err;
    EXPECT_EQ(result.out, "1");
}

TEST(RguiWaking, NeedsNoInterruptedCalls)
{
    const WakeUpHandler handler(SA_RESTART);
    Wire wire;
    const Footprint before;
    for (const bool with_client : {false, true}) {
        rgui_session *const session =
            rgui_start_local("127.0.0.1", kLocalService, 0, Wire::send, &wire);
        const int client = connect_when_open(kLocalPort);
        if (!with_client) close(client);
        usleep(10000);
        rgui_stop_local(session);
        if (with_client) close(client);
    }
    EXPECT_GE(WakeUpHandler::count, 2);
}

TEST(RguiWaking, SignalsTheListenerAndEveryReceiveThread)
{
    const WakeUpHandler handler;
    Footprint before;
    Wire wire;
    rgui_session *const session =
        rgui_start_local("127.0.0.1", kLocalService, 0, Wire::send, &wire);
    const int first = connect_when_open(kLocalPort), second = connect_when_open(kLocalPort);
    wire.next();
    wire.next();
    usleep(20000); // until all three threads block
    rgui_stop_local(session);
    EXPECT_TRUE(at_end(first));
    EXPECT_TRUE(at_end(second));
    close(first);
    close(second);
    EXPECT_TRUE(before.returned());
    EXPECT_EQ(WakeUpHandler::count, 3);
}

// Starts and stops both ends a thousand times while clients come, write and go.
TEST(RguiWaking, NeverHangsInAThousandStops)
{
    const WakeUpHandler handler;
    Footprint before;
    {
        const int gui = listen_on_loopback(kGuiPort, 1024);
        ASSERT_GE(gui, 0);
        std::atomic<bool> done = false;
        std::thread server([&] {
            for (int fd = -1; (fd = accept(gui, nullptr, nullptr)) >= 0; close(fd))
                write_all(fd, "hi");
        });
        std::vector<std::thread> clients;
        for (int i = 0; i < 2; ++i)
            clients.emplace_back([&] {
                while (!done) {
                    const int fd = connect_to_loopback(kLocalPort);
                    if (fd < 0) continue;
                    write_all(fd, "hello");
                    close(fd);
                }
            });
        const auto sink = [](unsigned char *pdu, size_t, void *) {
            free(pdu);
            return 0;
        };
        for (int round = 0; round < 1000; ++round) {
            rgui_session *const local =
                rgui_start_local("127.0.0.1", kLocalService, 0, sink, nullptr);
            rgui_session *const remote = rgui_start_remote(sink, nullptr);
            feed(remote, make_pdu(kOpen, 1));
            feed(remote, make_pdu(kData, 1, "x"));
            if (round % 4 == 0) std::this_thread::yield();
            if (round % 16 == 0) usleep(500);
            rgui_stop_local(local);
            rgui_stop_remote(remote);
        }
        done = true;
        for (std::thread &client : clients) client.join();
        shutdown(gui, SHUT_RDWR);
        server.join();
        close(gui);
    }
    EXPECT_TRUE(before.returned());
}

// ---- both ends, joined, under load

// Carries PDUs from one session to another, each connection's in order on one of several threads.
class Link {
public:
    explicit Link(size_t lanes) : lanes_(lanes)
    {
        for (Lane &lane : lanes_) lane.thread = std::thread([this, &lane] { carry(lane); });
    }
    ~Link()
    {
        for (Lane &lane : lanes_) {
            push(lane, nullptr, 0);
            lane.thread.join();
            for (const Item &item : lane.items) free(item.pdu);
        }
    }
    void deliver_to(rgui_session *session) { session_ = session; }
    static int send(unsigned char *pdu, size_t length, void *ctx)
    {
        auto *const link = static_cast<Link *>(ctx);
        link->push(link->lanes_[static_cast<size_t>(pdu[2] | pdu[3] << 8) % link->lanes_.size()],
                   pdu, length);
        return 0;
    }

private:
    struct Item {
        unsigned char *pdu;
        size_t length;
    };
    struct Lane {
        std::mutex mutex;
        std::condition_variable filled;
        std::deque<Item> items;
        std::thread thread;
    };

    static void push(Lane &lane, unsigned char *pdu, size_t length)
    {
        const std::lock_guard<std::mutex> guard(lane.mutex);
        lane.items.push_back({pdu, length});
        lane.filled.notify_one();
    }
    void carry(Lane &lane)
    {
        for (;;) {
            std::unique_lock<std::mutex> guard(lane.mutex);
            lane.filled.wait(guard, [&] { return !lane.items.empty(); });
            const Item item = lane.items.front();
            lane.items.pop_front();
            guard.unlock();
            if (item.pdu == nullptr) return;
            rgui_data_rx(session_, item.pdu, item.length);
            free(item.pdu);
        }
    }

    std::vector<Lane> lanes_;
    std::atomic<rgui_session *> session_ = nullptr;
};

constexpr unsigned char kMask = 0x5A;

// Sends back every byte, masked; closes a connection that asks for it with a zero byte at the
// start.
class MaskingServer {
public:
    MaskingServer() : thread_([this] { serve(); }) {}
    ~MaskingServer()
    {
        done_ = true;
        thread_.join();
    }

private:
    void serve()
    {
        std::vector<pollfd> polled = {{listener_, POLLIN, 0}};
        while (!done_) {
            poll(polled.data(), polled.size(), 20);
            if (polled[0].revents != 0)
                polled.push_back({accept(listener_, nullptr, nullptr), POLLIN, 0});
            for (size_t i = 1; i < polled.size(); ++i) {
                if (polled[i].revents == 0 || answer(polled[i].fd)) continue;
                close(polled[i].fd);
                polled.erase(polled.begin() + static_cast<long>(i--));
            }
        }
        for (const pollfd &entry : polled) close(entry.fd);
    }
    static bool answer(int fd)
    {
        char bytes[8192];
        const ssize_t got = recv(fd, bytes, sizeof bytes, 0);
        if (got <= 0 || bytes[0] == 0) return false;
        for (ssize_t i = 0; i < got; ++i) bytes[i] = static_cast<char>(bytes[i] ^ kMask);
        return send(fd, bytes, static_cast<size_t>(got), MSG_NOSIGNAL) == got;
    }

    int listener_ = listen_on_loopback(kGuiPort, 1024);
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

// One client's life: messages of random sizes, every answered byte checked, then an end of some
// kind. Returns false when a byte was wrong or missing although nobody had stopped the session.
bool exchange(unsigned seed, const std::atomic<bool> &stopped)
{
    std::minstd_rand generator(seed + 1);
    const auto random = [&] { return static_cast<unsigned>(generator() >> 4); };
    const int fd = connect_to_loopback(kLocalPort);
    if (fd < 0) return stopped;
    bool good = true;
    for (unsigned message = 0, count = 1 + random() % 6; good && message < count; ++message) {
        std::string text(1 + random() % 12000, '\0');
        for (char &byte : text) byte = static_cast<char>(1 + random() % 255);
        if (!write_all(fd, text)) {
            good = false;
            break;
        }
        for (char &byte : text) byte = static_cast<char>(byte ^ kMask);
        good = read_exactly(fd, text.size()) == text;
    }
    switch (random() % 4) {
    case 0: // the server ends it
        good = good && write_all(fd, std::string(1, '\0')) && at_end(fd);
        close(fd);
        break;
    case 1: reset(fd); break;
    case 2: // goes away in the middle of an answer
        write_all(fd, std::string(3000, 'e'));
        [[fallthrough]];
    default: close(fd);
    }
    return good || stopped;
}

class JoinedEnds : public testing::Test {
protected:
    static constexpr int kConnections = 200, kClients = 20;

    // Runs the clients; stops both sessions after `stop_after`, or when all are done.
    void run(std::chrono::milliseconds stop_after)
    {
        const WakeUpHandler handler;
        Footprint before;
        std::atomic<int> wrong = 0;
        {
            MaskingServer server;
            Link to_remote(4), to_local(4);
            rgui_session *const remote = rgui_start_remote(Link::send, &to_local);
            rgui_session *const local =
                rgui_start_local("127.0.0.1", kLocalService, 0, Link::send, &to_remote);
            to_remote.deliver_to(remote);
            to_local.deliver_to(local);
            close(connect_when_open(kLocalPort));

            std::atomic<bool> stopped = false;
            std::vector<std::thread> clients;
            for (int client = 0; client < kClients; ++client)
                clients.emplace_back([&, client] {
                    for (int i = client; i < kConnections; i += kClients)
                        wrong += !exchange(static_cast<unsigned>(i), stopped);
                });
            if (stop_after.count() > 0) {
                std::this_thread::sleep_for(stop_after);
                stopped = true;
                rgui_stop_remote(remote);
                rgui_stop_local(local);
            }
            for (std::thread &client : clients) client.join();
            stopped = true;
            rgui_stop_local(local);
            rgui_stop_remote(remote);
            // The links outlive the receive threads, which may still say goodbye through them.
            EXPECT_TRUE(eventually([&] { return running_threads() <= threads_of_ours_; }, 20));
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_TRUE(before.returned());
    }

private:
    const size_t threads_of_ours_ = running_threads() + 1 + 8; // the server's and the lanes'
};

TEST_F(JoinedEnds, CarryEveryByteOfTwoHundredConnections)
{
    run(std::chrono::milliseconds(0));
}

TEST_F(JoinedEnds, StopDuringTraffic)
{
    for (const int milliseconds : {5, 20, 60, 120}) run(std::chrono::milliseconds(milliseconds));
}

} // namespace
