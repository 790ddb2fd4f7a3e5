// vnsock_fault_test.cpp - the paths that no healthy kernel takes: system calls made to fail, lists
// of addresses made up, and address files with any content.
#include "vnlib/vnsock.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <map>

#include "support/fault_alloc.h"
#include "support/log_lines.h"
#include "support/network.h"

namespace {

using test::log_lines;
using Lines = std::vector<std::string>;

// Which call fails with which errno: a negative number of the socket option for setsockopt.
struct Faults {
    std::map<std::string, int> calls;
    std::map<int, int> options; // SO_... -> errno
    int missing_family = -1;
    int getaddrinfo_code = 0, getnameinfo_code = 0;
    const addrinfo *addresses = nullptr; // handed out instead of the resolver's
    std::string address_file;            // opened instead of sysfs' file
    std::string opened;
    std::vector<int> options_set;
    std::string interface_request; // what SO_BINDTODEVICE was last given
    int socket_calls = 0, lists_out = 0, backlog = 0;
};
Faults faults;

bool fails(const char *call)
{
    const auto entry = faults.calls.find(call);
    if (entry == faults.calls.end()) return false;
    errno = entry->second;
    return true;
}

} // namespace

extern "C" {
int __real_socket(int family, int type, int protocol);
int __real_setsockopt(int fd, int level, int option, const void *value, socklen_t length);
int __real_listen(int fd, int backlog);
int __real_getsockname(int fd, sockaddr *address, socklen_t *length);
int __real_getaddrinfo(const char *node, const char *service, const addrinfo *hints,
                       addrinfo **list);
void __real_freeaddrinfo(addrinfo *list);
int __real_getnameinfo(const sockaddr *address, socklen_t length, char *host, socklen_t host_size,
                       char *service, socklen_t service_size, int flags);
int __real_connect(int fd, const sockaddr *address, socklen_t length);
int __real_close(int fd);
FILE *__real_fopen(const char *path, const char *mode);

int __wrap_socket(int family, int type, int protocol);
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t length);
int __wrap_listen(int fd, int backlog);
int __wrap_getsockname(int fd, sockaddr *address, socklen_t *length);
int __wrap_getaddrinfo(const char *node, const char *service, const addrinfo *hints,
                       addrinfo **list);
void __wrap_freeaddrinfo(addrinfo *list);
int __wrap_getnameinfo(const sockaddr *address, socklen_t length, char *host, socklen_t host_size,
                       char *service, socklen_t service_size, int flags);
int __wrap_connect(int fd, const sockaddr *address, socklen_t length);
int __wrap_close(int fd);
int __wrap_fcntl(int fd, int command, ...);
int __real_fcntl(int fd, int command, ...);
FILE *__wrap_fopen(const char *path, const char *mode);

