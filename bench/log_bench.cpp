// Logging beside spdlog, GLib and the C library's syslog: messages that the threshold keeps back,
// and messages that go to the system's log. The latter need a /dev/log to be the daemon of; where
// neither a private /dev nor a free name is to be had, those rows are left out.
#include "bench.h"

#include <cstdio>
#include <string>
#include <syslog.h>

#include "support/private_dev.h"
#include "vnlib/log.h"

#ifdef VN_BENCH_GLIB
#include <glib.h>
#endif
#ifdef VN_BENCH_SPDLOG
#include <spdlog/sinks/syslog_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

constexpr char kIdent[] = "bench";
const std::string kNames[] = {std::string(16, 'n'), std::string(256, 'n')};

// Every peer is set up to let errors pass and to keep debug messages back. An error goes to the
// system's log.

struct Vnlib {
    static constexpr const char *kName = "vnlib";
    Vnlib() { vn_log_init(kIdent, LOG_ERR, 0, LOG_DAEMON, 0); }
    ~Vnlib() { vn_log_exit(); }
    Vnlib(const Vnlib &) = delete;
    Vnlib &operator=(const Vnlib &) = delete;
    void debug(const char *name, int number) { __vn_log(LOG_DEBUG, "%s: item %d", name, number); }
    void error(const char *name, int number) { __vn_log(LOG_ERR, "%s: item %d", name, number); }
};

struct Syslog {
    static constexpr const char *kName = "syslog";
    Syslog()
    {
        openlog(kIdent, 0, LOG_DAEMON);
        setlogmask(LOG_UPTO(LOG_ERR));
    }
    ~Syslog()
    {
        setlogmask(LOG_UPTO(LOG_DEBUG));
        closelog();
    }
    Syslog(const Syslog &) = delete;
    Syslog &operator=(const Syslog &) = delete;
    void debug(const char *name, int number) { syslog(LOG_DEBUG, "%s: item %d", name, number); }
    void error(const char *name, int number) { syslog(LOG_ERR, "%s: item %d", name, number); }
};

#ifdef VN_BENCH_SPDLOG
class Spdlog {
public:
    static constexpr const char *kName = "spdlog";
    Spdlog()
        : logger_(kIdent,
                  std::make_shared<spdlog::sinks::syslog_sink_mt>(kIdent, 0, LOG_DAEMON, false))
    {
        logger_.set_level(spdlog::level::err);
    }
    void debug(const char *name, int number) { logger_.debug("{}: item {}", name, number); }
    void error(const char *name, int number) { logger_.error("{}: item {}", name, number); }

private:
    spdlog::logger logger_;
};
#endif

#ifdef VN_BENCH_GLIB
struct Glib { // keeps debug messages back unless the environment asks for them
    static constexpr const char *kName = "glib";
    void debug(const char *name, int number)
    {
        g_log(kIdent, G_LOG_LEVEL_DEBUG, "%s: item %d", name, number);
    }
};
#endif

const test::SyslogSocket *daemon_socket = nullptr; // set when there is one

// What the daemon has got since it was last asked: the datagrams without their times.
std::string received()
{
    std::string texts;
    for (std::string text; (text = daemon_socket->receive()) != "<none>";)
        texts += text.erase(text.find('>') + 1, sizeof "Mmm dd hh:mm:ss " - 1) + "\n";
    return texts;
}

// --- rows --------------------------------------------------------------------------------------

template <typename Peer>
void filtered(benchmark::State &state)
{
    Peer peer;
    int number = 0;
    for (auto _ : state) peer.debug(kNames[0].c_str(), ++number);
}

constexpr int kBatch = 8; // what the daemon's socket holds

template <typename Peer>
void to_syslog(benchmark::State &state, const std::string &name)
{
    Peer peer;
    for (auto _ : state) {
        bench::time(state, [&] {
            for (int number = 0; number < kBatch; ++number) peer.error(name.c_str(), number);
        });
        received();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

template <typename Peer>
void add_filtered()
{
    benchmark::RegisterBenchmark(bench::row("filtered", Peer::kName, 1).c_str(), filtered<Peer>);
}

template <typename Peer>
void add_to_syslog(const std::string &name)
{
    const std::string row = bench::row("to_syslog", Peer::kName, name.size());
    benchmark::RegisterBenchmark(row.c_str(), to_syslog<Peer>, name)->UseManualTime();
}

void add_rows()
{
    add_filtered<Vnlib>();
    add_filtered<Syslog>();
#ifdef VN_BENCH_SPDLOG
    add_filtered<Spdlog>();
#endif
#ifdef VN_BENCH_GLIB
    add_filtered<Glib>();
#endif
    if (daemon_socket == nullptr) {
        fputs("no /dev/log to be had: the rows of to_syslog are left out\n", stderr);
        return;
    }
    for (const std::string &name : kNames) {
        add_to_syslog<Vnlib>(name);
        add_to_syslog<Syslog>(name);
#ifdef VN_BENCH_SPDLOG
        add_to_syslog<Spdlog>(name);
#endif
    }
}

// --- results -----------------------------------------------------------------------------------

template <typename Peer>
bool logs(const std::string &expected)
{
    Peer peer;
    peer.debug("no", 1);
    peer.error("yes", 2);
    return received() == expected;
}

bool peers_agree()
{
    if (daemon_socket == nullptr) return true;
    const std::string expected = "<27>bench: yes: item 2\n";
    static_assert((LOG_DAEMON | LOG_ERR) == 27);
    return logs<Vnlib>(expected) && logs<Syslog>(expected)
#ifdef VN_BENCH_SPDLOG
           && logs<Spdlog>(expected)
#endif
        ;
}

} // namespace

int main(int argc, char **argv)
{
    test::enter_private_dev(); // where that is not allowed, a machine without a log will do
    const test::SyslogSocket socket;
    if (socket.valid()) daemon_socket = &socket;
    add_rows();
    return bench::run(argc, argv, peers_agree);
}
