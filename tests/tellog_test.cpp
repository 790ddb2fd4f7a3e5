#include "vnlib/tellog.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <memory>
#include <poll.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/loopback.h"
#include "vnlib/log.h"

namespace {

using test::free_port;
using test::loopback;

void send_line(vn_tellog *sink, int level, const char *format, ...) VN_PRINTF(3, 4);
void send_line(vn_tellog *sink, int level, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vn_vtellog(sink, level, format, args);
    va_end(args);
}

constexpr char kProbe[] = "probe";

class Client {
public:
    explicit Client(unsigned port, int receive_buffer = 0) : fd_(socket(AF_INET, SOCK_STREAM, 0))
    {
        if (receive_buffer != 0)
            setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
        const sockaddr_in address = loopback(port);
        connected_ =
            connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    ~Client() { leave(); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    [[nodiscard]] bool connected() const { return connected_; }
    void leave()
    {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }

    // The next line without its line feed, probes left out; "<end>" when the stream has ended,
    // "<nothing>" when none comes.
    std::string line(int patience_ms = 5000)
    {
        for (;;) {
            const std::string next = any_line(patience_ms);
            if (next.find(kProbe) == std::string::npos) return next;
        }
    }
    // The message of the next line: what is behind the time.
    std::string message() { return without_time(line()); }

    void stop_typing() { shutdown(fd_, SHUT_WR); }
    void type(const std::string &text) { EXPECT_GT(send(fd_, text.data(), text.size(), 0), 0); }

    bool waits_for_probe() { return any_line(5).find(kProbe) == std::string::npos; }

    static std::string without_time(const std::string &line)
    {
        return line.size() > 25 ? line.substr(25) : line;
    }

private:
    std::string any_line(int patience_ms)
    {
        size_t end;
        while ((end = text_.find('\n')) == std::string::npos) {
            pollfd waiting{fd_, POLLIN, 0};
            if (poll(&waiting, 1, patience_ms) <= 0) return "<nothing>";
            char piece[4096];
            const ssize_t got = recv(fd_, piece, sizeof piece, 0);
            if (got <= 0) return "<end>";
            text_.append(piece, static_cast<size_t>(got));
        }
        const std::string line = text_.substr(0, end);
        text_.erase(0, end + 1);
        return line;
    }

    int fd_;
    bool connected_;
    std::string text_;
};

class Tellog : public testing::Test {
protected:
    Tellog() : port_(free_port()), sink_(tellog_start(port_)) { EXPECT_NE(sink_, nullptr); }
    ~Tellog() override { finish(); }

    void finish()
    {
        if (sink_ == nullptr) return;
        EXPECT_EQ(tellog_finish(sink_), 0);
        sink_ = nullptr;
    }

    // Connects and waits until the server thread has taken the client on.
    std::unique_ptr<Client> join(int receive_buffer = 0)
    {
        auto client = std::make_unique<Client>(port_, receive_buffer);
        EXPECT_TRUE(client->connected());
        int tries = 0;
        do send_line(sink_, 8, kProbe);
        while (client->waits_for_probe() && ++tries < 1000);
        EXPECT_LT(tries, 1000);
        return client;
    }

    const unsigned port_;
    vn_tellog *sink_;
};

std::string ctime_now()
{
    const time_t now = time(nullptr);
    return std::string(ctime(&now)).substr(0, 24);
}

// ---- lines ------------------------------------------------------------------------------------

TEST_F(Tellog, SendsLocalTimeLevelAndMessage)
{
    const auto client = join();
    const std::string before = ctime_now();
    send_line(sink_, 3, "disk %d: %s", 4, "gone");
    const std::string line = client->line();
    const std::string after = ctime_now();
    EXPECT_TRUE(line == before + " ERROR: disk 4: gone" || line == after + " ERROR: disk 4: gone")
        << line;
}

TEST_F(Tellog, GivesTheTimeOfTheTimeZoneOfTheMoment)
{
    const auto client = join();
    const std::string name = "<" + std::string(80, 'A') + ">";
    for (const std::string &zone :
         {std::string("XYZ-5"), std::string("XYZ-6"), name + "-9", name + "-10", std::string()}) {
        setenv("TZ", zone.c_str(), 1);
        const std::string before = ctime_now();
        send_line(sink_, 3, "x");
        const std::string line = client->line();
        const std::string after = ctime_now();
        EXPECT_TRUE(line == before + " ERROR: x" || line == after + " ERROR: x") << zone << line;
    }
    unsetenv("TZ");
    tzset();
}

TEST_F(Tellog, NamesEveryLevel)
{
    const auto client = join();
    for (const int level : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 23, -1}) {
        send_line(sink_, level, "m");
        EXPECT_EQ(client->message(), log_level(static_cast<unsigned>(level)) + std::string(": m"));
    }
}

TEST_F(Tellog, CutsMessagesAt1021Characters)
{
    const auto client = join();
    const size_t lengths[] = {0, 1, 1020, 1021, 1022, 1023, 1024, 2000, 100000};
    for (const size_t length : lengths) {
        const std::string text(length, 'x');
        send_line(sink_, 3, "%s", text.c_str());
        EXPECT_EQ(client->message(), "ERROR: " + text.substr(0, 1021)) << length;
    }
}

TEST_F(Tellog, SendsLineFeedsOfTheMessageAsTheyAre)
{
    const auto client = join();
    send_line(sink_, 3, "one\ntwo");
    EXPECT_EQ(client->message(), "ERROR: one");
    EXPECT_EQ(client->line(), "two");
}

TEST_F(Tellog, SendsAnEmptyTextForWhatCannotBeFormatted)
{
    const auto client = join();
    const wchar_t no_character[] = {0x7FFF'FFFF, 0};
    send_line(sink_, 3, "%ls", no_character);
    EXPECT_EQ(client->message().substr(0, 7), "ERROR: ");
}

TEST_F(Tellog, LeavesErrnoAloneAndPrintsIt)
{
    const auto client = join();
    const std::string format = "%m%s";
    errno = ENOENT;
    send_line(sink_, 3, format.c_str(), "");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(client->message(), std::string("ERROR: ") + strerror(ENOENT));
}

// ---- clients ----------------------------------------------------------------------------------

TEST_F(Tellog, TakesClientsAsSoonAsItHasStarted)
{
    EXPECT_TRUE(Client(port_).connected());
}

TEST_F(Tellog, SendsToEveryClient)
{
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 20; ++i) clients.push_back(join());
    for (int i = 0; i < 50; ++i) send_line(sink_, 6, "%d", i);
    for (const auto &client : clients)
        for (int i = 0; i < 50; ++i) ASSERT_EQ(client->message(), "INFOR: " + std::to_string(i));
}

TEST_F(Tellog, ShowsAClientOnlyWhatIsLoggedAfterItCame)
{
    send_line(sink_, 6, "before");
    const auto client = join();
    send_line(sink_, 6, "after");
    EXPECT_EQ(client->message(), "INFOR: after");
}

TEST_F(Tellog, GoesOnForTheOthersWhenAClientLeaves)
{
    const auto first = join(), second = join(), third = join();
    second->leave();
    for (int i = 0; i < 100; ++i) send_line(sink_, 6, "%d", i); // would raise SIGPIPE soon
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(first->message(), "INFOR: " + std::to_string(i));
        ASSERT_EQ(third->message(), "INFOR: " + std::to_string(i));
    }
}

size_t open_descriptors()
{
    size_t count = 0;
    DIR *const directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr) ++count;
    closedir(directory);
    return count;
}

