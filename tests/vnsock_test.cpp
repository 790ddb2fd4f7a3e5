// vnsock_test.cpp - the socket helpers, TCP diagnostics and MAC lookup against the real kernel.
#include "vnlib/vnsock.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/un.h>

#include "support/emulated.h"
#include "support/log_lines.h"
#include "support/network.h"

namespace {

using test::log_lines;
using Lines = std::vector<std::string>;

addrinfo hints_for(int family, int type)
{
    addrinfo hints = {};
    hints.ai_family = family;
    hints.ai_socktype = type;
    hints.ai_flags = AI_NUMERICHOST; // no test may depend on a name server
    return hints;
}
const addrinfo kStream = hints_for(AF_INET, SOCK_STREAM);
const addrinfo kDatagram = hints_for(AF_INET, SOCK_DGRAM);

int option_of(int fd, int option, int level = SOL_SOCKET)
{
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, level, option, &value, &length), 0);
    return value;
}

int flags_of(int fd)
{
    return fcntl(fd, F_GETFL);
}

// How the system itself names the address that `fd` is bound to.
std::string bound_line(int fd)
{
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    char host[NI_MAXHOST], service[NI_MAXSERV];
    auto *const raw = reinterpret_cast<sockaddr *>(&address);
    EXPECT_EQ(getsockname(fd, raw, &length), 0);
    EXPECT_EQ(getnameinfo(raw, length, host, sizeof host, service, sizeof service, NI_NUMERICHOST),
              0);
    return std::string("INFOR: Socket bound on interface ") + host + " port " + service;
}

bool peer_closed(int fd)
{
    char byte;
    return recv(fd, &byte, 1, 0) == 0;
}

// A port that is free just now on the loopback interface.
std::string free_port()
{
    const int fd = test::listen_on_loopback();
    const std::string port = std::to_string(test::port_of(fd));
    close(fd);
    return port;
}

// While alive, the process can open no further descriptor.
class NoMoreDescriptors {
public:
    NoMoreDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &saved_);
        const int next = dup(0);
        close(next);
        const rlimit tight = {static_cast<rlim_t>(next), saved_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &tight);
    }
    ~NoMoreDescriptors() { setrlimit(RLIMIT_NOFILE, &saved_); }

private:
    rlimit saved_ = {};
};

// What `resolve` itself answers, to compare our texts with the system's.
std::string resolver_text(const char *node, const char *service)
{
    addrinfo *list = nullptr;
    const int code = getaddrinfo(node, service, &kStream, &list);
    EXPECT_NE(code, 0);
    return gai_strerror(code);
}

// ---- listen

TEST(VnsockListen, ReturnsAListeningStreamSocketAndLogsWhereItIs)
{
    int fd = -1;
    std::string bound;
    const Lines lines = log_lines([&] {
        fd = vnsock_listen(&kStream, "127.0.0.1", nullptr, 0, 0, 0);
        bound = bound_line(fd);
    });
    EXPECT_EQ(lines, Lines{bound});
    EXPECT_EQ(option_of(fd, SO_ACCEPTCONN), 1);
    EXPECT_EQ(option_of(fd, SO_TYPE), SOCK_STREAM);
    const int client = test::connect_to_loopback(test::port_of(fd));
    EXPECT_GE(client, 0);
    close(client);
    close(fd);
}

TEST(VnsockListen, SaysNothingBelowTheInformationLevel)
{
    int fd = -1;
    EXPECT_EQ(log_lines([&] { fd = vnsock_listen(&kStream, "127.0.0.1", nullptr, 0, 0, 0); }, 5),
              Lines{});
    EXPECT_GE(fd, 0);
    close(fd);
}

TEST(VnsockListen, ListensOnAllInterfacesWithoutANode)
{
    int fd = -1;
    const std::string port = free_port();
    const Lines lines =
        log_lines([&] { fd = vnsock_listen(&kStream, nullptr, port.c_str(), 0, 0, 0); });
    ASSERT_GE(fd, 0);
    EXPECT_EQ(lines, Lines{bound_line(fd)});
    EXPECT_EQ(lines[0].rfind("INFOR: Socket bound on interface 0.0.0.0 port ", 0), 0u) << lines[0];
    close(fd);
}

TEST(VnsockListen, LeavesTheCallersHintsAlone)
{
    const addrinfo hints = kStream;
    addrinfo given = hints;
    close(vnsock_listen(&given, nullptr, free_port().c_str(), 0, 0, 0));
    EXPECT_EQ(memcmp(&given, &hints, sizeof hints), 0);
}

TEST(VnsockListen, TakesNoHintsAsAnyFamily)
{
    const int fd = vnsock_listen(nullptr, "127.0.0.1", free_port().c_str(), 0, 0, 0);
    EXPECT_GE(fd, 0);
    close(fd);
}

