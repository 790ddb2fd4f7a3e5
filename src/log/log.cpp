// log.cpp - where a message goes.
//
//     __vn_log ----> live stream                     every message, whatever its level
//         |
//         +--> within the threshold? --> standard error    when LOG_PERROR was asked for
//                                    --> syslog
//
// The state is a handful of words that every logging call reads and takes no lock for; they are
// meant to be set before the threads of a program start and after they end.
// Not here: the dump (hex_dump.cpp), the reports with a system's error text (errors.cpp).
#include "vnlib/log.h"

#include <atomic>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <syslog.h>

#include "log/level.h"
#include "support/errno_guard.h"
#include "vnlib/tellog.h"

namespace vn::log {
namespace {

struct State {
    std::atomic<int> threshold = 0;
    std::atomic<int> options = 0;
    std::atomic<vn_tellog *> stream = nullptr;

    [[nodiscard]] bool echoes() const
    {
        return (options.load(std::memory_order_relaxed) & LOG_PERROR) != 0;
    }
};
constinit State state;

static_assert(LOG_PERROR == 0x20, "callers pass the bit as a number");

constexpr char kNames[][sizeof "LEVEL"] = {"EMERG", "ALERT", "CRITL", "ERROR", "WARNG",
                                           "NOTIC", "INFOR", "DEBUG", "TELNT"};

// The stream is locked so that the three pieces stay one line among threads. The time is UTC: the
// lines of appliances all over the world are compared with each other.
void echo(int level, const char *format, va_list args)
{
    const ErrnoGuard keep;
    const time_t now = time(nullptr);
    tm utc{};
    char when[32];
    if (gmtime_r(&now, &utc) == nullptr || strftime(when, sizeof when, "%b %d %T", &utc) == 0)
        when[0] = '\0';
    va_list copy;
    va_copy(copy, args);
    flockfile(stderr);
    fprintf(stderr, "%s %s: ", when, log_level(static_cast<unsigned>(level)));
    keep.restore();
    vfprintf(stderr, format, copy);
    fputs("\r\n", stderr); // for a serial console in raw mode
    fflush(stderr);
    funlockfile(stderr);
    va_end(copy);
}

// Apart from the question whether to write at all, which most calls answer with no.
[[gnu::noinline]] void write(int level, const char *format, va_list args)
{
    const ErrnoGuard keep;
    if (state.echoes()) echo(level, format, args);
    vsyslog(level, format, args);
}

} // namespace
} // namespace vn::log

using namespace vn::log;

extern "C" {

void vn_log_init(const char *ident, unsigned level, int options, int facility, unsigned tellog_port)
{
    vn_log_setlevel(level);
    state.options.store(options, std::memory_order_relaxed);
    state.stream.store(tellog_port == 0 ? nullptr : tellog_start(tellog_port),
                       std::memory_order_release);
    openlog(ident, options & ~LOG_PERROR, facility); // echoing is done here, with time and level
}

void vn_log_exit(void)
{
    tellog_finish(state.stream.exchange(nullptr, std::memory_order_acq_rel));
    closelog();
    vn_log_setlevel(0);
    state.options.store(0, std::memory_order_relaxed);
}

void vn_log_setlevel(unsigned level)
{
    state.threshold.store(static_cast<int>(level), std::memory_order_relaxed);
}

const char *log_level(unsigned level)
{
    return level < std::size(kNames) ? kNames[level] : "-----";
}

void __vn_log(int level, const char *format, ...)
{
    va_list args;
    if (vn_tellog *const stream = state.stream.load(std::memory_order_acquire)) {
        va_start(args, format);
        vn_vtellog(stream, level, format, args);
        va_end(args);
    }
    if (level == kTelnetOnly || level > state.threshold.load(std::memory_order_relaxed)) return;
    va_start(args, format);
    write(level, format, args);
    va_end(args);
}

// While messages are echoed, standard error carries whole lines with their times and nothing else.
int vn_logc(const char *format, ...)
{
    if (state.echoes()) return 0;
    const vn::ErrnoGuard keep;
    va_list args;
    va_start(args, format);
    vfprintf(stderr, format, args);
    va_end(args);
    return fflush(stderr);
}
}
