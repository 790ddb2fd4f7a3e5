// tracked.h - how the memory debugger sees what the library hands out.
#pragma once

#include <cstring>
#include <functional>
#include <string>
#include <unistd.h>

#include "support/capture.h"
#include "vnlib/memcheck.h"

namespace test {

// Where the block of a text is charged, and its size: "site LINE:line, Size:size". Runs `make` in a
// child with the debugger on, damages the byte behind the text, and reads the debugger's last
// words.
inline std::string charge_of(const std::function<char *()> &make)
{
    const ChildResult child = run_in_child([&] {
        vn_memcheck_start();
        char *const text = make();
        text[strlen(text) + 1] = 'x';
        for (;;) pause();
    });
    const size_t end = child.out.find(" PostMarker:");
    if (end == std::string::npos) return "no damage found";
    const size_t start = child.out.rfind("\033[K", end) + 3;
    return child.out.substr(start, end - start);
}

// How many tracked allocations `body` leaves behind.
inline int left_behind_by(const std::function<void()> &body)
{
    const ChildResult child = run_in_child([&] {
        vn_memcheck_start();
        body();
        vn_memcheck_stop();
    });
    static const std::string kLabel = "Total Allocations: ";
    const size_t last = child.out.rfind(kLabel);
    return last == std::string::npos ? 0 : std::stoi(child.out.substr(last + kLabel.size()));
}

} // namespace test