TEST(VnsockListen, ListensOnIpv6)
{
    const addrinfo hints = hints_for(AF_INET6, SOCK_STREAM);
    int fd = -1;
    const Lines lines = log_lines([&] { fd = vnsock_listen(&hints, "::1", nullptr, 0, 0, 0); });
    if (fd < 0) GTEST_SKIP() << "no IPv6 on this machine's loopback interface";
    EXPECT_EQ(lines, Lines{bound_line(fd)});
    EXPECT_EQ(lines[0].rfind("INFOR: Socket bound on interface ::1 port ", 0), 0u) << lines[0];
    close(fd);
}

TEST(VnsockListen, SetsReuseOfTheAddress)
{
    const int fd = vnsock_listen(&kStream, "127.0.0.1", nullptr, 0, 0, 0);
    EXPECT_EQ(option_of(fd, SO_REUSEADDR), 1);
    close(fd);
}

TEST(VnsockListen, BindsADatagramSocketWithoutListening)
{
    const int fd = vnsock_listen(&kDatagram, "127.0.0.1", nullptr, 0, 0, 0);
    EXPECT_EQ(option_of(fd, SO_TYPE), SOCK_DGRAM);
    EXPECT_EQ(option_of(fd, SO_ACCEPTCONN), 0);
    EXPECT_EQ(option_of(fd, SO_BROADCAST), 0);
    close(fd);
}

TEST(VnsockListen, AllowsBroadcastsOnADatagramSocketWhenAsked)
{
    const int fd = vnsock_listen(&kDatagram, "127.0.0.1", nullptr, 1, 0, 0);
    EXPECT_EQ(option_of(fd, SO_BROADCAST), 1);
    close(fd);
}

