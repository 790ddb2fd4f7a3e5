// capture.h - runs code in a child process, or with a stream diverted, and keeps what it wrote.
#pragma once

#include <functional>
#include <string>

namespace test {

struct ChildResult {
    int status = 0;  // as waitpid gives it
    std::string out; // everything the child wrote to descriptor 1
    std::string err; // everything the child wrote to descriptor 2
    [[nodiscard]] bool exited_with(int code) const;
};

// Forks; the child runs `body` with descriptors 1 and 2 captured and then leaves with _exit(0)
// after flushing stdio. The child is killed after `seconds`.
ChildResult run_in_child(const std::function<void()> &body, unsigned seconds = 20);

// Runs `body` in this process with `fd` (1 or 2) diverted; returns what was written to it.
std::string capture_fd(int fd, const std::function<void()> &body);

} // namespace test