int __wrap_socket(int family, int type, int protocol)
{
    ++faults.socket_calls;
    if (family == faults.missing_family) {
        errno = EAFNOSUPPORT;
        return -1;
    }
    return fails("socket") ? -1 : __real_socket(family, type, protocol);
}
int __wrap_setsockopt(int fd, int level, int option, const void *value, socklen_t length)
{
    faults.options_set.push_back(option);
    if (option == SO_BINDTODEVICE)
        faults.interface_request.assign(static_cast<const char *>(value), length);
    if (const auto entry = faults.options.find(option); entry != faults.options.end()) {
        errno = entry->second;
        return -1;
    }
    return __real_setsockopt(fd, level, option, value, length);
}
int __wrap_listen(int fd, int backlog)
{
    faults.backlog = backlog;
    return fails("listen") ? -1 : __real_listen(fd, backlog);
}
int __wrap_getsockname(int fd, sockaddr *address, socklen_t *length)
{
    return fails("getsockname") ? -1 : __real_getsockname(fd, address, length);
}
int __wrap_getaddrinfo(const char *node, const char *service, const addrinfo *hints,
                       addrinfo **list)
{
    if (faults.getaddrinfo_code != 0) {
        (void)fails("getaddrinfo");
        return faults.getaddrinfo_code;
    }
    ++faults.lists_out;
    if (faults.addresses == nullptr) return __real_getaddrinfo(node, service, hints, list);
    *list = const_cast<addrinfo *>(faults.addresses);
    return 0;
}
void __wrap_freeaddrinfo(addrinfo *list)
{
    --faults.lists_out;
    if (list != faults.addresses) __real_freeaddrinfo(list);
    errno = EDOM; // a release may do that; nobody may see it
}
int __wrap_getnameinfo(const sockaddr *address, socklen_t length, char *host, socklen_t host_size,
                       char *service, socklen_t service_size, int flags)
{
    if (faults.getnameinfo_code != 0) return faults.getnameinfo_code;
    return __real_getnameinfo(address, length, host, host_size, service, service_size, flags);
}
int __wrap_connect(int fd, const sockaddr *address, socklen_t length)
{
    return fails("connect") ? -1 : __real_connect(fd, address, length);
}
int __wrap_close(int fd)
{
    const int result = __real_close(fd);
    errno = EDOM;
    return result;
}
int __wrap_fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    const int value = va_arg(args, int);
    va_end(args);
    if (command == F_GETFL && fails("F_GETFL")) return -1;
    if (command == F_SETFL && fails("F_SETFL")) return -1;
    return __real_fcntl(fd, command, value);
}
FILE *__wrap_fopen(const char *path, const char *mode)
{
    faults.opened = std::string(path) + " " + mode;
    if (!faults.address_file.empty()) path = faults.address_file.c_str();
    return __real_fopen(path, mode);
}
}

namespace {

const addrinfo kStream = [] {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST;
    return hints;
}();

// Every test starts and ends with a healthy system, and leaks neither descriptors nor lists.
class Faulty : public testing::Test {
protected:
    size_t descriptors_ = test::open_descriptors();

    void SetUp() override { faults = {}; }
    void TearDown() override
    {
        EXPECT_EQ(test::open_descriptors(), descriptors_);
        EXPECT_EQ(faults.lists_out, 0);
        faults = {};
    }
};
class VnsockListenFault : public Faulty {};
class VnsockConnectFault : public Faulty {};
class VnsockBindIfaceFault : public Faulty {};
class VnGetmacFault : public Faulty {};

// Two stream addresses as a resolver might give them, IPv6 first.
class TwoAddresses {
public:
    explicit TwoAddresses(int type = SOCK_STREAM)
    {
        six_.sin6_family = AF_INET6;
        six_.sin6_addr = IN6ADDR_LOOPBACK_INIT;
        first_.ai_family = AF_INET6;
        first_.ai_addr = reinterpret_cast<sockaddr *>(&six_);
        first_.ai_addrlen = sizeof six_;
        first_.ai_next = &second_;
        second_.ai_family = AF_INET;
        second_.ai_addr = reinterpret_cast<sockaddr *>(&four_);
        second_.ai_addrlen = sizeof four_;
        first_.ai_socktype = second_.ai_socktype = type;
        faults.addresses = &first_;
    }
    sockaddr_in &four() { return four_; }

private:
    sockaddr_in6 six_ = {};
    sockaddr_in four_ = test::loopback(0);
    addrinfo first_ = {}, second_ = {};
};

int listen_anywhere(int addfl = 0, int bufsize = 0, unsigned char broadcast = 0)
{
    return vnsock_listen(&kStream, "127.0.0.1", "0", broadcast, addfl, bufsize);
}

TEST_F(VnsockListenFault, SkipsAFamilyThatTheKernelLacksInSilence)
{
    TwoAddresses addresses;
    faults.missing_family = AF_INET6;
    int fd = -1;
    const Lines lines = log_lines([&] { fd = listen_anywhere(); });
    EXPECT_GE(fd, 0);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0], "INFOR: Socket bound on interface 127.0.0.1 port " +
                            std::to_string(test::port_of(fd)));
    EXPECT_EQ(faults.socket_calls, 2);
    close(fd);
}

