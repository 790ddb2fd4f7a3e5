// private_dev.h - a /dev of a child process's own, in which a test can be the syslog daemon.
#pragma once

#include <string>

namespace test {

// Gives the calling process (a child made for the test) an empty /dev that nobody else sees.
// Returns false where the system does not allow it.
bool enter_private_dev();

// The datagram socket that syslog writes to.
class SyslogSocket {
public:
    SyslogSocket();
    ~SyslogSocket();
    SyslogSocket(const SyslogSocket &) = delete;
    SyslogSocket &operator=(const SyslogSocket &) = delete;

    [[nodiscard]] bool valid() const { return fd_ >= 0; }
    std::string receive() const; // the next datagram, or "<none>" when there is none

private:
    int fd_;
};

} // namespace test
