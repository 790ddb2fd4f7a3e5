#include "vnlib/log.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <netdb.h>
#include <numeric>
#include <sstream>
#include <sys/wait.h>
#include <syslog.h>
#include <thread>
#include <unistd.h>

#include "support/capture.h"
#include "support/private_dev.h"
#include "vnlib/memcheck.h"

namespace {

using test::capture_fd;
using test::ChildResult;
using test::run_in_child;

std::string printed(const std::function<void()> &body)
{
    return capture_fd(2, body);
}

// The messages echoed to standard error, each checked to be a whole line, without its time.
std::vector<std::string> echoed(const std::function<void()> &body)
{
    vn_log_init("log_test", 7, LOG_PERROR, LOG_USER, 0);
    std::string text = printed(body);
    vn_log_exit();
    std::vector<std::string> messages;
    while (!text.empty()) {
        const size_t end = text.find("\r\n");
        if (end == std::string::npos || end < 16) {
            ADD_FAILURE() << "not a line: " << text;
            break;
        }
        messages.push_back(text.substr(16, end - 16)); // "Jan 31 23:59:59 "
        text.erase(0, end + 2);
    }
    return messages;
}

std::string utc_now()
{
    const time_t now = time(nullptr);
    tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    strftime(text, sizeof text, "%b %d %T", &utc);
    return text;
}

using Lines = std::vector<std::string>;

// ---- levels -----------------------------------------------------------------------------------

TEST(LogLevel, NamesEachLevel)
{
    const char *const names[] = {"EMERG", "ALERT", "CRITL", "ERROR", "WARNG",
                                 "NOTIC", "INFOR", "DEBUG", "TELNT"};
    for (unsigned level = 0; level < 9; ++level) EXPECT_STREQ(log_level(level), names[level]);
    for (const unsigned level : {9u, 10u, 23u, 0x80000000u, static_cast<unsigned>(-1)})
        EXPECT_STREQ(log_level(level), "-----") << level;
    EXPECT_EQ(log_level(3), log_level(3));
}

// ---- standard error ---------------------------------------------------------------------------

TEST(LogEcho, WritesTimeLevelAndMessageAndCrLf)
{
    vn_log_init("log_test", 7, LOG_PERROR, LOG_USER, 0);
    const std::string before = utc_now();
    const std::string line = printed([] { __vn_log(3, "disk %d: %s", 4, "gone"); });
    const std::string after = utc_now();
    vn_log_exit();
    EXPECT_TRUE(line == before + " ERROR: disk 4: gone\r\n" ||
                line == after + " ERROR: disk 4: gone\r\n")
        << line;
}

TEST(LogEcho, GivesTheTimeInUtcWhateverTheTimeZone)
{
    setenv("TZ", "XYZ-5", 1);
    tzset();
    vn_log_init("log_test", 7, LOG_PERROR, LOG_USER, 0);
    const std::string before = utc_now();
    const std::string line = printed([] { __vn_log(3, "x"); });
    const std::string after = utc_now();
    vn_log_exit();
    unsetenv("TZ");
    tzset();
    EXPECT_TRUE(line.substr(0, 15) == before || line.substr(0, 15) == after) << line;
}

TEST(LogEcho, WritesEveryLevelUpToTheThreshold)
{
    for (unsigned threshold = 0; threshold < 8; ++threshold) {
        Lines expected;
        for (unsigned level = 0; level <= threshold; ++level)
            expected.push_back(std::string(log_level(level)) + ": m");
        EXPECT_EQ(echoed([threshold] {
                      vn_log_setlevel(threshold);
                      for (int level = 0; level < 9; ++level) __vn_log(level, "m");
                  }),
                  expected);
    }
}

TEST(LogEcho, NeverWritesMessagesForTheStreamAlone)
{
    EXPECT_EQ(echoed([] {
                  vn_log_setlevel(100);
                  __vn_log(8, "stream only");
                  __vn_log(9, "unknown level");
              }),
              Lines{"-----: unknown level"});
}

TEST(LogEcho, ComparesLevelsWithTheirSign)
{
    EXPECT_EQ(echoed([] {
                  vn_log_setlevel(0);
                  __vn_log(-1, "below zero");
                  vn_log_setlevel(static_cast<unsigned>(-1));
                  __vn_log(0, "above the threshold");
              }),
              Lines{"-----: below zero"});
}

TEST(LogEcho, DoesNotCutLongMessages)
{
    const std::string text(100000, 'x');
    EXPECT_EQ(echoed([&text] { __vn_log(3, "%s", text.c_str()); }), Lines{"ERROR: " + text});
}

TEST(LogEcho, IsOffUnlessAskedFor)
{
    EXPECT_EQ(printed([] { __vn_log(0, "before the start"); }), "");
    vn_log_init("log_test", 7, LOG_PID, LOG_USER, 0);
    EXPECT_EQ(printed([] { __vn_log(0, "without LOG_PERROR"); }), "");
    vn_log_exit();
    vn_log_init("log_test", 7, LOG_PERROR, LOG_USER, 0);
    vn_log_exit();
    EXPECT_EQ(printed([] { __vn_log(0, "after the end"); }), "");
}

TEST(LogEcho, PrintsTheErrnoOfTheCallAndLeavesItAlone)
{
    const std::string format = "%m%s";
    EXPECT_EQ(echoed([&format] {
                  errno = ENOENT;
                  __vn_log(3, format.c_str(), "");
                  EXPECT_EQ(errno, ENOENT);
              }),
              Lines{std::string("ERROR: ") + strerror(ENOENT)});
}

TEST(LogEcho, KeepsTheLinesOfManyThreadsWhole)
{
    constexpr int kThreads = 4, kMessages = 200;
    const Lines lines = echoed([] {
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.emplace_back([t] {
                for (int i = 0; i < kMessages; ++i) __vn_log(3, "%d.%d", t, i);
            });
        for (std::thread &thread : threads) thread.join();
    });
    EXPECT_EQ(lines.size(), size_t{kThreads * kMessages});
    int next[kThreads] = {};
    for (const std::string &line : lines) {
        int thread = -1, message = -1;
        ASSERT_EQ(sscanf(line.c_str(), "ERROR: %d.%d", &thread, &message), 2) << line;
        ASSERT_EQ(message, next[thread]++);
    }
}

// A program may give its standard error a buffer.
void buffer_standard_error()
{
    static char buffer[4096];
    setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
}

TEST(LogEcho, FlushesStandardError)
{
    const ChildResult child = run_in_child([] {
        buffer_standard_error();
        vn_log_init("log_test", 7, LOG_PERROR, LOG_USER, 0);
        __vn_log(3, "now");
        _exit(0);
    });
    EXPECT_TRUE(child.err.ends_with("ERROR: now\r\n")) << child.err;
}

TEST(VnLogc, FlushesStandardErrorAndReturnsTheResult)
{
    const ChildResult child = run_in_child([] {
        buffer_standard_error();
        if (vn_logc("now") != 0) _exit(1);
        dup2(open("/dev/full", O_WRONLY), 2);
        _exit(vn_logc("lost") == EOF ? 0 : 2);
    });
    EXPECT_TRUE(child.exited_with(0)) << child.status;
    EXPECT_EQ(child.err, "now");
}

TEST(VnLogc, WritesBareTextWhenMessagesAreNotEchoed)
{
    EXPECT_EQ(printed([] { EXPECT_EQ(vn_logc("loading %d%%", 50), 0); }), "loading 50%");
    vn_log_init("log_test", 0, LOG_PID, LOG_USER, 0);
    EXPECT_EQ(printed([] { EXPECT_EQ(vn_logc("..."), 0); }), "...");
    vn_log_exit();
}

TEST(VnLogc, IsSilentWhenMessagesAreEchoed)
{
    EXPECT_EQ(echoed([] { vn_logc("not this"); }), Lines{});
}

TEST(VnLogc, LeavesErrnoAlone)
{
    const std::string format = "%m%s";
    errno = EACCES;
    EXPECT_EQ(printed([&format] {
                  errno = EACCES;
                  vn_logc(format.c_str(), "");
                  EXPECT_EQ(errno, EACCES);
              }),
              strerror(EACCES));
}

// ---- error reports ----------------------------------------------------------------------------

TEST(VnErrno, AppendsTextAndNumberOfErrno)
{
    EXPECT_EQ(echoed([] {
                  errno = ECONNREFUSED;
                  vn_errno("%s: connect to %s", "main", "10.0.0.1");
                  EXPECT_EQ(errno, ECONNREFUSED);
              }),
              Lines{"ERROR: main: connect to 10.0.0.1: " + std::string(strerror(ECONNREFUSED)) +
                    " (" + std::to_string(ECONNREFUSED) + ")"});
}

TEST(VnErrno, ReportsUnknownNumbersToo)
{
    EXPECT_EQ(echoed([] {
                  errno = 12345;
                  vn_errno("x");
              }),
              Lines{"ERROR: x: " + std::string(strerror(12345)) + " (12345)"});
}

TEST(VnErrno, IsAnErrorAndObeysTheThreshold)
{
    EXPECT_EQ(echoed([] {
                  vn_log_setlevel(2);
                  vn_errno("hidden");
                  vn_log_setlevel(3);
                  errno = 0;
                  vn_errno("shown");
              }),
              Lines{"ERROR: shown: " + std::string(strerror(0)) + " (0)"});
}

TEST(VnErrno, DoesNotTakeTheMessageForAFormat)
{
    EXPECT_EQ(echoed([] {
                  errno = EPERM;
                  vn_errno("%s", "100%s");
              }),
              Lines{"ERROR: 100%s: " + std::string(strerror(EPERM)) + " (1)"});
}

TEST(VnErrno, LeavesNothingBehindUnderTheMemoryDebugger)
{
    const ChildResult result = run_in_child([] {
        vn_memcheck_start();
        vn_errno("open");
        vn_gaierror(-2, "look up");
        vn_memcheck_stop();
    });
    EXPECT_TRUE(result.exited_with(0)) << result.out;
    EXPECT_EQ(result.out.find("vn_verrno"), std::string::npos) << result.out;
}

TEST(VnGaierror, AppendsTheResolversTextAndItsCode)
{
    EXPECT_EQ(echoed([] {
                  errno = EINVAL;
                  vn_gaierror(-2, "%s: getaddrinfo", "main");
                  EXPECT_EQ(errno, EINVAL);
              }),
              Lines{"ERROR: main: getaddrinfo: " + std::string(gai_strerror(-2)) + " (-2)"});
}

TEST(VnGaierror, ReportsErrnoForASystemError)
{
    EXPECT_EQ(
        echoed([] {
            errno = ENOMEM;
            vn_gaierror(-11, "x");
        }),
        Lines{"ERROR: x: " + std::string(strerror(ENOMEM)) + " (" + std::to_string(ENOMEM) + ")"});
}

// ---- dumps ------------------------------------------------------------------------------------

std::vector<unsigned char> counting(size_t length, unsigned char first = 0)
{
    std::vector<unsigned char> bytes(length);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

Lines dump(const std::vector<unsigned char> &bytes, unsigned width, bool flip = false,
           int level = 6)
{
    Lines lines =
        echoed([&] { __vn_loghex_line(level, bytes.data(), bytes.size(), width, flip ? 1 : 0); });
    for (std::string &line : lines) {
        EXPECT_EQ(line.substr(0, 7), std::string(log_level(static_cast<unsigned>(level))) + ": ");
        line.erase(0, 7);
    }
    return lines;
}

const char kHeading[] = "**Hex Dump******"
                        "****************************************";
const char kFlippedHeading[] = "**Endian Flipped"
                               "****************************************";

TEST(HexDump, PrintsOffsetHexAndCharacters)
{
    EXPECT_EQ(dump(counting(16, 'A'), 16),
              (Lines{kHeading,
                     "0000: 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  ABCDEFGH IJKLMNOP"}));
}

TEST(HexDump, PrintsBytesThatCannotBePrintedAsDots)
{
    EXPECT_EQ(dump({0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xFF, 0x00, '%'}, 8),
              (Lines{kHeading, "0000: 1f 20 7e 7f 80 ff 00 25  . ~....% "}));
}

TEST(HexDump, FillsUpAShortLine)
{
    EXPECT_EQ(dump(counting(10, '0'), 16),
              (Lines{kHeading, "0000: 30 31 32 33 34 35 36 37 38 39 " + std::string(6 * 3, ' ') +
                                   " 01234567 89"}));
}

TEST(HexDump, PrintsOnlyTheHeadingForNoBytes)
{
    EXPECT_EQ(dump({}, 16), Lines{kHeading});
    EXPECT_EQ(dump({}, 16, true), Lines{kFlippedHeading});
    EXPECT_EQ(echoed([] { __vn_loghex_line(3, nullptr, 4, 16, 0); }),
              Lines{std::string("ERROR: ") + kHeading});
}

TEST(HexDump, EndsWhenTheBytesOfTheLineAndItsEndReachTheLength)
{
    struct {
        size_t length;
        unsigned width;
        size_t lines;
    } const cases[] = {{1, 16, 1},  {16, 16, 1}, {17, 16, 1}, {32, 16, 1},  {33, 16, 2},
                       {40, 16, 2}, {48, 16, 2}, {49, 16, 3}, {64, 16, 3},  {3, 1, 2},
                       {10, 1, 9},  {64, 8, 7},  {65, 8, 8},  {100, 7, 14}, {5, 1000, 1}};
    for (const auto &each : cases)
        EXPECT_EQ(dump(counting(each.length), each.width).size(), each.lines + 1)
            << each.length << " bytes, " << each.width << " a line";
}

TEST(HexDump, PrintsTheOffsetsOfItsLines)
{
    const Lines lines = dump(counting(40, 'a'), 16);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "0000: 61 62 63 64 65 66 67 68 69 6a 6b 6c 6d 6e 6f 70  abcdefgh ijklmnop");
    EXPECT_EQ(lines[2], "0010: 71 72 73 74 75 76 77 78 79 7a 7b 7c 7d 7e 7f 80  qrstuvwx yz{|}~..");
}

TEST(HexDump, WidensTheOffsetWhenItMust)
{
    const Lines lines = dump(std::vector<unsigned char>(0x10020, 'x'), 0x8000);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2].substr(0, 9), "8000: 78 ");
    EXPECT_EQ(lines[1].size(), 6 + 0x8000 * 3 + 1 + 0x8000 + 1u);
    EXPECT_EQ(dump(std::vector<unsigned char>(0x18000 + 1, 'x'), 0x8000).back().substr(0, 10),
              "10000: 78 ");
}

