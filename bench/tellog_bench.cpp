// The live log stream beside the least that could do its work: format a message and send it, with
// time and level, to each client in one call. A message that nobody watches is beside one that the
// threshold keeps back while there is no stream.
#include "bench.h"

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

#include "support/network.h"
#include "vnlib/log.h"

namespace {

constexpr int kBatch = 20; // lines, which the sockets hold

// A connection and how much of it has been read.
class Client {
public:
    explicit Client(uint16_t port) : fd_(test::connect_to_loopback(port)) {}
    ~Client() { close(fd_); }
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;
    std::string lines(size_t count) const
    {
        std::string text;
        for (size_t seen = 0; seen < count;) {
            char piece[65536];
            const ssize_t got = recv(fd_, piece, sizeof piece, 0);
            if (got <= 0) return "<end>";
            for (ssize_t i = 0; i < got; ++i) seen += piece[i] == '\n' ? 1 : 0;
            text.append(piece, static_cast<size_t>(got));
        }
        return text;
    }
    [[nodiscard]] bool has_text() const
    {
        char byte;
        return recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1;
    }

private:
    const int fd_;
};

using Clients = std::vector<std::unique_ptr<Client>>;

class Vnlib {
public:
    static constexpr const char *kName = "vnlib";
    explicit Vnlib(size_t count)
    {
        static uint16_t port = 20000;
        do ++port;
        while (!is_free(port));
        vn_log_init("bench", 0, 0, 0, port);
        for (size_t i = 0; i < count; ++i) {
            clients_.push_back(std::make_unique<Client>(port));
            // Until the stream has taken it on; slowly, as nobody reads what the others are sent.
            for (; !clients_.back()->has_text(); usleep(1000)) log(0);
        }
        log(-1);
        for (const auto &client : clients_)
            while (client->lines(1).find("item -1\n") == std::string::npos) {
            }
    }
    ~Vnlib() { vn_log_exit(); }
    Vnlib(const Vnlib &) = delete;
    Vnlib &operator=(const Vnlib &) = delete;
    static void log(int number) { __vn_log(7, "%s: item %d", "a message of some length", number); }
    [[nodiscard]] const Clients &clients() const { return clients_; }

private:
    static bool is_free(uint16_t port)
    {
        const int fd = test::listen_on_loopback(port);
        close(fd);
        return fd >= 0;
    }
    Clients clients_;
};

class Bare {
public:
    static constexpr const char *kName = "sendmsg";
    explicit Bare(size_t count)
    {
        const int listener = test::listen_on_loopback();
        for (size_t i = 0; i < count; ++i) {
            clients_.push_back(std::make_unique<Client>(test::port_of(listener)));
            fds_.push_back(accept(listener, nullptr, nullptr));
        }
        close(listener);
    }
    ~Bare()
    {
        for (const int fd : fds_) close(fd);
    }
    Bare(const Bare &) = delete;
    Bare &operator=(const Bare &) = delete;
    void log(int number) { send("%s: item %d", "a message of some length", number); }
    [[nodiscard]] const Clients &clients() const { return clients_; }

private:
    __attribute__((format(printf, 2, 3))) void send(const char *format, ...)
    {
        const time_t now = time(nullptr);
        if (now != shown_) {
            shown_ = now;
            ctime_r(&now, time_);
            time_[24] = ' ';
        }
        char text[1024] = {':', ' '};
        va_list args;
        va_start(args, format);
        const int length = vsnprintf(text + 2, sizeof text - 2, format, args);
        va_end(args);
        text[length + 2] = '\n';
        char level[] = "DEBUG";
        iovec parts[] = {{time_, 25}, {level, 5}, {text, static_cast<size_t>(length) + 3}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = std::size(parts);
        for (const int fd : fds_) sendmsg(fd, &message, MSG_NOSIGNAL);
    }
    Clients clients_;
    std::vector<int> fds_;
    time_t shown_ = 0;
    char time_[32];
};

// --- rows --------------------------------------------------------------------------------------

template <typename Peer>
void lines(benchmark::State &state, size_t clients)
{
    Peer peer(clients);
    for (auto _ : state) {
        bench::time(state, [&] {
            for (int number = 0; number < kBatch; ++number) peer.log(number);
        });
        for (const auto &client : peer.clients()) client->lines(kBatch);
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}

template <typename Peer>
void add_lines(size_t clients)
{
    const std::string row = bench::row("lines", Peer::kName, clients);
    benchmark::RegisterBenchmark(row.c_str(), lines<Peer>, clients)->UseManualTime();
}

void unwatched(benchmark::State &state)
{
    const Vnlib stream(0);
    for (auto _ : state) stream.log(1);
}

void filtered(benchmark::State &state)
{
    for (auto _ : state) Vnlib::log(1);
}

void add_rows()
{
    benchmark::RegisterBenchmark("unwatched/vnlib/0", unwatched);
    benchmark::RegisterBenchmark("unwatched/filtered/0", filtered);
    for (const size_t clients : {1u, 10u, 100u}) {
        add_lines<Vnlib>(clients);
        add_lines<Bare>(clients);
    }
}

// --- results -----------------------------------------------------------------------------------

template <typename Peer>
std::string line()
{
    Peer peer(2);
    peer.log(17);
    const std::string first = peer.clients()[0]->lines(1);
    return peer.clients()[1]->lines(1) == first ? first : "<differs>";
}

bool peers_agree()
{
    for (int tries = 0; tries < 3; ++tries) // the time may change in between
        if (line<Vnlib>() == line<Bare>()) return true;
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    add_rows();
    return bench::run(argc, argv, peers_agree);
}
