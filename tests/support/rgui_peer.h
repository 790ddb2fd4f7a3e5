// rgui_peer.h - what a Remote GUI session sends, kept for a test to look at.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/network.h"
#include "vnlib/remote_gui.h"

namespace test {

using Bytes = std::vector<unsigned char>;

constexpr uint16_t kGuiPort = 8008;
constexpr unsigned char kData = 1, kOpen = 2, kClose = 3;

inline Bytes make_pdu(unsigned char opcode, unsigned id, const std::string &payload = "")
{
    const size_t size = payload.size();
    Bytes pdu = {opcode, 0, static_cast<unsigned char>(id), static_cast<unsigned char>(id >> 8)};
    for (unsigned shift = 0; shift < 32; shift += 8)
        pdu.push_back(static_cast<unsigned char>(size >> shift));
    pdu.insert(pdu.end(), payload.begin(), payload.end());
    return pdu;
}

inline unsigned id_of(const Bytes &pdu)
{
    return static_cast<unsigned>(pdu[2] | pdu[3] << 8);
}

inline int feed(rgui_session *session, const Bytes &pdu)
{
    return rgui_data_rx(session, pdu.data(), pdu.size());
}

// Descriptors and threads of the process, to be no more in the end. Threads need a moment to
// vanish, whether detached or joined; one of an earlier test may have been counted at the start.
class Footprint {
public:
    bool returned()
    {
        return eventually(
            [&] { return open_descriptors() == descriptors_ && running_threads() <= threads_; });
    }

    [[nodiscard]] size_t threads() const { return threads_; }

private:
    size_t threads_ = running_threads();
    size_t descriptors_ = open_descriptors();
};

// The other end of the link, seen from one session: every PDU it sends, in order. Outlives the
// calls of the session's threads, whose end nobody else can wait for.
class Wire {
public:
    Wire() = default;
    ~Wire()
    {
        eventually([&] { return running_threads() <= at_start_.threads(); });
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait(guard, [&] { return calls_ == 0; }); // for the sanitizer: they have all ended
    }
    Wire(const Wire &) = delete;
    Wire &operator=(const Wire &) = delete;

    // Given to the session as its callback and context.
    static int send(unsigned char *pdu, size_t length, void *ctx)
    {
        Bytes bytes = pdu != nullptr ? Bytes(pdu, pdu + length) : Bytes(length, 0xFF);
        free(pdu);
        return static_cast<Wire *>(ctx)->take(std::move(bytes));
    }

    // Called on the sending thread with every PDU from now on, before next() can give it; its
    // result is the callback's.
    void on_send(std::function<int(const Bytes &)> hook)
    {
        const std::lock_guard<std::mutex> guard(mutex_);
        hook_ = std::move(hook);
    }

    // The next PDU, or nothing when none comes in time.
    Bytes next(std::chrono::milliseconds patience = std::chrono::seconds(10))
    {
        std::unique_lock<std::mutex> guard(mutex_);
        if (!changed_.wait_for(guard, patience, [&] { return !pdus_.empty(); })) return {};
        Bytes pdu = std::move(pdus_.front());
        pdus_.pop_front();
        return pdu;
    }
    // True when nothing is sent for a moment.
    bool silent() { return next(std::chrono::milliseconds(30)).empty(); }

private:
    int take(Bytes bytes)
    {
        std::unique_lock<std::mutex> guard(mutex_);
        ++calls_;
        int result = 0;
        if (hook_) {
            auto hook = std::make_unique<std::function<int(const Bytes &)>>(hook_);
            guard.unlock();
            result = (*hook)(bytes);
            hook.reset();
            guard.lock();
        }
        pdus_.push_back(std::move(bytes));
        --calls_;
        changed_.notify_all();
        return result;
    }

    const Footprint at_start_{};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Bytes> pdus_;
    std::function<int(const Bytes &)> hook_;
    int calls_ = 0;
};

// Connects as soon as somebody listens.
inline int connect_when_open(uint16_t port)
{
    int fd = -1;
    eventually([&] { return (fd = connect_to_loopback(port)) >= 0; });
    return fd;
}

inline bool is_refused(uint16_t port)
{
    const int fd = connect_to_loopback(port);
    if (fd >= 0) close(fd);
    return fd < 0;
}

inline bool write_all(int fd, const std::string &text)
{
    return send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

inline std::string read_exactly(int fd, size_t length)
{
    std::string text(length, '\0');
    const ssize_t got = recv(fd, text.data(), length, MSG_WAITALL);
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return text;
}

// Whether the peer has closed the connection, in order.
inline bool at_end(int fd)
{
    char byte;
    return recv(fd, &byte, 1, 0) == 0;
}

} // namespace test