TEST(VnsockListen, IgnoresBroadcastOnAStreamSocket)
{
    const int fd = vnsock_listen(&kStream, "127.0.0.1", nullptr, 1, 0, 0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(option_of(fd, SO_BROADCAST), 0);
    close(fd);
}

TEST(VnsockListen, AddsTheStatusFlags)
{
    const int plain = vnsock_listen(&kStream, "127.0.0.1", nullptr, 0, 0, 0);
    const int quick = vnsock_listen(&kStream, "127.0.0.1", nullptr, 0, O_NONBLOCK, 0);
    EXPECT_EQ(flags_of(plain) & O_NONBLOCK, 0);
    EXPECT_EQ(flags_of(quick), flags_of(plain) | O_NONBLOCK);
    close(plain);
    close(quick);
}

TEST(VnsockListen, SetsBothBuffersToTheSizeGiven)
{
    const int plain = vnsock_listen(&kStream, "127.0.0.1", nullptr, 0, 0, 0);
    const int fd = vnsock_listen(&kStream, "127.0.0.1", nullptr, 0, 0, 20000);
    EXPECT_EQ(option_of(fd, SO_RCVBUF), 40000); // the kernel doubles for its own use
    EXPECT_EQ(option_of(fd, SO_SNDBUF), 40000);
    EXPECT_NE(option_of(plain, SO_RCVBUF), 40000);
    close(plain);
    close(fd);
}

TEST(VnsockListen, ReportsAnUnknownHost)
{
    int fd = 0;
    const Lines lines =
        log_lines([&] { fd = vnsock_listen(&kStream, "no such host", "80", 0, 0, 0); });
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(lines, Lines{"ERROR: getaddrinfo: " + resolver_text("no such host", "80")});
}

TEST(VnsockListen, ReportsAnUnknownService)
{
    const Lines lines =
        log_lines([] { EXPECT_EQ(vnsock_listen(&kStream, "127.0.0.1", "no-such", 0, 0, 0), -1); });
    EXPECT_EQ(lines, Lines{"ERROR: getaddrinfo: " + resolver_text("127.0.0.1", "no-such")});
}

TEST(VnsockListen, RefusesToResolveNothing)
{
    const Lines lines =
        log_lines([] { EXPECT_EQ(vnsock_listen(&kStream, nullptr, nullptr, 0, 0, 0), -1); });
    EXPECT_EQ(lines, Lines{"ERROR: getaddrinfo: " + resolver_text(nullptr, nullptr)});
}

TEST(VnsockListen, ReportsAPortInUseWithTheServiceAndTheReason)
{
    const int holder = test::listen_on_loopback();
    const std::string port = std::to_string(test::port_of(holder));
    const size_t descriptors = test::open_descriptors();
    int failure = 0;
    const Lines lines = log_lines([&] {
        EXPECT_EQ(vnsock_listen(&kStream, "127.0.0.1", port.c_str(), 0, 0, 0), -1);
        failure = errno;
    });
    EXPECT_EQ(lines, Lines{"ERROR: vnsock_listen: unable to bind to port " + port +
                           " Address already in use"});
    EXPECT_EQ(failure, EADDRINUSE);
    EXPECT_EQ(test::open_descriptors(), descriptors);
    close(holder);
}

TEST(VnsockListen, ReportsAnAddressThatIsNotOurs)
{
    const Lines lines =
        log_lines([] { EXPECT_EQ(vnsock_listen(&kStream, "192.0.2.1", "8", 0, 0, 0), -1); });
    EXPECT_EQ(
        lines,
        Lines{"ERROR: vnsock_listen: unable to bind to port 8 Cannot assign requested address"});
}

TEST(VnsockListen, NamesAMissingServiceInTheReport)
{
    const Lines lines =
        log_lines([] { EXPECT_EQ(vnsock_listen(&kStream, "192.0.2.1", nullptr, 0, 0, 0), -1); });
    EXPECT_EQ(lines, Lines{"ERROR: vnsock_listen: unable to bind to port (null) "
                           "Cannot assign requested address"});
}

TEST(VnsockListen, ReportsStatusFlagsThatASocketCannotHave)
{
    const std::string port = free_port();
    const size_t descriptors = test::open_descriptors();
    char flags[32];
    snprintf(flags, sizeof flags, "%#x", static_cast<unsigned>(O_DIRECT));
    const Lines lines = log_lines(
        [&] { EXPECT_EQ(vnsock_listen(&kStream, "127.0.0.1", port.c_str(), 0, O_DIRECT, 0), -1); });
    EXPECT_EQ(
        lines,
        (Lines{std::string("ERROR: vnsock_listen: addfl: ") + flags + ": Invalid argument (22)",
               "ERROR: vnsock_listen: unable to bind to port " + port + " Invalid argument"}));
    EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST(VnsockListen, ReportsThatNoSocketCanBeMade)
{
    const std::string port = free_port();
    int failure = 0;
    const Lines lines = log_lines([&] {
        const NoMoreDescriptors full;
        EXPECT_EQ(vnsock_listen(&kStream, "127.0.0.1", port.c_str(), 0, 0, 0), -1);
        failure = errno;
    });
    EXPECT_EQ(lines, (Lines{"ERROR: vnsock_listen: socket: Too many open files (24)",
                            "ERROR: vnsock_listen: unable to bind to port " + port +
                                " Too many open files"}));
    EXPECT_EQ(failure, EMFILE);
}

TEST(VnsockListen, CallsAWellKnownPortByItsName)
{
    const test::ChildResult result = test::run_in_child([] {
        if (!test::enter_private_network()) _exit(77);
        for (const std::string &line :
             log_lines([] { close(vnsock_listen(&kStream, "127.0.0.1", "80", 0, 0, 0)); }))
            printf("%s\n", line.c_str());
    });
    if (result.exited_with(77)) GTEST_SKIP() << "no network namespaces here";
    const servent *const http = getservbyport(htons(80), "tcp");
    EXPECT_EQ(result.out, std::string("INFOR: Socket bound on interface 127.0.0.1 port ") +
                              (http != nullptr ? http->s_name : "80") + "\n");
}

TEST(VnsockListen, FindsIpv4WhereIpv6IsSwitchedOff)
{
    const test::ChildResult result = test::run_in_child([] {
        if (!test::enter_private_network()) _exit(77);
        const int fd = open("/proc/sys/net/ipv6/conf/lo/disable_ipv6", O_WRONLY);
        if (fd < 0 || write(fd, "1", 1) != 1) _exit(77);
        close(fd);
        const addrinfo any = hints_for(AF_UNSPEC, SOCK_STREAM);
        for (const std::string &line : log_lines([&] {
                 EXPECT_EQ(vnsock_listen(&any, "::1", "4711", 0, 0, 0), -1);
                 EXPECT_GE(vnsock_listen(&any, "127.0.0.1", "4711", 0, 0, 0), 0);
             }))
            printf("%s\n", line.c_str());
    });
    if (result.exited_with(77)) GTEST_SKIP() << "no network namespaces or no IPv6 switch here";
    EXPECT_EQ(result.out,
              "ERROR: vnsock_listen: unable to bind to port 4711 Cannot assign requested "
              "address\nINFOR: Socket bound on interface 127.0.0.1 port 4711\n");
}

// ---- connect

class VnsockConnect : public testing::Test {
protected:
    int listener_ = test::listen_on_loopback();
    std::string port_ = std::to_string(test::port_of(listener_));

    void TearDown() override { close(listener_); }
    int connect(const char *ifname = nullptr, int addfl = 0, int bufsize = 0)
    {
        return vnsock_connect(&kStream, "127.0.0.1", port_.c_str(), ifname, addfl, bufsize,
                              "tester");
    }
};

TEST_F(VnsockConnect, ReturnsAConnectedSocketInSilence)
{
    int fd = -1;
    EXPECT_EQ(log_lines([&] { fd = connect(); }), Lines{});
    const int server = accept(listener_, nullptr, nullptr);
    EXPECT_EQ(write(fd, "x", 1), 1);
    char byte = 0;
    EXPECT_EQ(read(server, &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
    close(server);
    close(fd);
}

TEST_F(VnsockConnect, MakesAnySocketTypeAStreamAndLeavesTheHintsAlone)
{
    addrinfo hints = kDatagram;
    const int fd = vnsock_connect(&hints, "127.0.0.1", port_.c_str(), nullptr, 0, 0, "tester");
    EXPECT_EQ(option_of(fd, SO_TYPE), SOCK_STREAM);
    EXPECT_EQ(memcmp(&hints, &kDatagram, sizeof hints), 0);
    close(fd);
}

TEST_F(VnsockConnect, TakesNoHintsAsAnyFamily)
{
    const int fd = vnsock_connect(nullptr, "127.0.0.1", port_.c_str(), nullptr, 0, 0, "tester");
    EXPECT_GE(fd, 0);
    close(fd);
}

TEST_F(VnsockConnect, AddsTheStatusFlags)
{
    const int plain = connect();
    const int quick = connect(nullptr, O_NONBLOCK);
    EXPECT_EQ(flags_of(plain) & O_NONBLOCK, 0);
    EXPECT_EQ(flags_of(quick), flags_of(plain) | O_NONBLOCK);
    close(plain);
    close(quick);
}

TEST_F(VnsockConnect, SetsBothBuffersToTheSizeGiven)
{
    const int fd = connect(nullptr, 0, 20000);
    EXPECT_EQ(option_of(fd, SO_RCVBUF), 40000);
    EXPECT_EQ(option_of(fd, SO_SNDBUF), 40000);
    close(fd);
}

TEST_F(VnsockConnect, ReturnsWhileANonBlockingConnectionIsInProgress)
{
    // A listener whose queue is full does not answer further connection requests.
    const int crowded = test::listen_on_loopback(0, 0);
    const std::string port = std::to_string(test::port_of(crowded));
    const int first = test::connect_to_loopback(test::port_of(crowded));
    int fd = -1;
    EXPECT_EQ(log_lines([&] {
                  fd = vnsock_connect(&kStream, "127.0.0.1", port.c_str(), nullptr, O_NONBLOCK, 0,
                                      "tester");
              }),
              Lines{});
    ASSERT_GE(fd, 0);
    pollfd writable = {fd, POLLOUT, 0};
    EXPECT_EQ(poll(&writable, 1, 50), 0) << "the connection was expected to hang";
    close(fd);
    close(first);
    close(crowded);
}

TEST_F(VnsockConnect, ReportsARefusedConnectionAsItsCaller)
{
    close(listener_);
    const size_t descriptors = test::open_descriptors();
    int failure = 0;
    const Lines lines = log_lines([&] {
        EXPECT_EQ(connect(), -1);
        failure = errno;
    });
    EXPECT_EQ(lines, Lines{"ERROR: tester: connect: Connection refused (111)"});
    EXPECT_EQ(failure, ECONNREFUSED);
    EXPECT_EQ(test::open_descriptors(), descriptors);
    listener_ = -1;
}

TEST_F(VnsockConnect, ReportsAnUnknownHostWithNodeAndService)
{
    const Lines lines = log_lines([] {
        EXPECT_EQ(vnsock_connect(&kStream, "no such host", "80", nullptr, 0, 0, "tester"), -1);
    });
    addrinfo *list = nullptr;
    const int code = getaddrinfo("no such host", "80", &kStream, &list);
    EXPECT_EQ(lines, Lines{std::string("ERROR: tester: getaddrinfo: no such host:80: ") +
                           gai_strerror(code) + " (" + std::to_string(code) + ")"});
}

TEST_F(VnsockConnect, ReportsWhatIsMissingByName)
{
    const Lines lines = log_lines(
        [] { EXPECT_EQ(vnsock_connect(&kStream, nullptr, nullptr, nullptr, 0, 0, nullptr), -1); });
    EXPECT_EQ(lines, Lines{"ERROR: (null): getaddrinfo: (null):(null): " +
                           resolver_text(nullptr, nullptr) + " (-2)"});
}

TEST_F(VnsockConnect, ReportsThatNoSocketCanBeMade)
{
    int fd = 0;
    const Lines lines = log_lines([&] {
        const char *const port = port_.c_str();
        const NoMoreDescriptors full; // not even for the sanitizers' own checks
        fd = vnsock_connect(&kStream, "127.0.0.1", port, nullptr, 0, 0, "tester");
    });
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(lines, Lines{"ERROR: tester: socket: Too many open files (24)"});
}

TEST_F(VnsockConnect, GoesOnUnboundWhenThereIsNoSuchInterface)
{
    int fd = -1;
    const Lines lines = log_lines([&] { fd = connect("nosuch0"); });
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_TRUE(
        lines[0] == "ERROR: vnsock_connect: setsockopt: bind to nosuch0: No such device (19)" ||
        lines[0] ==
            "ERROR: vnsock_connect: setsockopt: bind to nosuch0: Operation not permitted (1)")
        << lines[0];
    EXPECT_GE(fd, 0);
    close(fd);
}

TEST_F(VnsockConnect, BindsToTheInterfaceGiven)
{
    if (test::kEmulated) GTEST_SKIP() << "qemu does not tell which interface a socket is bound to";
    int fd = -1;
    EXPECT_EQ(log_lines([&] { fd = connect("lo"); }), Lines{});
    char name[IFNAMSIZ] = "";
    socklen_t length = sizeof name;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, name, &length), 0);
    EXPECT_STREQ(name, "lo");
    close(fd);
}

TEST_F(VnsockConnect, ReportsStatusFlagsThatASocketCannotHave)
{
    const size_t descriptors = test::open_descriptors();
    char line[100];
    snprintf(line, sizeof line, "ERROR: tester: addfl: %#x: Invalid argument (22)",
             static_cast<unsigned>(O_DIRECT));
    EXPECT_EQ(log_lines([&] { EXPECT_EQ(connect(nullptr, O_DIRECT), -1); }), Lines{line});
    EXPECT_EQ(test::open_descriptors(), descriptors);
}

TEST_F(VnsockConnect, ReportsANetworkThatCannotBeReached)
{
    const test::ChildResult result = test::run_in_child([] {
        if (!test::enter_private_network()) _exit(77);
        for (const std::string &line : log_lines([] {
                 EXPECT_EQ(vnsock_connect(&kStream, "192.0.2.1", "80", nullptr, 0, 0, "tester"),
                           -1);
             }))
            printf("%s\n", line.c_str());
    });
    if (result.exited_with(77)) GTEST_SKIP() << "no network namespaces here";
    EXPECT_EQ(result.out, "ERROR: tester: connect: Network is unreachable (101)\n");
}

// ---- accept, peer name

class VnsockAccept : public VnsockConnect {};

TEST_F(VnsockAccept, WritesThePeersNumericAddress)
{
    const int client = test::connect_to_loopback(test::port_of(listener_));
    char host[64] = "";
    int fd = -1;
    EXPECT_EQ(log_lines([&] { fd = vnsock_accept(listener_, host, sizeof host, "tester"); }),
              Lines{});
    EXPECT_GE(fd, 0);
    EXPECT_STREQ(host, "127.0.0.1");
    close(fd);
    close(client);
}

TEST_F(VnsockAccept, NeedsNoPlaceForTheAddress)
{
    const int client = test::connect_to_loopback(test::port_of(listener_));
    const int fd = vnsock_accept(listener_, nullptr, 0, "tester");
    EXPECT_GE(fd, 0);
    close(fd);
    close(client);
}

TEST_F(VnsockAccept, IsQuietWhenNobodyWaitsAtANonBlockingListener)
{
    fcntl(listener_, F_SETFL, O_NONBLOCK);
    int failure = 0;
    EXPECT_EQ(log_lines([&] {
                  EXPECT_EQ(vnsock_accept(listener_, nullptr, 0, "tester"), -1);
                  failure = errno;
              }),
              Lines{});
    EXPECT_EQ(failure, EAGAIN);
}

TEST_F(VnsockAccept, ReportsAClosedDescriptor)
{
    EXPECT_EQ(log_lines([] { EXPECT_EQ(vnsock_accept(-1, nullptr, 0, "tester"), -1); }),
              Lines{"ERROR: tester: accept: Bad file descriptor (9)"});
}

TEST_F(VnsockAccept, ClosesAConnectionWhosePeerDoesNotFit)
{
    const int client = test::connect_to_loopback(test::port_of(listener_));
    char host[4];
    const Lines lines =
        log_lines([&] { EXPECT_EQ(vnsock_accept(listener_, host, sizeof host, "tester"), -1); });
    EXPECT_EQ(lines, Lines{std::string("ERROR: tester: getnameinfo: ") +
                           gai_strerror(EAI_OVERFLOW) + " (" + std::to_string(EAI_OVERFLOW) + ")"});
    EXPECT_TRUE(peer_closed(client));
    close(client);
}

class VnsockGetpeername : public VnsockConnect {};

TEST_F(VnsockGetpeername, ReturnsTheCallersBufferFilled)
{
    const int fd = connect();
    char host[64] = "";
    EXPECT_EQ(vnsock_getpeername(fd, host, sizeof host), host);
    EXPECT_STREQ(host, "127.0.0.1");
    close(fd);
}

TEST_F(VnsockGetpeername, NamesAnIpv6Peer)
{
    const addrinfo hints = hints_for(AF_INET6, SOCK_STREAM);
    const int listener = vnsock_listen(&hints, "::1", nullptr, 0, 0, 0);
    if (listener < 0) GTEST_SKIP() << "no IPv6 on this machine's loopback interface";
    const int fd = vnsock_connect(&hints, "::1", std::to_string(test::port_of(listener)).c_str(),
                                  nullptr, 0, 0, "tester");
    char host[64] = "";
    EXPECT_EQ(vnsock_getpeername(fd, host, sizeof host), host);
    EXPECT_STREQ(host, "::1");
    close(fd);
    close(listener);
}

TEST_F(VnsockGetpeername, ReportsASocketWithoutAPeer)
{
    char host[64];
    EXPECT_EQ(
        log_lines([&] { EXPECT_EQ(vnsock_getpeername(listener_, host, sizeof host), nullptr); }),
        Lines{"ERROR: vnsock_getpeername: Transport endpoint is not connected (107)"});
}

TEST_F(VnsockGetpeername, ReportsAClosedDescriptor)
{
    char host[64];
    EXPECT_EQ(log_lines([&] { EXPECT_EQ(vnsock_getpeername(-1, host, sizeof host), nullptr); }),
              Lines{"ERROR: vnsock_getpeername: Bad file descriptor (9)"});
}

TEST_F(VnsockGetpeername, ReportsABufferThatIsTooSmall)
{
    const int fd = connect();
    char host[4];
    EXPECT_EQ(log_lines([&] { EXPECT_EQ(vnsock_getpeername(fd, host, sizeof host), nullptr); }),
              Lines{std::string("ERROR: vnsock_getpeername: ") + gai_strerror(EAI_OVERFLOW) + " (" +
                    std::to_string(EAI_OVERFLOW) + ")"});
    close(fd);
}

// ---- options

TEST(VnsockSetSockbuffers, DoesNothingWhenBothSizesAreZero)
{
    EXPECT_EQ(vnsock_set_sockbuffers(-1, 0, 0), 0);
}

TEST(VnsockSetSockbuffers, SetsEachDirectionByItself)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const int send_size = option_of(fd, SO_SNDBUF);
    EXPECT_EQ(vnsock_set_sockbuffers(fd, 20000, 0), 0);
    EXPECT_EQ(option_of(fd, SO_RCVBUF), 40000);
    EXPECT_EQ(option_of(fd, SO_SNDBUF), send_size);
    EXPECT_EQ(vnsock_set_sockbuffers(fd, 0, 30000), 0);
    EXPECT_EQ(option_of(fd, SO_RCVBUF), 40000);
    EXPECT_EQ(option_of(fd, SO_SNDBUF), 60000);
    close(fd);
}

TEST(VnsockSetSockbuffers, FailsInSilenceOnAClosedDescriptor)
{
    const Lines lines = log_lines([] {
        EXPECT_EQ(vnsock_set_sockbuffers(-1, 20000, 0), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(vnsock_set_sockbuffers(-1, 0, 20000), -1);
        EXPECT_EQ(errno, EBADF);
    });
    EXPECT_EQ(lines, Lines{});
}

TEST(VnsockBindIface, FailsInSilence)
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const Lines lines = log_lines([&] {
        EXPECT_EQ(vnsock_bind_iface(fd, "nosuch0"), -1);
        EXPECT_EQ(vnsock_bind_iface(-1, "lo"), -1);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(vnsock_bind_iface(fd, nullptr), -1);
        EXPECT_EQ(errno, EINVAL);
    });
    EXPECT_EQ(lines, Lines{});
    close(fd);
}

TEST(VnsockBindIface, TakesTheFirstFifteenCharactersOfALongName)
{
    if (test::kEmulated) GTEST_SKIP() << "qemu does not tell which interface a socket is bound to";
    const test::ChildResult result = test::run_in_child([] {
        if (!test::enter_private_network()) _exit(77);
        if (system("ip link add abcdefghijklmno type veth peer name other 2>/dev/null") != 0)
            _exit(77);
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        printf("%d ", vnsock_bind_iface(fd, "abcdefghijklmnopqrst"));
        char name[IFNAMSIZ] = "";
        socklen_t length = sizeof name;
        getsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, name, &length);
        printf("%s", name);
    });
    if (result.exited_with(77)) GTEST_SKIP() << "no network namespace with a veth pair here";
    EXPECT_EQ(result.out, "0 abcdefghijklmno");
}