TEST_F(Tellog, ClosesTheConnectionsOfClientsThatLeft)
{
    const size_t before = open_descriptors();
    for (int i = 0; i < 10; ++i) join();
    for (int i = 0; i < 1000 && open_descriptors() > before; ++i) {
        send_line(sink_, 6, "x");
        usleep(1000);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Tellog, DoesNotMindWhatAClientTypes)
{
    const auto client = join();
    client->type("quit\r\n");
    send_line(sink_, 6, "still here");
    EXPECT_EQ(client->message(), "INFOR: still here");
}

TEST_F(Tellog, KeepsAClientThatWillTypeNoMore)
{
    const auto client = join();
    client->stop_typing();
    for (int i = 0; i < 3; ++i) {
        usleep(10000);
        send_line(sink_, 6, "%d", i);
        EXPECT_EQ(client->message(), "INFOR: " + std::to_string(i));
    }
}

// A client with a small window that starts late and reads slowly.
TEST_F(Tellog, SendsWholeLinesInOrderToASlowClient)
{
    constexpr int kLines = 3000;
    const auto client = join(2048);
    std::thread logger([this] {
        const std::string filler(1000, 'x');
        for (int i = 0; i < kLines; ++i) send_line(sink_, 6, "%06d %s", i, filler.c_str());
    });
    usleep(50000);
    const std::string filler(1000, 'x');
    for (int i = 0; i < kLines; ++i) {
        char expected[2000];
        snprintf(expected, sizeof expected, "INFOR: %06d %s", i, filler.c_str());
        if (i % 500 == 0) usleep(2000);
        const std::string message = client->message();
        EXPECT_EQ(message, expected);
        if (message != expected) break;
    }
    logger.join();
}

TEST_F(Tellog, ShowsAllClientsTheLinesOfManyThreadsWholeAndInOneOrder)
{
    constexpr int kThreads = 4, kLines = 300;
    const auto first = join(), second = join();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([this, t] {
            for (int i = 0; i < kLines; ++i) send_line(sink_, 6, "%d.%d.", t, i);
        });
    int next[kThreads] = {};
    for (int i = 0; i < kThreads * kLines; ++i) {
        const std::string message = first->message();
        ASSERT_EQ(second->message(), message);
        int thread = -1, line = -1, length = 0;
        ASSERT_EQ(sscanf(message.c_str(), "INFOR: %d.%d.%n", &thread, &line, &length), 2);
        ASSERT_EQ(static_cast<size_t>(length), message.size());
        ASSERT_EQ(line, next[thread]++);
    }
    for (std::thread &thread : threads) thread.join();
}

TEST_F(Tellog, TakesClientsWhileThreadsLog)
{
    std::atomic<bool> stop = false;
    std::thread logger([this, &stop] {
        while (!stop) send_line(sink_, 6, "x");
    });
    for (int i = 0; i < 50; ++i) {
        Client client(port_);
        EXPECT_EQ(client.message(), "INFOR: x");
    }
    stop = true;
    logger.join();
}

TEST_F(Tellog, ServesTheTelnetClient)
{
    if (system("command -v telnet >/dev/null") != 0) GTEST_SKIP() << "no telnet program";
    int in[2], out[2];
    ASSERT_EQ(pipe(in) | pipe(out), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(in[0], 0);
        dup2(out[1], 1);
        for (const int fd : {in[0], in[1], out[0], out[1]}) close(fd);
        execlp("telnet", "telnet", "127.0.0.1", std::to_string(port_).c_str(), nullptr);
        _exit(127);
    }
    close(in[0]);
    close(out[1]);
    std::string text;
    for (int tries = 0; tries < 1000 && text.find("ERROR: to telnet") == std::string::npos;
         ++tries) {
        send_line(sink_, 3, "to telnet");
        pollfd waiting{out[0], POLLIN, 0};
        if (poll(&waiting, 1, 5) <= 0) continue;
        char piece[4096];
        const ssize_t got = read(out[0], piece, sizeof piece);
        if (got <= 0) break;
        text.append(piece, static_cast<size_t>(got));
    }
    close(in[1]);
    close(out[0]);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_NE(text.find("Connected to 127.0.0.1"), std::string::npos) << text;
    EXPECT_NE(text.find(" ERROR: to telnet"), std::string::npos) << text;
}

// ---- start and finish -------------------------------------------------------------------------

TEST(TellogFinish, RefusesNull)
{
    EXPECT_EQ(tellog_finish(nullptr), -1);
}

TEST(TellogFinish, HappensOnce)
{
    vn_tellog *const sink = tellog_start(free_port());
    EXPECT_EQ(tellog_finish(sink), 0);
    EXPECT_EQ(tellog_finish(sink), -1);
    send_line(sink, 3, "to nobody");
}

TEST_F(Tellog, IgnoresMessagesToNoStream)
{
    send_line(nullptr, 3, "x");
}

TEST_F(Tellog, DisconnectsItsClientsWhenItIsFinished)
{
    const auto first = join(), second = join();
    send_line(sink_, 6, "last");
    finish();
    EXPECT_EQ(first->message(), "INFOR: last");
    EXPECT_EQ(first->line(), "<end>");
    EXPECT_EQ(second->message(), "INFOR: last");
    EXPECT_EQ(second->line(), "<end>");
    EXPECT_FALSE(Client(port_).connected());
}

TEST_F(Tellog, IsFinishedAlsoWhenAClientDoesNotRead)
{
    const auto deaf = join(2048);
    std::atomic<int> sent = 0;
    std::thread logger([sink = sink_, &sent] {
        const std::string filler(1000, 'x');
        for (; sent < 100000; ++sent) send_line(sink, 6, "%s", filler.c_str());
    });
    for (int before = -1; before != sent; usleep(100000)) before = sent; // until it is stuck
    EXPECT_LT(sent, 100000);
    const auto start = std::chrono::steady_clock::now();
    finish();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    logger.join();
    EXPECT_EQ(sent, 100000);
}

TEST_F(Tellog, SurvivesAThreadThatIsCancelledWhileItLogs)
{
    const auto client = join();
    const auto body = [](void *sink) -> void * {
        pthread_cancel(pthread_self()); // takes effect wherever a thread may be cancelled
        send_line(static_cast<vn_tellog *>(sink), 6, "cancelled");
        pthread_testcancel();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, body, sink_), 0);
    void *result = nullptr;
    EXPECT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    send_line(sink_, 6, "going on");
    EXPECT_EQ(client->message(), "INFOR: cancelled");
    EXPECT_EQ(client->message(), "INFOR: going on");
}

