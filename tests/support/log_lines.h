// log_lines.h - what the library says through its log while a piece of code runs.
#pragma once

#include <functional>
#include <string>
#include <syslog.h>
#include <vector>

#include "support/capture.h"
#include "vnlib/log.h"

namespace test {

// The bodies of the time-stamped lines in `text` ("Nov 21 09:30:00 ERROR: body" CR LF), each with
// its level name in front: "ERROR: body". A line of another shape is kept whole.
inline std::vector<std::string> bodies_of_log(const std::string &text)
{
    constexpr size_t kTimeStamp = sizeof "Nov 21 09:30:00 " - 1;
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = text.find("\r\n", begin);
        if (end == std::string::npos) {
            lines.push_back(text.substr(begin));
            break;
        }
        const std::string line = text.substr(begin, end - begin);
        lines.push_back(line.size() > kTimeStamp ? line.substr(kTimeStamp) : line);
        begin = end + 2;
    }
    return lines;
}

// Runs `body` with logging up to `level` on standard error; returns the lines it logged.
inline std::vector<std::string> log_lines(const std::function<void()> &body, unsigned level = 7)
{
    return bodies_of_log(capture_fd(2, [&] {
        vn_log_init("vnlib-test", level, LOG_PERROR, LOG_USER, 0);
        body();
        vn_log_exit();
    }));
}

} // namespace test
