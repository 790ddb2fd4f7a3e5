/*
 * remote_gui.h - TCP connections carried over a PDU transport
 *
 * Carries TCP connections to the appliance's management GUI over a link that is not TCP: a serial
 * line, a USB pipe, a vendor command. A session stands for one end of the link:
 *
 *     browser --TCP--> [local session] ==PDUs==> [remote session] --TCP--> 127.0.0.1:8008
 *
 * The module never touches the link. It hands every outgoing PDU to the session's send callback,
 * and the application feeds every PDU that arrives from the other end, whole, into rgui_data_rx.
 * PDUs of one connection must arrive in the order in which they were sent. docs/remote-gui.md has
 * the protocol, the life of a connection and an example of both ends.
 *
 * A PDU is 8 + size bytes, its fields little-endian:
 *
 *     offset 0  opcode, 8 bits: 1 Data, 2 Open Connection, 3 Close Connection
 *            1  reserved, 0
 *            2  connection ID, 16 bits
 *            4  size of the payload in bytes, 32 bits; 0 for Open and Close, at most 65536 as sent
 *            8  payload (Data only)
 *
 * Threads. A local session runs a listener thread, and each connection of either role a detached
 * receive thread. They are woken with SIGUSR1, for which the application should install a handler
 * without SA_RESTART; where it has not (the action is still the default, which would end the
 * process) no signal is sent, and stopping works all the same. All functions may be called from any
 * thread. No lock is held while the send callback runs, so it may call any of these functions.
 */
#ifndef VNLIB_REMOTE_GUI_H
#define VNLIB_REMOTE_GUI_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

struct rgui_session;

/*
 * Sends one PDU of `length` bytes to the other end. The PDU becomes the callback's property, made
 * with malloc: release it with free(). `ctx` is the pointer given at the start of the session.
 * Returns a negative value when the PDU could not be sent: the receive thread that offered it then
 * ends its connection without telling the other end.
 *
 * Called from the listener thread, from receive threads and from callers of rgui_data_rx, several
 * at a time. When no memory is left for a Close PDU at the end of a connection, the callback is
 * called with a null PDU and length 8, so that the application may act on it.
 */
typedef int (*rgui_send_fn)(unsigned char *pdu, size_t length, void *ctx);

/*
 * Starts the local end: listens on `node` (null: all IPv4 addresses) and `service` (a port or
 * service name), announces each client with an Open PDU and relays its bytes. Both texts are
 * copied. `reserved` is ignored.
 *
 * Returns the session, to be ended with rgui_stop_local, or null after logging why. The socket is
 * opened by the listener thread: an address that cannot be bound is logged, not returned.
 */
VN_API struct rgui_session *rgui_start_local(const char *node, const char *service,
                                             unsigned reserved, rgui_send_fn send, void *ctx);

/*
 * Starts the remote end: each Open PDU makes a TCP connection to 127.0.0.1, port 8008. Returns the
 * session, to be ended with rgui_stop_remote, or null when memory ran out.
 */
VN_API struct rgui_session *rgui_start_remote(rgui_send_fn send, void *ctx);

/*
 * Processes one PDU of `length` bytes, header included, from the other end. The PDU needs no
 * alignment and stays the caller's. Blocks while a Data PDU's payload is written to its connection.
 *
 * Returns 0 when the PDU was handled (or rightly ignored), and -1 for a malformed PDU (logged with
 * a dump), Data for a connection that does not exist, an Open PDU that failed (answered with a
 * Close PDU) or, in the local role, named no connection, and a session that is no more.
 */
VN_API int rgui_data_rx(struct rgui_session *session, const unsigned char *pdu, size_t length);

/*
 * Stops a session and gives it up; the pointer must not be used for anything but further stops or
 * PDUs, which are refused once the session is gone. Wakes every thread that is blocked in accept,
 * recv or send on the session's sockets. The listener thread has ended on return; receive threads
 * may still be about to send Close PDUs, so `ctx` must outlive them.
 */
VN_API void rgui_stop_local(struct rgui_session *session);
VN_API void rgui_stop_remote(struct rgui_session *session);

VN_END_DECLS

#endif