TEST(HexDump, ReversesTheBytesOfEachLineWhenFlipped)
{
    const Lines lines = dump(counting(40, 'a'), 16, true);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], kFlippedHeading);
    EXPECT_EQ(lines[1], "0000: 70 6f 6e 6d 6c 6b 6a 69 68 67 66 65 64 63 62 61  ponmlkji hgfedcba");
    EXPECT_EQ(lines[2], "0010: 80 7f 7e 7d 7c 7b 7a 79 78 77 76 75 74 73 72 71  ..~}|{zy xwvutsrq");
}

TEST(HexDump, LeavesTheMissingPositionsOfAFlippedLineBlank)
{
    EXPECT_EQ(dump(counting(3, 'a'), 5, true),
              (Lines{kFlippedHeading, "0000:       63 62 61  cba"}));
}

TEST(HexDump, TakesAnyFlagButZeroForFlipped)
{
    EXPECT_EQ(echoed([] {
                  const unsigned char bytes[] = {1, 2};
                  __vn_loghex_line(7, bytes, 2, 2, 0x80);
              }),
              (Lines{std::string("DEBUG: ") + kFlippedHeading, "DEBUG: 0000: 02 01  .."}));
}

TEST(HexDump, PrintsOneOffsetForAWidthOfNothing)
{
    EXPECT_EQ(dump(counting(40), 0), (Lines{kHeading, "0000:  "}));
}