TEST_F(Tellog, SurvivesAThreadThatIsCancelledWhileItWaitsForAClient)
{
    const auto deaf = join(2048);
    static std::atomic<int> sent;
    sent = 0;
    const auto body = [](void *sink) -> void * {
        const std::string filler(1000, 'x');
        for (;; ++sent) {
            send_line(static_cast<vn_tellog *>(sink), 6, "%s", filler.c_str());
            pthread_testcancel();
        }
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, body, sink_), 0);
    for (int before = -1; before != sent; usleep(100000)) before = sent; // until it is stuck
    pthread_cancel(thread);
    usleep(10000);
    while (pthread_tryjoin_np(thread, nullptr) != 0) deaf->line(10);
    send_line(sink_, 6, "going on");
    std::string last;
    do last = deaf->message();
    while (last != "<nothing>" && last != "INFOR: going on");
    EXPECT_EQ(last, "INFOR: going on");
}

TEST(TellogStart, RunsWithoutClientsWhenThePortIsTaken)
{
    const unsigned port = free_port();
    vn_tellog *const first = tellog_start(port);
    vn_tellog *const second = tellog_start(port);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    Client client(port);
    std::string line;
    while ((line = client.line(5)) == "<nothing>") {
        send_line(second, 3, "nobody hears this");
        send_line(first, 3, "first");
    }
    EXPECT_EQ(Client::without_time(line), "ERROR: first");
    EXPECT_EQ(tellog_finish(second), 0);
    EXPECT_EQ(tellog_finish(first), 0);
}