TEST_F(VnsockListenFault, ReportsEachSocketThatFailsAndGoesOn)
{
    TwoAddresses addresses;
    faults.calls["socket"] = ENFILE;
    const Lines lines = log_lines([] { EXPECT_EQ(listen_anywhere(), -1); });
    const std::string each = "ERROR: vnsock_listen: socket: Too many open files in system (23)";
    EXPECT_EQ(lines, (Lines{each, each,
                            "ERROR: vnsock_listen: unable to bind to port 0 "
                            "Too many open files in system"}));
}

TEST_F(VnsockListenFault, ListensWithABacklogOfTen)
{
    close(listen_anywhere());
    EXPECT_EQ(faults.backlog, 10);
}

TEST_F(VnsockListenFault, ReportsASystemErrorOfTheResolverWithErrno)
{
    faults.getaddrinfo_code = EAI_SYSTEM;
    faults.calls["getaddrinfo"] = ENOMEM;
    const Lines lines = log_lines([] { EXPECT_EQ(listen_anywhere(), -1); });
    EXPECT_EQ(lines, Lines{"ERROR: getaddrinfo: Cannot allocate memory (12)"});
}

TEST_F(VnsockListenFault, GoesOnInSilenceWhenTheBuffersCannotBeSet)
{
    faults.options[SO_SNDBUF] = ENOBUFS;
    const Lines lines = log_lines([] { EXPECT_EQ(listen_anywhere(0, 4096), -1); });
    EXPECT_EQ(lines,
              Lines{"ERROR: vnsock_listen: unable to bind to port 0 No buffer space available"});
}

TEST_F(VnsockListenFault, OnlyTellsThatTheAddressCannotBeReused)
{
    faults.options[SO_REUSEADDR] = ENOPROTOOPT;
    int fd = -1;
    const Lines lines = log_lines([&] { fd = listen_anywhere(); });
    EXPECT_GE(fd, 0);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "ERROR: vnsock_listen: setsockopt: reuse: Protocol not available (92)");
    close(fd);
}

TEST_F(VnsockListenFault, GivesUpAtOnceWhenBroadcastsAreNotAllowed)
{
    TwoAddresses addresses(SOCK_DGRAM);
    faults.options[SO_BROADCAST] = EACCES;
    int failure = 0;
    const Lines lines = log_lines([&] {
        EXPECT_EQ(listen_anywhere(0, 0, 1), -1);
        failure = errno;
    });
    EXPECT_EQ(lines,
              Lines{"ERROR: vnsock_listen: setsockopt SO_BROADCAST: Permission denied (13)"});
    EXPECT_EQ(faults.socket_calls, 1);
    EXPECT_EQ(failure, EACCES);
}

TEST_F(VnsockListenFault, ReportsFlagsThatCannotBeReadOrWritten)
{
    for (const char *const call : {"F_GETFL", "F_SETFL"}) {
        faults.calls = {{call, EPERM}};
        const Lines lines = log_lines([] { EXPECT_EQ(listen_anywhere(O_NONBLOCK), -1); });
        EXPECT_EQ(
            lines,
            (Lines{"ERROR: vnsock_listen: addfl: 0x800: Operation not permitted (1)",
                   "ERROR: vnsock_listen: unable to bind to port 0 Operation not permitted"}));
    }
}

TEST_F(VnsockListenFault, AsksForNoStatusFlagsWhenNoneAreToBeAdded)
{
    faults.calls = {{"F_GETFL", EPERM}, {"F_SETFL", EPERM}};
    const int fd = listen_anywhere();
    EXPECT_GE(fd, 0);
    close(fd);
}

TEST_F(VnsockListenFault, TriesTheNextAddressWhenListeningFails)
{
    faults.calls["listen"] = EOPNOTSUPP;
    const Lines lines = log_lines([] { EXPECT_EQ(listen_anywhere(), -1); });
    EXPECT_EQ(lines,
              Lines{"ERROR: vnsock_listen: unable to bind to port 0 Operation not supported"});
}