// ---- TCP diagnostics

TEST(ReadTcpInfo, GivesTheFirst104BytesOfTheKernelsRecord)
{
    if (test::kEmulated) GTEST_SKIP() << "qemu gives the first byte of the kernel's record only";
    const int listener = test::listen_on_loopback();
    std::vector<unsigned char> info(105, 0xA5);
    EXPECT_EQ(read_tcp_info(listener, info.data()), 0);
    EXPECT_EQ(info[0], TCP_LISTEN);
    EXPECT_EQ(info[104], 0xA5);
    tcp_info expected = {};
    socklen_t length = 104;
    ASSERT_EQ(getsockopt(listener, IPPROTO_TCP, TCP_INFO, &expected, &length), 0);
    EXPECT_EQ(memcmp(info.data(), &expected, 104), 0);
    close(listener);
}

TEST(ReadTcpInfo, ReportsAClosedDescriptor)
{
    unsigned char info[104];
    int failure = 0;
    EXPECT_EQ(log_lines([&] {
                  EXPECT_EQ(read_tcp_info(-1, info), -1);
                  failure = errno;
              }),
              Lines{"ERROR: read_tcp_info: getsockopt: Bad file descriptor (9)"});
    EXPECT_EQ(failure, EBADF);
}

// Bytes 0 to 5 hold 1 to 6, the scales are 7 and 3, and word n of 24 holds 0xA00000 + n.
std::vector<unsigned char> sample_info()
{
    std::vector<unsigned char> info = {1, 2, 3, 4, 5, 6, 0x73, 0xEE};
    for (uint32_t n = 0; n < 24; ++n) {
        const uint32_t word = 0xA00000 + n;
        const auto *const bytes = reinterpret_cast<const unsigned char *>(&word);
        info.insert(info.end(), bytes, bytes + 4);
    }
    return info;
}