TEST(HexDump, SurvivesAnAbsurdWidth)
{
    for (const unsigned width : {60u, 1000000u, UINT32_MAX}) {
        const Lines lines = dump(counting(3, 'a'), width);
        ASSERT_EQ(lines.size(), 2u) << width;
        EXPECT_EQ(lines[1].substr(0, 15), "0000: 61 62 63 ") << width;
        EXPECT_LE(lines[1].size(), size_t{1} << 20) << width;
    }
}

TEST(HexDump, PrintsNothingAtTheSilentLevelAlone)
{
    EXPECT_EQ(echoed([] {
                  vn_log_setlevel(100);
                  const unsigned char bytes[] = {1, 2};
                  __vn_loghex_line(23, bytes, 2, 0, 0);
                  __vn_loghex_line(22, bytes, 0, 0, 0);
                  __vn_loghex_line(24, bytes, 0, 0, 0);
              }),
              (Lines{std::string("-----: ") + kHeading, std::string("-----: ") + kHeading}));
}

// ---- syslog -----------------------------------------------------------------------------------

// What the library sends to the system's log, one datagram a line.
ChildResult with_syslog_socket(const std::function<void(const test::SyslogSocket &)> &body)
{
    return run_in_child([&body] {
        test::enter_private_dev(); // where it is not allowed, a machine without a log will do
        const test::SyslogSocket socket;
        if (!socket.valid()) {
            puts("<no syslog>");
            return;
        }
        body(socket);
    });
}

