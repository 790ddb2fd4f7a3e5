// errors.cpp - a caller's message followed by the system's or the resolver's own words.
#include <cerrno>
#include <cstring>
#include <netdb.h>

#include "log/level.h"
#include "support/errno_guard.h"
#include "vnlib/log.h"
#include "vnlib/memcheck.h"
#include "vnlib/vnstrings.h"

namespace vn::log {
namespace {

constexpr int kSystemError = -11; // EAI_SYSTEM, which not every header shows
#ifdef EAI_SYSTEM
static_assert(EAI_SYSTEM == kSystemError);
#endif

// strerror_r comes in two kinds, one that returns the text and one that fills the buffer; an
// overload for each picks the text.
[[maybe_unused]] const char *text_of(const char *text, const char *)
{
    return text;
}
[[maybe_unused]] const char *text_of(int, const char *buffer)
{
    return buffer;
}

// The site and the line of release are what the memory debugger shows for the caller's message.
void report(int code, const char *format, va_list args)
{
    const ErrnoGuard keep;
    const bool of_the_system = code == kSystemError;
    const int number = of_the_system ? errno : code;
    char buffer[128] = "";
    const char *const reason = of_the_system
                                   ? text_of(strerror_r(number, buffer, sizeof buffer), buffer)
                                   : gai_strerror(number);
    keep.restore(); // for a "%m" in the message
    char *text = nullptr;
    if (__vn_vasprintf(&text, "vn_verrno", 188, format, args) < 0) return;
    __vn_log(kError, "%s: %s (%d)", text, reason, number);
    vn_memcheck_free(vn_free, text, "log:192");
}

} // namespace
} // namespace vn::log

using namespace vn::log;

extern "C" {

void vn_errno(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    report(kSystemError, format, args);
    va_end(args);
}

void vn_gaierror(int code, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    report(code, format, args);
    va_end(args);
}
}
