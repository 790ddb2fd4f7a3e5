/*
 * log.h - levelled logging to syslog, standard error and the live log stream
 *
 * A level is a priority of syslog, 0 (emergency) to 7 (debug), or one of the library's own: 8 for
 * messages to the live stream alone, and 23, at which a dump prints nothing at all.
 *
 * One message becomes
 *   - in the live stream (see tellog.h), whatever its level: local time, level name, message;
 *   - on standard error, when LOG_PERROR was asked for: "Jan 31 23:59:59 ERROR: message" and CR LF,
 *     the time being UTC;
 *   - in syslog: the message.
 * The last two happen only up to the threshold, and never for level 8. Before vn_log_init() the
 * threshold is 0 and nothing but syslog is written to.
 *
 * Messages may be logged from any thread. No call here reports a failure or changes errno, so that
 * it can be made on the way out of a failing function; "%m" prints the errno of the call.
 */
#ifndef VNLIB_LOG_H
#define VNLIB_LOG_H

#include <stdarg.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/*
 * Sets the threshold to `level` and the options, starts the live stream on TCP port `tellog_port`
 * unless that is 0, and opens syslog. `ident`, `options` and `facility` are those of openlog();
 * `ident` must stay in place until vn_log_exit(). LOG_PERROR among the options is not passed on: it
 * asks for the library's own lines on standard error. When the stream cannot be started, logging
 * goes on without it.
 *
 * Call this before the threads that log are started, and after the process has become a daemon: a
 * child of fork has no thread to serve the stream. Calling it again starts another stream; the
 * earlier one keeps running unless vn_log_exit() is called first.
 */
VN_API void vn_log_init(const char *ident, unsigned level, int options, int facility,
                        unsigned tellog_port);

/*
 * Ends the live stream, closes syslog, and puts the state back to what it was before the start. To
 * be called by the process that started the log, not by a child of fork, whose end of the stream
 * would be the parent's too.
 */
VN_API void vn_log_exit(void);

/* Sets the threshold: messages of a greater level go to the live stream only. */
VN_API void vn_log_setlevel(unsigned level);

/*
 * Returns the five letters that stand for a level: "EMERG", "ALERT", "CRITL", "ERROR", "WARNG",
 * "NOTIC", "INFOR", "DEBUG", "TELNT", and "-----" for any other. The text is constant.
 */
VN_API const char *log_level(unsigned level);

/* Logs a message; it needs no line feed at its end. */
VN_API void __vn_log(int level, const char *format, ...) VN_PRINTF(2, 3);

/*
 * Prints bare text on standard error, provided that messages are not echoed there (no LOG_PERROR).
 * Returns the result of flushing standard error: 0, or EOF when what it held could not be written.
 */
VN_API int vn_logc(const char *format, ...) VN_PRINTF(1, 2);

/*
 * Logs a heading and the `length` bytes at `data` in hex and as characters, `width` bytes a line;
 * with `flip` each line shows its bytes from the last position to the first. A dump of several
 * lines ends one line early: after the line at which its offset plus `width` plus the number of
 * bytes it shows reaches `length`. A `width` of 0 gives one line with an offset only; a line longer
 * than 1 MiB is cut. At level 23 nothing is logged, the live stream included.
 */
VN_API void __vn_loghex_line(int level, const unsigned char *data, size_t length, unsigned width,
                             unsigned char flip);

/*
 * Logs, as an error, the message followed by ": ", the system's text for errno, and its number in
 * parentheses. Without memory to format the message nothing is logged.
 */
VN_API void vn_errno(const char *format, ...) VN_PRINTF(1, 2);

/*
 * The same for `code`, a result of getaddrinfo() or getnameinfo(), with the resolver's text for it;
 * for EAI_SYSTEM (-11) with text and number of errno.
 */
VN_API void vn_gaierror(int code, const char *format, ...) VN_PRINTF(2, 3);

VN_END_DECLS

#endif
