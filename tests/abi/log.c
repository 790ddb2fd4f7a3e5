#include "check.h"

#include <netdb.h>
#include <stdarg.h>
#include <syslog.h>

static void feed(struct vn_tellog *sink, const char *format, ...) VN_PRINTF(2, 3);
static void feed(struct vn_tellog *sink, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    vn_vtellog(sink, 3, format, args);
    va_end(args);
}

int main(void)
{
    const unsigned char bytes[20] = "0123456789abcdefXYZ";
    struct vn_tellog *sink = NULL;

    CHECK_TEXT(log_level(0), "EMERG");
    CHECK_TEXT(log_level(8), "TELNT");
    CHECK_TEXT(log_level(9), "-----");
    CHECK_TEXT(log_level((unsigned)-1), "-----");
    vn_logc("a bare line\n");
    vn_log_init("abi", 7, 0x20, LOG_USER, 0);
    errno = ENOENT;
    __vn_log(3, "message %d", 1);
    vn_errno("open %s", "x");
    vn_gaierror(-2, "resolve %s", "y");
    CHECK(errno == ENOENT);
    __vn_loghex_line(3, bytes, sizeof bytes, 16, 0);
    __vn_loghex_line(23, bytes, sizeof bytes, 16, 1);
    vn_log_setlevel(0);
    __vn_log(3, "not shown");
    vn_log_exit();

    CHECK(tellog_finish(NULL) == -1);
    sink = tellog_start(21023);
    CHECK(sink != NULL);
    feed(sink, "nobody listens to %d", 1);
    CHECK(tellog_finish(sink) == 0);
    return report("log");
}
