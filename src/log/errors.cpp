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

// The text of an error number, safe to ask for in several threads at once. strerror_r comes in two
// kinds, one that returns the text and one that fills the buffer; an overload for each picks it.
class ErrorText {
public:
    explicit ErrorText(int error)
    {
        const ErrnoGuard keep;
        text_ = pick(strerror_r(error, buffer_, sizeof buffer_));
    }
    [[nodiscard]] const char *get() const { return text_; }

private:
    [[maybe_unused]] static const char *pick(const char *text) { return text; }
    [[maybe_unused]] const char *pick(int) { return buffer_; }

    const char *text_;
    char buffer_[128] = "";
};

// The site and the line of release are what the memory debugger shows for these texts.
void report(const char *format, va_list args, const char *reason, int code)
{
    char *text = nullptr;
    if (__vn_vasprintf(&text, "vn_verrno", 188, format, args) < 0) return;
    __vn_log(kError, "%s: %s (%d)", text, reason, code);
    vn_memcheck_free(vn_free, text, "log:192");
}

} // namespace
} // namespace vn::log

using namespace vn::log;

extern "C" {

void vn_errno(const char *format, ...)
{
    const vn::ErrnoGuard keep;
    const int error = errno;
    const ErrorText reason(error);
    va_list args;
    va_start(args, format);
    report(format, args, reason.get(), error);
    va_end(args);
}

void vn_gaierror(int code, const char *format, ...)
{
    const vn::ErrnoGuard keep;
    const int error = errno;
    const ErrorText reason(error);
    va_list args;
    va_start(args, format);
    if (code == kSystemError)
        report(format, args, reason.get(), error);
    else
        report(format, args, gai_strerror(code), code);
    va_end(args);
}
}