TEST_F(VnsockListenFault, GoesOnInSilenceWhenTheSocketHasNoName)
{
    faults.calls["getsockname"] = ENOTSOCK;
    const Lines lines = log_lines([] { EXPECT_EQ(listen_anywhere(), -1); });
    EXPECT_EQ(
        lines,
        Lines{"ERROR: vnsock_listen: unable to bind to port 0 Socket operation on non-socket"});
}

TEST_F(VnsockListenFault, ReportsAnAddressThatHasNoText)
{
    faults.getnameinfo_code = EAI_FAMILY;
    const Lines lines = log_lines([] {
        errno = 0;
        EXPECT_EQ(listen_anywhere(), -1);
    });
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], std::string("ERROR: vnsock_listen: getnameinfo: ") +
                            gai_strerror(EAI_FAMILY) + " (" + std::to_string(EAI_FAMILY) + ")");
}

TEST_F(VnsockListenFault, LeavesTheReasonEmptyWhenErrnoSaysNothing)
{
    TwoAddresses addresses; // made up, so that no resolver touches errno
    faults.getnameinfo_code = EAI_FAMILY;
    const Lines lines = log_lines([] {
        errno = 0;
        EXPECT_EQ(listen_anywhere(), -1);
    });
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2], "ERROR: vnsock_listen: unable to bind to port 0 ");
}

class Listener {
public:
    [[nodiscard]] std::string port() const { return std::to_string(test::port_of(fd_)); }
    ~Listener() { close(fd_); }

private:
    int fd_ = test::listen_on_loopback();
};

int connect_there(const std::string &port, int addfl = 0, int bufsize = 0)
{
    return vnsock_connect(&kStream, "127.0.0.1", port.c_str(), nullptr, addfl, bufsize, "tester");
}

TEST_F(VnsockConnectFault, FailsInSilenceWhenTheBuffersCannotBeSet)
{
    faults.options[SO_RCVBUF] = ENOBUFS;
    int failure = 0;
    EXPECT_EQ(log_lines([&] {
                  EXPECT_EQ(connect_there("9", 0, 4096), -1);
                  failure = errno;
              }),
              Lines{});
    EXPECT_EQ(failure, ENOBUFS);
}

TEST_F(VnsockConnectFault, ReportsFlagsThatCannotBeWritten)
{
    faults.calls["F_SETFL"] = EPERM;
    EXPECT_EQ(log_lines([] { EXPECT_EQ(connect_there("9", O_NONBLOCK), -1); }),
              Lines{"ERROR: tester: addfl: 0x800: Operation not permitted (1)"});
}

TEST_F(VnsockConnectFault, TakesAConnectionInProgressForAFailureUnlessNonBlocking)
{
    faults.calls["connect"] = EINPROGRESS;
    EXPECT_EQ(log_lines([] { EXPECT_EQ(connect_there("9"), -1); }),
              Lines{"ERROR: tester: connect: Operation now in progress (115)"});
    EXPECT_EQ(log_lines([] { EXPECT_EQ(connect_there("9", O_APPEND), -1); }),
              Lines{"ERROR: tester: connect: Operation now in progress (115)"});
    int fd = -1;
    EXPECT_EQ(log_lines([&] { fd = connect_there("9", O_NONBLOCK); }), Lines{});
    EXPECT_GE(fd, 0);
    close(fd);
}

TEST_F(VnsockConnectFault, ReportsEveryOtherFailureOfANonBlockingConnection)
{
    faults.calls["connect"] = ETIMEDOUT;
    EXPECT_EQ(log_lines([] { EXPECT_EQ(connect_there("9", O_NONBLOCK), -1); }),
              Lines{"ERROR: tester: connect: Connection timed out (110)"});
}

TEST_F(VnsockConnectFault, TriesOnlyTheFirstAddress)
{
    const Listener listener;
    faults.socket_calls = 0;
    TwoAddresses addresses;
    addresses.four().sin_port = htons(static_cast<uint16_t>(std::stoi(listener.port())));
    faults.missing_family = AF_INET6;
    EXPECT_EQ(log_lines([] { EXPECT_EQ(connect_there("9"), -1); }),
              Lines{"ERROR: tester: socket: Address family not supported by protocol (97)"});
    EXPECT_EQ(faults.socket_calls, 1);
}