// A datagram is "<priority>Mmm dd hh:mm:ss ident[pid]: message"; the time and pid are left out.
std::string without_time_and_pid(const std::string &datagram)
{
    const size_t time = datagram.find('>') + 1, pid = datagram.find('['), end = datagram.find(']');
    std::string text = datagram.substr(0, time) + datagram.substr(time + 16);
    if (pid != std::string::npos) text.erase(pid - 16, end - pid + 1);
    return text;
}

#define SKIP_WITHOUT_SYSLOG(result)                                                                \
    if ((result).out.find("<no syslog>") != std::string::npos)                                     \
    GTEST_SKIP() << "no namespace and no free /dev/log to be the syslog daemon in"

TEST(LogSyslog, GetsTheMessageWithLevelFacilityAndIdentity)
{
    const ChildResult result = with_syslog_socket([](const test::SyslogSocket &socket) {
        vn_log_init("stored", 7, LOG_PID, LOG_DAEMON, 0);
        for (int level = 0; level < 9; ++level) __vn_log(level, "level %d", level);
        for (int i = 0; i < 8; ++i) puts(without_time_and_pid(socket.receive()).c_str());
        puts(socket.receive().c_str());
        vn_log_exit();
    });
    SKIP_WITHOUT_SYSLOG(result);
    std::string expected;
    for (int level = 0; level < 8; ++level)
        expected += "<" + std::to_string(LOG_DAEMON | level) + ">stored: level " +
                    std::to_string(level) + "\n";
    EXPECT_EQ(result.out, expected + "<none>\n");
}

