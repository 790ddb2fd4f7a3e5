// assertion.h - the library's assertions report and go on: firmware must not stop for a log line.
#pragma once

#include <cstddef>

#include "log/level.h"
#include "vnlib/log.h"

namespace vn::log {

// `file` and `line` are texts of the interface: fixed values that callers grep for.
inline void report_assertion(const char *expression, const char *file, size_t line)
{
    __vn_log(kError, "assert %s %s:%zu", expression, file, line);
}

} // namespace vn::log