const Lines kSampleDump = {
    "==== Dumping Full TCP Information ====",
    "State          0x01",
    "CA State       0x02",
    "Retransmits    0x03",
    "Probes         0x04",
    "Backoff        0x05",
    "Options        0x06",
    "Snd WScale     0x3",
    "Rcv WScale     0x7",
    "RTO            0x00a00000",
    "ATO            0x00a00001",
    "Snd MSS        0x00a00002",
    "Rcv MSS        0x00a00003",
    "Un-ACK'ed      0x00a00004",
    "SACK'ed        0x00a00005",
    "Lost           0x00a00006",
    "Retrans        0x00a00007",
    "Fackets        0x00a00008",
    "Last Data Sent 0x00a00009",
    "Last ACK Sent  0x00a0000a",
    "Last Data Recv 0x00a0000b",
    "Last ACK Recv  0x00a0000c",
    "PMTU           0x00a0000d",
    "Rcv SSThresh   0x00a0000e",
    "RTT            0x00a0000f",
    "RTT Var        0x00a00010",
    "Snd SSThresh   0x00a00011",
    "Snd CWND       0x00a00012",
    "Adv MSS        0x00a00013",
    "Reordering     0x00a00014",
    "Rcv RTT        0x00a00015",
    "Rcv Space      0x00a00016",
    "Total Retrans  0x00a00017",
    "==== End of Full TCP Information ====",
};