TEST_F(VnsockConnectFault, SetsTheSendBufferFirst)
{
    const Listener listener;
    faults.options_set.clear();
    close(connect_there(listener.port(), 0, 4096));
    EXPECT_EQ(faults.options_set, (std::vector<int>{SO_SNDBUF, SO_RCVBUF}));
}

TEST_F(VnsockConnectFault, LeavesTheReceiveBufferWhenTheSendBufferFails)
{
    faults.options[SO_SNDBUF] = ENOBUFS;
    EXPECT_EQ(connect_there("9", 0, 4096), -1);
    EXPECT_EQ(faults.options_set, (std::vector<int>{SO_SNDBUF}));
}

// The request is that of the 32-bit system, whatever the size of the host's own record.
TEST_F(VnsockBindIfaceFault, HandsTheKernelAZeroedRecordOf32Bytes)
{
    (void)vnsock_bind_iface(-1, "eth0");
    EXPECT_EQ(faults.interface_request, "eth0" + std::string(28, '\0'));
    (void)vnsock_bind_iface(-1, "abcdefghijklmnopqrst");
    EXPECT_EQ(faults.interface_request, "abcdefghijklmno" + std::string(17, '\0'));
}

// An address file with any content, in the place of sysfs'.
class AddressFile {
public:
    explicit AddressFile(const char *content)
    {
        const int fd = mkstemp(path_);
        EXPECT_EQ(write(fd, content, strlen(content)), static_cast<ssize_t>(strlen(content)));
        close(fd);
        faults.address_file = path_;
    }
    ~AddressFile()
    {
        unlink(path_);
        faults.address_file.clear();
    }

private:
    char path_[32] = "/tmp/vnlib-mac-XXXXXX";
};

TEST_F(VnGetmacFault, ReadsTheInterfacesAddressFile)
{
    const AddressFile file("00:1a:2b:3c:4d:5e\n");
    unsigned char mac[6] = {};
    EXPECT_EQ(vn_getmac("eth7", mac), 0);
    const unsigned char expected[] = {0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    EXPECT_EQ(memcmp(mac, expected, sizeof mac), 0);
    EXPECT_EQ(faults.opened, "/sys/class/net/eth7/address r");
    EXPECT_EQ(vn_getmac64("eth7"), 0x001a2b3c4d5eu);
}

TEST_F(VnGetmacFault, ReadsAsManyFormsAsTheSystemsScanner)
{
    for (const char *const text :
         {"0:1a:2b:3c:4d:5E", " 00:1A:2B:3C:4D:5e:77", "00: 1a:2b:3c:4d:5e"}) {
        const AddressFile file(text);
        EXPECT_EQ(vn_getmac64("eth7"), 0x001a2b3c4d5eu) << text;
    }
}

TEST_F(VnGetmacFault, KeepsTheTopBytesOfALargeAddress)
{
    const AddressFile file("ff:ee:dd:cc:bb:aa\n");
    EXPECT_EQ(vn_getmac64("eth7"), 0xffeeddccbbaau);
}

TEST_F(VnGetmacFault, FailsForAnAddressThatIsNotSixPairs)
{
    for (const char *const text : {"", "\n", "00:1a:2b:3c:4d", "00:1a:2b:3c:4d:",
                                   "00-1a-2b-3c-4d-5e", "001a2b3c4d5e", "none"}) {
        const AddressFile file(text);
        unsigned char mac[6];
        EXPECT_EQ(vn_getmac("eth7", mac), -1) << text;
        EXPECT_EQ(vn_getmac64("eth7"), 0u) << text;
    }
}

TEST_F(VnGetmacFault, FailsWhenMemoryRunsOut)
{
    const AddressFile file("00:1a:2b:3c:4d:5e\n");
    unsigned char mac[6];
    const fault::FailAllocations plan(1);
    EXPECT_EQ(vn_getmac("eth7", mac), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(faults.opened, "");
}

} // namespace
