// What the log asks of its neighbours, in which order, and what it does when they fail.
#include "vnlib/log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <netdb.h>
#include <syslog.h>

#include "support/capture.h"
#include "support/fault_alloc.h"
#include "vnlib/memcheck.h"
#include "vnlib/tellog.h"

extern "C" {
struct vn_tellog *__wrap_tellog_start(unsigned port);
int __wrap_tellog_finish(struct vn_tellog *sink);
void __wrap_vn_vtellog(struct vn_tellog *sink, int level, const char *format, va_list args);
tm *__real_gmtime_r(const time_t *now, tm *utc);
tm *__wrap_gmtime_r(const time_t *now, tm *utc);
void __wrap_openlog(const char *ident, int options, int facility);
void __wrap_closelog(void);
void __wrap_vsyslog(int priority, const char *format, va_list args);
void *__real_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
void __real_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site);
void *__wrap_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
void __wrap_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site);
}

namespace {

using Calls = std::vector<std::string>;
Calls calls;
char stream_place;
auto *const kStream = reinterpret_cast<vn_tellog *>(&stream_place);
vn_tellog *stream_to_start = kStream;
bool time_fails = false;

std::string formatted(const char *format, va_list args)
{
    char text[2048];
    vsnprintf(text, sizeof text, format, args);
    return text;
}

std::string name(const vn_tellog *stream)
{
    return stream == kStream ? "stream" : stream == nullptr ? "null" : "?";
}

Calls calls_of(void (*body)())
{
    calls.clear();
    body();
    return std::exchange(calls, {});
}

class LogFaults : public testing::Test {
protected:
    LogFaults() { stream_to_start = kStream; }
    ~LogFaults() override { vn_log_exit(); }
};

TEST_F(LogFaults, StartsTheStreamBeforeSyslogAndKeepsTheEchoToItself)
{
    EXPECT_EQ(
        calls_of([] { vn_log_init("me", 5, LOG_PID | LOG_PERROR | LOG_NDELAY, 24, 2323); }),
        (Calls{"tellog_start 2323", "openlog me " + std::to_string(LOG_PID | LOG_NDELAY) + " 24"}));
}

TEST_F(LogFaults, StartsNoStreamWithoutAPort)
{
    EXPECT_EQ(calls_of([] { vn_log_init("me", 5, 0, 8, 0); }), Calls{"openlog me 0 8"});
    EXPECT_EQ(calls_of([] { __vn_log(7, "x"); }), Calls{});
}

TEST_F(LogFaults, FinishesTheStreamBeforeSyslog)
{
    vn_log_init("me", 7, 0, 8, 2323);
    EXPECT_EQ(calls_of(vn_log_exit), (Calls{"tellog_finish stream", "closelog"}));
    EXPECT_EQ(calls_of(vn_log_exit), (Calls{"tellog_finish null", "closelog"}));
    EXPECT_EQ(calls_of([] { __vn_log(1, "x"); }), Calls{});
}

TEST_F(LogFaults, SetsThresholdAndOptionsBeforeTheStreamStarts)
{
    stream_to_start = nullptr;
    const std::string echoed = test::capture_fd(2, [] {
        vn_log_init("me", 7, LOG_PERROR, 8, 99); // port 99 logs from inside, see below
    });
    EXPECT_NE(echoed.find("DEBUG: starting\r\n"), std::string::npos);
}

TEST_F(LogFaults, GoesOnWithoutAStreamThatCouldNotBeStarted)
{
    stream_to_start = nullptr;
    vn_log_init("me", 7, 0, 8, 2323);
    EXPECT_EQ(calls_of([] { __vn_log(7, "x %d", 1); }), Calls{"vsyslog 7 x 1"});
}

TEST_F(LogFaults, DoesNotFinishTheStreamThatASecondStartReplaces)
{
    vn_log_init("me", 7, 0, 8, 2323);
    EXPECT_EQ(calls_of([] { vn_log_init("me", 7, 0, 8, 2324); }),
              (Calls{"tellog_start 2324", "openlog me 0 8"}));
    EXPECT_EQ(calls_of([] { vn_log_init("me", 7, 0, 8, 0); }), Calls{"openlog me 0 8"});
    EXPECT_EQ(calls_of([] { __vn_log(7, "x"); }), Calls{"vsyslog 7 x"});
}

TEST_F(LogFaults, FeedsTheStreamFirstAndWhateverTheThreshold)
{
    vn_log_init("me", 3, 0, 8, 2323);
    EXPECT_EQ(calls_of([] { __vn_log(3, "a %s", "b"); }),
              (Calls{"vn_vtellog stream 3 a b", "vsyslog 3 a b"}));
    EXPECT_EQ(calls_of([] { __vn_log(4, "x"); }), Calls{"vn_vtellog stream 4 x"});
    vn_log_setlevel(100);
    EXPECT_EQ(calls_of([] { __vn_log(8, "x"); }), Calls{"vn_vtellog stream 8 x"});
    EXPECT_EQ(calls_of([] { __vn_log(23, "x"); }),
              (Calls{"vn_vtellog stream 23 x", "vsyslog 23 x"}));
}

TEST_F(LogFaults, EchoesMessagesAlsoWhenTheTimeCannotBeTold)
{
    vn_log_init("me", 7, LOG_PERROR, 8, 0);
    time_fails = true;
    const std::string format = "%m%s"; // that of the caller, not of the clock
    EXPECT_EQ(test::capture_fd(2,
                               [&format] {
                                   errno = ENOENT;
                                   __vn_log(3, format.c_str(), "");
                               }),
              " ERROR: " + std::string(strerror(ENOENT)) + "\r\n");
    time_fails = false;
}

TEST_F(LogFaults, WalksTheArgumentsAnewForEachReceiver)
{
    vn_log_init("me", 7, LOG_PERROR, 8, 2323);
    const std::string echoed = test::capture_fd(2, [] {
        EXPECT_EQ(calls_of([] { __vn_log(3, "%s %d %.1f", "text", 42, 2.5); }),
                  (Calls{"vn_vtellog stream 3 text 42 2.5", "vsyslog 3 text 42 2.5"}));
    });
    EXPECT_EQ(echoed.substr(16), "ERROR: text 42 2.5\r\n");
}

TEST_F(LogFaults, KeepsDumpsAtTheSilentLevelFromTheStreamToo)
{
    vn_log_init("me", 100, 0, 8, 2323);
    EXPECT_EQ(calls_of([] {
                  const unsigned char bytes[] = {1, 2};
                  __vn_loghex_line(23, bytes, 2, 16, 0);
              }),
              Calls{});
}

TEST_F(LogFaults, ChargesTheTextOfAReportToAFixedSite)
{
    vn_log_init("me", 7, 0, 8, 0);
    EXPECT_EQ(calls_of([] {
                  errno = ENOENT;
                  vn_errno("abc");
              }),
              (Calls{"malloc 4 vn_verrno:188", "vsyslog 3 abc: No such file or directory (2)",
                     "free log:192"}));
    EXPECT_EQ(
        calls_of([] { vn_gaierror(-2, "abcd"); }),
        (Calls{"malloc 5 vn_verrno:188",
               std::string("vsyslog 3 abcd: ") + gai_strerror(-2) + " (-2)", "free log:192"}));
}

TEST_F(LogFaults, DropsAReportWithoutMemory)
{
    vn_log_init("me", 7, 0, 8, 2323);
    const fault::FailAllocations plan(1, 100);
    EXPECT_EQ(calls_of([] { vn_errno("abc"); }), Calls{"malloc 4 vn_verrno:188"});
    EXPECT_EQ(calls_of([] { vn_gaierror(-11, "abc"); }), Calls{"malloc 4 vn_verrno:188"});
}

TEST_F(LogFaults, CutsTheLinesOfAWideDumpWithoutMemory)
{
    vn_log_init("me", 7, 0, 8, 0);
    const std::vector<unsigned char> bytes(200, 'x');
    calls.clear();
    {
        const fault::FailAllocations plan(1);
        __vn_loghex_line(7, bytes.data(), bytes.size(), 200, 0);
        EXPECT_EQ(plan.failed(), 1u);
    }
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].substr(0, 20), "vsyslog 7 0000: 78 7");
    EXPECT_EQ(calls[1].size(), 10 + 255u);
}

} // namespace