Lines with_prefix(const std::string &prefix, Lines lines)
{
    for (std::string &line : lines) line.insert(0, prefix);
    return lines;
}

TEST(DisplayTcpInfo, LogsEveryFieldOnALineOfItsOwn)
{
    const std::vector<unsigned char> info = sample_info();
    EXPECT_EQ(log_lines([&] { display_tcp_info(6, info.data()); }),
              with_prefix("INFOR: ", kSampleDump));
    EXPECT_EQ(log_lines([&] { display_tcp_info(3, info.data()); }),
              with_prefix("ERROR: ", kSampleDump));
}

TEST(DisplayTcpInfo, WritesZeroWithoutABasePrefix)
{
    const std::vector<unsigned char> info(104, 0);
    const Lines lines = log_lines([&] { display_tcp_info(6, info.data()); });
    ASSERT_EQ(lines.size(), kSampleDump.size());
    EXPECT_EQ(lines[1], "INFOR: State          00");
    EXPECT_EQ(lines[7], "INFOR: Snd WScale     0");
    EXPECT_EQ(lines[9], "INFOR: RTO            00000000");
}

TEST(DisplayTcpInfo, LogsNothingAtTheSilentLevel)
{
    const std::vector<unsigned char> info = sample_info();
    EXPECT_EQ(log_lines([&] { display_tcp_info(23, info.data()); }, 30), Lines{});
    EXPECT_EQ(log_lines([&] { display_tcp_info(22, info.data()); }, 30).size(), kSampleDump.size());
}

