// checked_child.h - a child process whose failed expectations fail the test in the parent.
#pragma once

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>

#include "support/capture.h"

namespace test {

constexpr int kChildFailed = 99;

// Runs `body`, expectations and all, in a child that then leaves through exit(0), so that leak
// checkers and coverage counters have their turn. Fails the calling test unless the child leaves
// so.
inline ChildResult checked_child(const std::function<void()> &body)
{
    ChildResult result = run_in_child([&] {
        body();
        exit(::testing::Test::HasFailure() ? kChildFailed : 0);
    });
    EXPECT_TRUE(result.exited_with(0)) << "status " << result.status << "\n"
                                       << result.out << result.err;
    return result;
}

} // namespace test