TEST_F(Tellog, CanBeWatchedAgainOnTheSamePortAtOnce)
{
    const auto first = join();
    finish(); // disconnects, so that the connection lingers on this side
    sink_ = tellog_start(port_);
    ASSERT_NE(sink_, nullptr);
    const auto second = join();
    send_line(sink_, 6, "back again");
    EXPECT_EQ(second->message(), "INFOR: back again");
}

TEST(TellogStart, LeavesNothingBehindOverManyRounds)
{
    const unsigned port = free_port();
    EXPECT_EQ(tellog_finish(tellog_start(port)), 0);
    const size_t before = open_descriptors();
    for (int round = 0; round < 300; ++round) {
        vn_tellog *const sink = tellog_start(port);
        ASSERT_NE(sink, nullptr);
        ASSERT_EQ(tellog_finish(sink), 0);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(TellogStart, TakesNoSignalsOfTheApplication)
{
    sigset_t user;
    sigemptyset(&user);
    sigaddset(&user, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &user, nullptr);
    vn_tellog *const sink = tellog_start(free_port());
    kill(getpid(), SIGUSR1); // would end the process if the server thread took it
    const timespec patience = {5, 0};
    EXPECT_EQ(sigtimedwait(&user, nullptr, &patience), SIGUSR1);
    sigset_t now;
    pthread_sigmask(SIG_SETMASK, nullptr, &now);
    EXPECT_EQ(sigismember(&now, SIGUSR2), 0); // and the caller's own mask is as it was
    pthread_sigmask(SIG_UNBLOCK, &user, nullptr);
    EXPECT_EQ(tellog_finish(sink), 0);
}

// ---- behind the log ---------------------------------------------------------------------------

TEST(TellogBehindTheLog, GetsEveryMessageWhateverTheThreshold)
{
    const unsigned port = free_port();
    vn_log_init("tellog_test", 0, 0, 8, port);
    Client client(port);
    ASSERT_TRUE(client.connected());
    do __vn_log(8, kProbe);
    while (client.waits_for_probe());
    __vn_log(7, "debug");
    __vn_log(8, "telnet only");
    errno = ENOENT;
    vn_errno("open");
    EXPECT_EQ(client.message(), "DEBUG: debug");
    EXPECT_EQ(client.message(), "TELNT: telnet only");
    EXPECT_EQ(client.message(), "ERROR: open: " + std::string(strerror(ENOENT)) + " (2)");
    vn_log_exit();
    EXPECT_EQ(client.line(), "<end>");
    __vn_log(7, "after the end");
}

TEST(TellogBehindTheLog, LogsOnWhenThePortIsTaken)
{
    const unsigned port = free_port();
    vn_tellog *const other = tellog_start(port);
    vn_log_init("tellog_test", 0, 0, 8, port);
    __vn_log(7, "x");
    vn_log_exit();
    EXPECT_EQ(tellog_finish(other), 0);
}

TEST(TellogBehindTheLog, SurvivesAThreadThatLogsWhileTheLogEnds)
{
    for (int round = 0; round < 20; ++round) {
        const unsigned port = free_port();
        vn_log_init("tellog_test", 0, 0, 8, port);
        Client client(port);
        std::atomic<bool> stop = false;
        std::vector<std::thread> loggers;
        for (int t = 0; t < 2; ++t)
            loggers.emplace_back([&stop] {
                while (!stop) __vn_log(7, "x");
            });
        EXPECT_EQ(client.message(), "DEBUG: x");
        vn_log_exit();
        stop = true;
        for (std::thread &logger : loggers) logger.join();
    }
}

} // namespace