TEST(DisplayTcpInfo, ReadsARecordAtAnyAddress)
{
    const std::vector<unsigned char> info = sample_info();
    for (size_t shift = 1; shift < 4; ++shift) {
        std::vector<unsigned char> moved(shift, 0);
        moved.insert(moved.end(), info.begin(), info.end());
        EXPECT_EQ(log_lines([&] { display_tcp_info(6, moved.data() + shift); }),
                  with_prefix("INFOR: ", kSampleDump));
    }
}

TEST(DisplayTcpInfo, ShowsALiveConnection)
{
    const int listener = test::listen_on_loopback();
    const int client = test::connect_to_loopback(test::port_of(listener));
    unsigned char info[104];
    ASSERT_EQ(read_tcp_info(client, info), 0);
    const Lines lines = log_lines([&] { display_tcp_info(7, info); });
    ASSERT_EQ(lines.size(), kSampleDump.size());
    EXPECT_EQ(lines[1], "DEBUG: State          0x01"); // TCP_ESTABLISHED
    tcp_info native;
    memcpy(&native, info, sizeof info);
    char line[64];
    snprintf(line, sizeof line, "DEBUG: Snd MSS        0x%.8x", native.tcpi_snd_mss);
    EXPECT_EQ(lines[11], line);
    snprintf(line, sizeof line, "DEBUG: PMTU           0x%.8x", native.tcpi_pmtu);
    EXPECT_EQ(lines[22], line);
    close(client);
    close(listener);
}

