// The Remote GUI's relay beside others that bring a client to a server behind another machine:
// socat twice over, ssh -L, and bytes that are moved within the kernel (splice). All ends are
// processes of their own on this machine, linked by a Unix socket of packets (vnlib) or by TCP, so
// that the times are real times: what counts is when the client has its answer. vnlib-no-link has
// both ends in one process. socat is as it comes; socat-64k moves as much at once as we do.
//
// A time is the fastest of the tries that fit into a tenth of a second: a try that shares its
// processors with somebody else's work says little. Sizes are bytes; of requests, bytes of the
// answer.
#include "bench.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <unistd.h>
#include <utility>
#include <vector>

#include "relays.h"

using relays::Order;
using relays::Way;

namespace {

constexpr size_t kRequest = 300; // bytes of a request
constexpr size_t kClients = 16;
constexpr size_t kLargest = 16 << 20;
constexpr int kFewestTries = 4;

const std::vector<Way> &ways()
{
    static const std::vector<Way> all = relays::start();
    return all;
}

// A connection for as long as it is in scope.
class Client {
public:
    explicit Client(const Way &way) : fd_(relays::connect_to(way.port)) {}
    Client(Client &&from) noexcept : fd_(std::exchange(from.fd_, -1)) {}
    ~Client() { close(fd_); }

    // In one go, as far as the socket takes it.
    bool ask(size_t upload, size_t download) const
    {
        static std::vector<unsigned char> bytes(sizeof(Order) + kLargest);
        const Order order{static_cast<uint32_t>(upload), static_cast<uint32_t>(download)};
        memcpy(bytes.data(), &order, sizeof order);
        return relays::write_all(fd_, bytes.data(), sizeof order + upload);
    }
    bool receive(size_t download) const { return relays::read_all(fd_, download); }

private:
    int fd_;
};

template <typename Step>
void repeat(benchmark::State &state, Step step)
{
    using Clock = std::chrono::steady_clock;
    const auto patience = std::chrono::milliseconds(bench::quick() ? 20 : 100);
    for (auto _ : state) {
        auto fastest = Clock::duration::max();
        const auto first = Clock::now();
        for (int i = 0; i < kFewestTries || Clock::now() - first < patience; ++i) {
            const auto begin = Clock::now();
            if (!step()) {
                state.SkipWithError("the connection broke");
                return;
            }
            fastest = std::min(fastest, Clock::now() - begin);
        }
        state.SetIterationTime(std::chrono::duration<double>(fastest).count());
    }
}

void download(benchmark::State &state, const Way &way, size_t size)
{
    const Client client(way);
    repeat(state, [&] { return client.ask(0, size) && client.receive(size); });
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

void upload(benchmark::State &state, const Way &way, size_t size)
{
    const Client client(way);
    repeat(state, [&] { return client.ask(size, 1) && client.receive(1); });
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
}

// One client that sends its next request when it has the answer.
void latency(benchmark::State &state, const Way &way, size_t size)
{
    const Client client(way);
    repeat(state, [&] { return client.ask(kRequest, size) && client.receive(size); });
}

// Many clients, each with a request under way.
void requests(benchmark::State &state, const Way &way, size_t size)
{
    std::vector<Client> clients;
    for (size_t i = 0; i < kClients; ++i) clients.emplace_back(way);
    repeat(state, [&] {
        bool good = true;
        for (const Client &client : clients) good = good && client.ask(kRequest, size);
        for (const Client &client : clients) good = good && client.receive(size);
        return good;
    });
    state.SetItemsProcessed(state.iterations() * int64_t{kClients});
}

void connects(benchmark::State &state, const Way &way, size_t size)
{
    repeat(state, [&] {
        const Client client(way);
        return client.ask(kRequest, size) && client.receive(size);
    });
}

struct Operation {
    const char *name;
    void (*run)(benchmark::State &, const Way &, size_t);
    size_t size;
};
constexpr Operation kOperations[] = {
    {"download", download, kLargest}, {"download", download, 1 << 16}, {"upload", upload, kLargest},
    {"upload", upload, 1 << 16},      {"latency", latency, 1000},      {"requests", requests, 1000},
    {"connects", connects, 1000},
};

} // namespace

int main(int argc, char **argv)
{
    for (const Way &way : ways()) {
        for (const Operation &operation : kOperations) {
            benchmark::RegisterBenchmark(
                bench::row(operation.name, way.who, operation.size).c_str(),
                [&](benchmark::State &state) { operation.run(state, way, operation.size); })
                ->UseManualTime()
                ->Iterations(1);
        }
    }
    return bench::run(argc, argv, [] { return !ways().empty(); });
}