TEST(LogSyslog, GetsOnlyEmergenciesBeforeTheStartAndAfterTheEnd)
{
    const ChildResult result = with_syslog_socket([](const test::SyslogSocket &socket) {
        const auto log_two = [&socket] {
            __vn_log(1, "alert");
            __vn_log(0, "emergency");
            const std::string first = socket.receive();
            printf("%s %s\n", first.substr(first.rfind(' ') + 1).c_str(), socket.receive().c_str());
        };
        log_two();
        vn_log_init("x", 7, 0, LOG_USER, 0);
        vn_log_exit();
        log_two();
    });
    SKIP_WITHOUT_SYSLOG(result);
    EXPECT_EQ(result.out, "emergency <none>\nemergency <none>\n");
}

TEST(LogSyslog, GetsTheMessageBesideTheEcho)
{
    const ChildResult result = with_syslog_socket([](const test::SyslogSocket &socket) {
        vn_log_init("both", 7, LOG_PERROR, LOG_USER, 0);
        errno = ENOENT;
        vn_errno("open");
        puts(without_time_and_pid(socket.receive()).c_str());
        vn_log_exit();
    });
    SKIP_WITHOUT_SYSLOG(result);
    const std::string message = "open: " + std::string(strerror(ENOENT)) + " (2)";
    EXPECT_EQ(result.out, "<11>both: " + message + "\n");
    EXPECT_EQ(result.err.substr(16), "ERROR: " + message + "\r\n"); // once: syslog echoes nothing
}

std::string contents(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

bool wait_until(const std::function<bool()> &condition)
{
    for (int tries = 0; tries < 500; ++tries) {
        if (condition()) return true;
        usleep(10000);
    }
    return false;
}

TEST(LogSyslog, ReachesARealDaemon)
{
    if (system("busybox syslogd --help >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "no busybox with a syslogd";
    char path[] = "/tmp/vnlib_log_test_XXXXXX";
    close(mkstemp(path));
    const ChildResult result = run_in_child([&path] {
        if (!test::enter_private_dev()) {
            puts("<no syslog>");
            return;
        }
        const pid_t daemon = fork();
        if (daemon == 0) {
            execlp("busybox", "busybox", "syslogd", "-n", "-O", path, nullptr);
            _exit(127);
        }
        wait_until([] { return access("/dev/log", F_OK) == 0; });
        vn_log_init("appliance", 6, LOG_PID, LOG_LOCAL3, 0);
        __vn_log(6, "volume %s mounted", "data");
        __vn_log(7, "not this");
        __vn_log(4, "%s", std::string(500, 'x').c_str());
        vn_log_exit();
        wait_until([&path] { return contents(path).find("xxx\n") != std::string::npos; });
        kill(daemon, SIGTERM);
        waitpid(daemon, nullptr, 0);
        printf("[%d]", getpid());
    });
    const std::string log = contents(path);
    unlink(path);
    SKIP_WITHOUT_SYSLOG(result);
    EXPECT_NE(log.find("local3.info appliance" + result.out + ": volume data mounted\n"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("local3.warn appliance" + result.out + ": " + std::string(500, 'x') + "\n"),
              std::string::npos)
        << log;
    EXPECT_EQ(log.find("not this"), std::string::npos) << log;
}

} // namespace