// ---- MAC lookup

TEST(VnGetmac, FailsForAnUnknownInterface)
{
    unsigned char mac[6];
    EXPECT_EQ(vn_getmac("nosuch0", mac), -1);
    EXPECT_EQ(vn_getmac64("nosuch0"), 0u);
}

TEST(VnGetmac, FailsForANameTooLongForAnyPath)
{
    unsigned char mac[6];
    EXPECT_EQ(vn_getmac(std::string(10000, 'x').c_str(), mac), -1);
}

TEST(VnGetmac, TakesAPathOfUpTo4094Characters)
{
    if (access("/sys/class/net/lo/address", R_OK) != 0) GTEST_SKIP() << "no sysfs here";
    const size_t room = 4094 - strlen("/sys/class/net/lo/address");
    unsigned char mac[6];
    EXPECT_EQ(vn_getmac((std::string(room, '/') + "lo").c_str(), mac), 0);
    EXPECT_EQ(vn_getmac((std::string(room + 1, '/') + "lo").c_str(), mac), -1);
}

TEST(VnGetmac, RefusesNullArguments)
{
    unsigned char mac[6];
    EXPECT_EQ(vn_getmac(nullptr, mac), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(vn_getmac("lo", nullptr), -1);
    EXPECT_EQ(vn_getmac64(nullptr), 0u);
}

TEST(VnGetmac, ReadsTheAllZeroAddressOfTheLoopback)
{
    if (access("/sys/class/net/lo/address", R_OK) != 0) GTEST_SKIP() << "no sysfs here";
    unsigned char mac[6] = {1, 1, 1, 1, 1, 1};
    EXPECT_EQ(vn_getmac("lo", mac), 0);
    for (const unsigned char byte : mac) EXPECT_EQ(byte, 0);
    EXPECT_EQ(vn_getmac64("lo"), 0u);
}

TEST(VnGetmac, ReadsTheAddressOfARealInterface)
{
    const test::ChildResult result = test::run_in_child([] {
        if (!test::enter_private_network() || unshare(CLONE_NEWNS) != 0) _exit(77);
        // sysfs shows the interfaces of the namespace that it was mounted from.
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
        if (mount("sysfs", "/sys", "sysfs", 0, nullptr) != 0) _exit(77);
        if (system("ip link add v0 address 02:1a:2b:3c:4d:5e type veth peer name v1 2>/dev/null") !=
            0)
            _exit(77);
        unsigned char mac[6] = {};
        printf("%d", vn_getmac("v0", mac));
        for (const unsigned char byte : mac) printf(" %.2x", byte);
        printf(" %.16llx", static_cast<unsigned long long>(vn_getmac64("v0")));
    });
    if (result.exited_with(77)) GTEST_SKIP() << "no network namespace with a veth pair here";
    EXPECT_EQ(result.out, "0 02 1a 2b 3c 4d 5e 0000021a2b3c4d5e");
}

} // namespace
