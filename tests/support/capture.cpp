#include "support/capture.h"

#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

bool ChildResult::exited_with(int code) const
{
    return WIFEXITED(status) && WEXITSTATUS(status) == (code & 0xFF);
}

namespace {

// Reads both pipes to their ends at once, so that neither can fill up and stop the child.
void drain(int out_fd, int err_fd, ChildResult &result)
{
    pollfd waiting[] = {{out_fd, POLLIN, 0}, {err_fd, POLLIN, 0}};
    std::string *const sinks[] = {&result.out, &result.err};
    while (waiting[0].fd >= 0 || waiting[1].fd >= 0) {
        if (poll(waiting, 2, -1) < 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (waiting[i].fd < 0 || waiting[i].revents == 0) continue;
            char piece[65536];
            const ssize_t got = read(waiting[i].fd, piece, sizeof piece);
            if (got > 0) {
                sinks[i]->append(piece, static_cast<size_t>(got));
            } else {
                close(waiting[i].fd);
                waiting[i].fd = -1;
            }
        }
    }
}

} // namespace

ChildResult run_in_child(const std::function<void()> &body, unsigned seconds)
{
    fflush(nullptr);
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) abort();
    const pid_t child = fork();
    if (child == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (const int fd : {out[0], out[1], err[0], err[1]}) close(fd);
        alarm(seconds);
        body();
        fflush(nullptr);
        _exit(0);
    }
    close(out[1]);
    close(err[1]);
    ChildResult result;
    drain(out[0], err[0], result);
    while (waitpid(child, &result.status, 0) < 0) {
    }
    return result;
}

std::string capture_fd(int fd, const std::function<void()> &body)
{
    fflush(nullptr);
    FILE *const file = tmpfile();
    const int saved = dup(fd);
    if (file == nullptr || saved < 0) abort();
    dup2(fileno(file), fd);
    body();
    fflush(nullptr);
    dup2(saved, fd);
    close(saved);
    std::string text;
    rewind(file);
    char piece[4096];
    while (const size_t got = fread(piece, 1, sizeof piece, file)) text.append(piece, got);
    fclose(file);
    return text;
}

} // namespace test
