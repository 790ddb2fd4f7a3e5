/*
 * tellog.h - the live log stream over TCP
 *
 * Whoever connects to the stream's port, with telnet or any other TCP client, sees each message
 * from then on, for example
 *
 *     Sun Jan 31 23:59:59 2021 ERROR: cannot open the door
 *
 * that is: local time as ctime() writes it, a blank, the level name, ": ", the first 1021
 * characters of the message, and a line feed. Nothing is read from clients. Applications need not
 * call these functions: vn_log_init() starts a stream, logging feeds it and vn_log_exit() ends it.
 *
 * A client that no longer reads holds up the threads that log until it reads or goes away, or until
 * the stream is finished.
 */
#ifndef VNLIB_TELLOG_H
#define VNLIB_TELLOG_H

#include <stdarg.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

struct vn_tellog; /* a stream */

/*
 * Starts a stream on TCP port `port` of all IPv4 addresses, with a server thread of its own, in
 * which all signals are blocked. When this returns, clients can connect, also on the port of a
 * stream that has just ended. A port that cannot be had is no failure: the stream then has no
 * clients.
 *
 * Returns the stream, which tellog_finish() ends, or null when there is no memory or no thread.
 */
VN_API struct vn_tellog *tellog_start(unsigned port);

/*
 * Ends a stream: disconnects its clients, closes its port and waits for its thread. Returns 0, or
 * -1 for null. A thread that is sending meanwhile is woken, not waited for.
 */
VN_API int tellog_finish(struct vn_tellog *sink);

/*
 * Sends one message to every client of the stream; a client that cannot be sent to is disconnected.
 * Does nothing for null, and costs next to nothing while there is no client. May be called from any
 * thread; a client gets whole lines, and every client gets them in the same order.
 */
VN_API void vn_vtellog(struct vn_tellog *sink, int level, const char *format, va_list args)
    VN_PRINTF(3, 0);

VN_END_DECLS

#endif
