// tellog.cpp - the live log stream: a TCP server that sends each log line to whoever is connected.
//
//     server thread:  accept --> list of clients <-- a logging thread sends to each, under the lock
//
// Invariant: lines go out under the lock, so that each client gets them whole and all clients in
//            the same order. A client that does not read holds up the threads that log, as long as
//            the stream runs; finishing it wakes them.
// Beware:    a logging thread may have picked up the stream just before it is finished. So its
//            record is never given back to the C library, but kept for the next stream.
// Not here:  levels and thresholds (log.cpp). The stream never logs: it would feed itself.
#include "vnlib/tellog.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <new>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include "support/bytes.h"
#include "support/errno_guard.h"
#include "support/fd.h"
#include "support/mutex.h"
#include "support/not_cancelled.h"
#include "support/quiet_thread.h"
#include "vnlib/log.h"

namespace vn::tellog {
namespace {

constexpr int kBacklog = 2;

struct Client {
    Client *next;
    int fd;
};

// What is sent for one message, in three parts: time, level name, message.
struct Line {
    iovec parts[3];

    Line(std::string_view time, std::string_view level, std::string_view message)
        : parts{part(time), part(level), part(message)}
    {
    }
    [[nodiscard]] bool sent() const
    {
        return std::all_of(std::begin(parts), std::end(parts),
                           [](const iovec &part) { return part.iov_len == 0; });
    }
    void take_off(size_t count)
    {
        for (iovec &part : parts) {
            const size_t taken = std::min(count, part.iov_len);
            part.iov_base = static_cast<char *>(part.iov_base) + taken;
            part.iov_len -= taken;
            count -= taken;
        }
    }

private:
    static iovec part(std::string_view text)
    {
        return {const_cast<char *>(text.data()), text.size()};
    }
};

// ": ", the text of the message cut to what fits, and a line feed.
class Message {
public:
    VN_PRINTF(2, 0) Message(const char *format, va_list args)
    {
        text_[0] = ':';
        text_[1] = ' ';
        const int length = vsnprintf(text_ + 2, kLimit, format, args);
        length_ = 2 + static_cast<size_t>(std::clamp(length, 0, kLimit - 1));
        text_[length_++] = '\n';
    }
    [[nodiscard]] std::string_view text() const { return {text_, length_}; }

private:
    static constexpr int kLimit = 1022; // with the NUL: clients see at most 1021 characters
    size_t length_;
    char text_[1024];
};

// The local time in the form of ctime, with a blank in place of its line feed. Kept for the second
// and the time zone that it is good for: finding out the local time costs more than sending a line.
class Clock {
public:
    std::string_view text()
    {
        const time_t now = time(nullptr);
        const std::string_view zone = current_zone();
        if (now != shown_ || zone != std::string_view(zone_, zone_length_)) read(now, zone);
        return {text_, length_};
    }

private:
    // What TZ says; a program may change it at any time.
    static std::string_view current_zone()
    {
        const char *const zone = getenv("TZ");
        return zone != nullptr ? zone : "/etc/localtime";
    }
    void read(time_t now, std::string_view zone)
    {
        shown_ = zone.size() <= sizeof zone_ ? now : kNever;
        zone_length_ = std::min(zone.size(), sizeof zone_);
        memcpy(zone_, zone.data(), zone_length_);
        length_ = 0;
#ifdef __GLIBC__
        tzset(); // as ctime does, and its reentrant form does not
#endif
        if (ctime_r(&now, text_) == nullptr) return;
        length_ = strlen(text_);
        text_[length_ - 1] = ' ';
    }

    static constexpr time_t kNever = -1;

    time_t shown_ = kNever;
    size_t length_ = 0;
    size_t zone_length_ = 0;
    char text_[32] = {};
    char zone_[64];
};

// SO_REUSEADDR, because the connections of a stream that has ended linger for a minute: whoever was
// watching a program that restarts can come back at once. A port that somebody listens on stays
// theirs.
int listen_on(unsigned port)
{
    Fd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{}; // of all interfaces
    static_assert(INADDR_ANY == 0);
    address.sin_family = AF_INET;
    bytes::store_big(reinterpret_cast<uint8_t *>(&address.sin_port), static_cast<uint16_t>(port));
    if (!fd.valid() ||
        ::bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(fd.get(), kBacklog) != 0)
        return -1;
    return fd.release();
}

} // namespace
} // namespace vn::tellog

using namespace vn::tellog;

struct vn_tellog {
public:
    // A stream without a port to listen on runs too: it just never has a client.
    bool start(unsigned port);
    bool finish();
    [[nodiscard]] bool is_watched() const
    {
        return client_count_.load(std::memory_order_acquire) != 0 &&
               running_.load(std::memory_order_relaxed);
    }
    void send(int level, std::string_view message) VN_EXCLUDES(mutex_);

    vn_tellog *next_spare = nullptr;

private:
    static void *serve(void *self);
    void accept_clients();
    bool add_client(int fd) VN_EXCLUDES(mutex_);
    void drop(Client **link) VN_REQUIRES(mutex_);
    bool deliver(int fd, Line line) const;
    [[nodiscard]] bool wait_for_room(int fd) const;