struct vn_tellog *__wrap_tellog_start(unsigned port)
{
    calls.push_back("tellog_start " + std::to_string(port));
    if (port == 99) __vn_log(7, "starting");
    return stream_to_start;
}
int __wrap_tellog_finish(struct vn_tellog *sink)
{
    calls.push_back("tellog_finish " + name(sink));
    return 0;
}
void __wrap_vn_vtellog(struct vn_tellog *sink, int level, const char *format, va_list args)
{
    calls.push_back("vn_vtellog " + name(sink) + " " + std::to_string(level) + " " +
                    formatted(format, args));
}
void __wrap_openlog(const char *ident, int options, int facility)
{
    calls.push_back(std::string("openlog ") + ident + " " + std::to_string(options) + " " +
                    std::to_string(facility));
}
void __wrap_closelog(void)
{
    calls.push_back("closelog");
}
void __wrap_vsyslog(int priority, const char *format, va_list args)
{
    calls.push_back("vsyslog " + std::to_string(priority) + " " + formatted(format, args));
}
void *__wrap_vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line)
{
    calls.push_back("malloc " + std::to_string(size) + " " + site + ":" + std::to_string(line));
    return __real_vn_memcheck_malloc(alloc, size, site, line);
}
void __wrap_vn_memcheck_free(vn_free_fn release, void *ptr, const char *site)
{
    calls.push_back(std::string("free ") + site);
    __real_vn_memcheck_free(release, ptr, site);
}
tm *__wrap_gmtime_r(const time_t *now, tm *utc)
{
    if (!time_fails) return __real_gmtime_r(now, utc);
    errno = EOVERFLOW;
    return nullptr;
}
