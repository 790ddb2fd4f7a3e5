#define _GNU_SOURCE
#include "printed.h"

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

/* The line behind the time "Jan 01 00:00:00 ", where it ends as lines of the log do. */
static void check_line(const char *printed, const char *expected)
{
    char line[256];
    const size_t time_length = 16;
    const char *end = strstr(printed, "\r\n");
    CHECK(end != NULL && end[2] == '\0' && end > printed + time_length);
    if (end == NULL || end <= printed + time_length) return;
    sprintf(line, "%.*s", (int)(end - printed - (int)time_length), printed + time_length);
    CHECK_TEXT(line, expected);
}

static void log_bare(void)
{
    vn_logc("a bare %s\n", "line");
}

static void log_message(void)
{
    __vn_log(3, "message %d: %s", 1, "text");
}

static void log_above_threshold(void)
{
    __vn_log(7, "not shown");
}

static void log_errno(void)
{
    errno = ENOENT;
    vn_errno("open %s", "x");
    CHECK(errno == ENOENT);
}

static void log_gaierror(void)
{
    vn_gaierror(EAI_NONAME, "resolve %s", "y");
}

static void log_system_error(void)
{
    errno = ENOENT;
    vn_gaierror(-11, "resolve %s", "z");
}

static const unsigned char bytes[20] = "0123456789abcdefXYZ";

static void dump(void)
{
    __vn_loghex_line(3, bytes, 16, 16, 0);
}

static void dump_silently(void)
{
    __vn_loghex_line(23, bytes, sizeof bytes, 16, 1);
}

static void check_dump(const char *printed)
{
    char heading[128] = "";
    const char *second = strstr(printed, "\r\n");
    CHECK(second != NULL);
    if (second == NULL) return;
    sprintf(heading, "%.*s", (int)(second + 2 - printed), printed);
    check_line(heading, "ERROR: **Hex Dump******"
                        "****************************************");
    check_line(second + 2, "ERROR: 0000: 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66 "
                           " 01234567 89abcdef");
}

int main(void)
{
    char expected[128];
    struct vn_tellog *sink = NULL;

    CHECK_TEXT(log_level(0), "EMERG");
    CHECK_TEXT(log_level(8), "TELNT");
    CHECK_TEXT(log_level(9), "-----");
    CHECK_TEXT(log_level((unsigned)-1), "-----");
    CHECK_TEXT(printed_on(2, log_bare), "a bare line\n");
    CHECK_TEXT(printed_on(2, log_message), "");

    vn_log_init("abi", 6, 0x20, LOG_USER, 0);
    CHECK_TEXT(printed_on(2, log_bare), "");
    check_line(printed_on(2, log_message), "ERROR: message 1: text");
    CHECK_TEXT(printed_on(2, log_above_threshold), "");
    sprintf(expected, "ERROR: open x: %s (%d)", strerror(ENOENT), ENOENT);
    check_line(printed_on(2, log_errno), expected);
    sprintf(expected, "ERROR: resolve y: %s (-2)", gai_strerror(EAI_NONAME));
    check_line(printed_on(2, log_gaierror), expected);
    sprintf(expected, "ERROR: resolve z: %s (%d)", strerror(ENOENT), ENOENT);
    check_line(printed_on(2, log_system_error), expected);
    check_dump(printed_on(2, dump));
    CHECK_TEXT(printed_on(2, dump_silently), "");
    vn_log_setlevel(0);
    CHECK_TEXT(printed_on(2, log_message), "");
    vn_log_exit();

    CHECK(tellog_finish(NULL) == -1);
    sink = tellog_start(21023);
    CHECK(sink != NULL);
    feed(sink, "nobody listens to %d", 1);
    CHECK(tellog_finish(sink) == 0);
    return report("log");
}