    std::atomic<bool> running_ = false;
    std::atomic<unsigned> client_count_ = 0;
    vn::Mutex mutex_;
    Client *clients_ VN_GUARDED_BY(mutex_) = nullptr;
    Clock clock_ VN_GUARDED_BY(mutex_);
    int listener_ = -1;
    pthread_t server_{};
};

bool vn_tellog::start(unsigned port)
{
    listener_ = listen_on(port);
    running_ = true;
    if (vn::create_quiet_thread(&server_, serve, this) == 0) return true;
    running_ = false;
    const vn::Fd closed(listener_);
    return false;
}

// The listening socket wakes everyone when it is shut down: the server thread in accept, and a
// thread that waits for a client to read. It is closed last, so that its number stays ours until
// then.
bool vn_tellog::finish()
{
    if (!running_.exchange(false)) return false;
    ::shutdown(listener_, SHUT_RDWR);
    pthread_join(server_, nullptr);
    {
        const vn::MutexLock hold(mutex_);
        while (clients_ != nullptr) drop(&clients_);
    }
    const vn::Fd closed(listener_);
    return true;
}

void *vn_tellog::serve(void *self)
{
    static_cast<vn_tellog *>(self)->accept_clients();
    return nullptr;
}

void vn_tellog::accept_clients()
{
    while (running_) {
        vn::Fd fd(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
        if (!fd.valid() || !add_client(fd.get())) return;
        fd.release();
    }
}

bool vn_tellog::add_client(int fd)
{
    auto *const client = static_cast<Client *>(malloc(sizeof(Client)));
    if (client == nullptr) return false;
    const vn::MutexLock hold(mutex_);
    *client = {clients_, fd};
    clients_ = client;
    client_count_.fetch_add(1, std::memory_order_release);
    return true;
}

void vn_tellog::drop(Client **link)
{
    Client *const client = *link;
    *link = client->next;
    client_count_.fetch_sub(1, std::memory_order_relaxed);
    const vn::Fd closed(client->fd);
    free(client);
}

void vn_tellog::send(int level, std::string_view message)
{
    const vn::MutexLock hold(mutex_);
    const Line line(clock_.text(), log_level(static_cast<unsigned>(level)), message);
    for (Client **link = &clients_; *link != nullptr;) {
        if (deliver((*link)->fd, line))
            link = &(*link)->next;
        else
            drop(link);
    }
}

// Not through sendmsg(): that may be where a thread is cancelled, which would keep the lock
// forever. Watching for it would also cost more than anything else here but the call itself.
bool vn_tellog::deliver(int fd, Line line) const
{
    msghdr message{};
    message.msg_iov = line.parts;
    message.msg_iovlen = std::size(line.parts);
    while (!line.sent()) {
        const ssize_t count = syscall(SYS_sendmsg, fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0)
            line.take_off(static_cast<size_t>(count));
        else if (errno != EINTR && (errno != EAGAIN || !wait_for_room(fd)))
            return false;
    }
    return true;
}

// Sleeps until the client has read something. Returns false when the stream is being finished.
bool vn_tellog::wait_for_room(int fd) const
{
    const vn::NotCancelled hold;
    pollfd waiting[] = {{fd, POLLOUT, 0}, {listener_, 0, 0}};
    while (::poll(waiting, std::size(waiting), -1) < 0)
        if (errno != EINTR) return false;
    return waiting[1].revents == 0;
}

namespace vn::tellog {
namespace {

// Records of finished streams.
class Spares {
public:
    vn_tellog *take() VN_EXCLUDES(mutex_)
    {
        const MutexLock hold(mutex_);
        vn_tellog *const record = first_;
        if (record != nullptr) first_ = record->next_spare;
        return record;
    }
    void put(vn_tellog *record) VN_EXCLUDES(mutex_)
    {
        const MutexLock hold(mutex_);
        record->next_spare = first_;
        first_ = record;
    }

private:
    Mutex mutex_;
    vn_tellog *first_ VN_GUARDED_BY(mutex_) = nullptr;
};
constinit Spares spares;

vn_tellog *new_record()
{
    if (vn_tellog *const spare = spares.take()) return spare;
    void *const memory = malloc(sizeof(vn_tellog));
    return memory == nullptr ? nullptr : new (memory) vn_tellog;
}

// Apart from the question whether anybody watches, which each logging call pays for.
[[gnu::noinline]] VN_PRINTF(3, 0) void publish(vn_tellog &sink, int level, const char *format,
                                               va_list args)
{
    const ErrnoGuard keep;
    const Message message(format, args);
    sink.send(level, message.text());
}

} // namespace
} // namespace vn::tellog

extern "C" {

struct vn_tellog *tellog_start(unsigned port)
{
    vn_tellog *const sink = new_record();
    if (sink == nullptr || sink->start(port)) return sink;
    spares.put(sink);
    return nullptr;
}

int tellog_finish(struct vn_tellog *sink)
{
    if (sink == nullptr || !sink->finish()) return -1;
    spares.put(sink);
    return 0;
}

void vn_vtellog(struct vn_tellog *sink, int level, const char *format, va_list args)
{
    if (sink != nullptr && sink->is_watched()) publish(*sink, level, format, args);
}
}
