/*
 * remote_gui_tunnel.c - brings the appliance's management GUI to a browser over any stream of
 * bytes.
 *
 *     browser --TCP--> [tunnel local] ==Unix socket or serial line==> [tunnel remote] --TCP-->
 * :8008
 *
 * The library makes and takes PDUs; an application owns the link between the two ends. This one
 * shows what that takes:
 *
 *   - Framing. A stream has no message boundaries, so each PDU is preceded by a mark, and its own
 *     header tells where it ends. A reader that joins in the middle looks for the next mark.
 *   - Greeting. A serial line does not tell when the other end restarts. Each end says hello when
 * it opens the link and starts its session when the other end has been heard; a hello in the middle
 *     of a session ends all its connections and begins a new one.
 *   - Late callbacks. Receive threads may still send while and after a session is stopped. Each
 *     session's context is its number, and what comes from an earlier one is dropped.
 *
 * Limits: a PDU is written to its TCP connection before the next one is read, so one client that
 * does not read its answers holds up the others.
 */
#define _GNU_SOURCE /* cfmakeraw */
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <syslog.h>
#include <termios.h>
#include <unistd.h>

#include "vnlib.h"

enum { MARK_SIZE = 4, HEADER_SIZE = 8, LARGEST_PAYLOAD = 65536, BUFFER_SIZE = 512 * 1024 };
enum { OPCODE_GREETING = 0 }; /* not used by the Remote GUI: ours */
enum { GREETING_HELLO = 0, GREETING_ANSWER = 1 };

static const unsigned char kMark[MARK_SIZE] = {'R', 'G', 'U', 'I'};

struct options {
    bool local;
    bool once;
    unsigned log_level;
    const char *link;
    const char *address;
    const char *port;
};

/* The link as the send callbacks see it. */
static struct {
    pthread_mutex_t lock;
    int fd;            /* -1 while there is no link */
    uintptr_t session; /* the number of the present session */
} link_out = {PTHREAD_MUTEX_INITIALIZER, -1, 0};

/* ---- writing */

static bool write_pieces(int fd, struct iovec *piece, int count)
{
    while (count > 0) {
        ssize_t written = writev(fd, piece, count);
        if (written < 0 && errno == EINTR)
            continue; /* a session woke this thread: finish the PDU */
        if (written < 0) return false;
        while (count > 0 && (size_t)written >= piece->iov_len) {
            written -= (ssize_t)piece->iov_len;
            ++piece;
            --count;
        }
        if (count > 0) {
            piece->iov_base = (char *)piece->iov_base + written;
            piece->iov_len -= (size_t)written;
        }
    }
    return true;
}

static bool write_frame(int fd, const unsigned char *pdu, size_t length)
{
    struct iovec pieces[] = {{(void *)kMark, MARK_SIZE}, {(void *)pdu, length}};
    return write_pieces(fd, pieces, 2);
}

/* The session's callback: called by several threads, so frames are written one after another. */
static int send_pdu(unsigned char *pdu, size_t length, void *context)
{
    int result = -1;
    pthread_mutex_lock(&link_out.lock);
    if (pdu != NULL && link_out.fd >= 0 && link_out.session == (uintptr_t)context)
        result = write_frame(link_out.fd, pdu, length) ? 0 : -1;
    pthread_mutex_unlock(&link_out.lock);
    free(pdu);
    return result;
}

static void greet(unsigned char kind)
{
    const unsigned char greeting[HEADER_SIZE] = {OPCODE_GREETING, 0, kind};
    pthread_mutex_lock(&link_out.lock);
    (void)write_frame(link_out.fd, greeting,
                      sizeof greeting); /* a broken link shows when we read */
    pthread_mutex_unlock(&link_out.lock);
}

/* ---- sessions */

static struct rgui_session *session; /* main thread only; null until the other end has greeted */

static void start_session(const struct options *options)
{
    pthread_mutex_lock(&link_out.lock);
    void *const number = (void *)++link_out.session;
    pthread_mutex_unlock(&link_out.lock);
    session = options->local
                  ? rgui_start_local(options->address, options->port, 0, send_pdu, number)
                  : rgui_start_remote(send_pdu, number);
}

static void stop_session(const struct options *options)
{
    if (options->local)
        rgui_stop_local(session);
    else
        rgui_stop_remote(session);
    session = NULL;
}

static void take_greeting(const struct options *options, unsigned char kind)
{
    if (kind == GREETING_HELLO) { /* the other end has just started and knows no connection */
        stop_session(options);
        greet(GREETING_ANSWER);
    }
    if (session == NULL) start_session(options);
}

/* ---- reading */

static size_t payload_size(const unsigned char *pdu)
{
    return pdu[4] | (size_t)pdu[5] << 8 | (size_t)pdu[6] << 16 | (size_t)pdu[7] << 24;
}

/* Handles one frame. Returns its length, or 0 when more bytes are needed. */
static size_t take_frame(const struct options *options, const unsigned char *frame,
                         size_t available)
{
    if (available < MARK_SIZE + HEADER_SIZE) return 0;
    if (memcmp(frame, kMark, MARK_SIZE) != 0) return 1; /* noise: look one byte further */
    const unsigned char *const pdu = frame + MARK_SIZE;
    const size_t length = HEADER_SIZE + payload_size(pdu);
    if (length > HEADER_SIZE + LARGEST_PAYLOAD) return 1;
    if (available < MARK_SIZE + length) return 0;
    if (pdu[0] == OPCODE_GREETING)
        take_greeting(options, pdu[2]);
    else if (session != NULL)
        rgui_data_rx(session, pdu, length);
    return MARK_SIZE + length;
}

/* Until the other end is heard, says hello again now and then: it may not have been there before.
 */
static void call_other_end(int fd)
{
    enum { PATIENCE_MS = 2000 };
    struct pollfd readable = {fd, POLLIN, 0};
    while (poll(&readable, 1, PATIENCE_MS) == 0) greet(GREETING_HELLO);
}

/* Takes frames until the link ends. */
static void read_link(const struct options *options, int fd)
{
    static unsigned char buffer[BUFFER_SIZE];
    size_t filled = 0;
    for (;;) {
        if (session == NULL) call_other_end(fd);
        const ssize_t got = read(fd, buffer + filled, sizeof buffer - filled);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return;
        filled += (size_t)got;
        size_t taken = 0, frame;
        while ((frame = take_frame(options, buffer + taken, filled - taken)) != 0) taken += frame;
        memmove(buffer, buffer + taken, filled - taken);
        filled -= taken;
    }
}

static void set_link(int fd)
{
    pthread_mutex_lock(&link_out.lock);
    link_out.fd = fd;
    pthread_mutex_unlock(&link_out.lock);
}

static void run_link(const struct options *options, int fd)
{
    set_link(fd);
    greet(GREETING_HELLO);
    read_link(options, fd);
    __vn_log(LOG_NOTICE, "the link has ended");
    /* Nobody may wait for a link that takes nothing any more. */
    shutdown(fd, SHUT_RDWR);
    tcflush(fd, TCIOFLUSH);
    stop_session(options);
    set_link(-1);
    close(fd);
}

/* ---- opening the link */

static bool unix_address(struct sockaddr_un *address, const char *path)
{
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    const size_t size = strlen(path) + 1;
    if (size > sizeof address->sun_path) return false;
    memcpy(address->sun_path, path, size);
    return true;
}

static int connect_unix(const char *path)
{
    struct sockaddr_un address;
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd >= 0 && unix_address(&address, path) &&
        connect(fd, (const struct sockaddr *)&address, sizeof address) == 0)
        return fd;
    if (fd >= 0) close(fd);
    return -1;
}

static int listen_unix(const char *path)
{
    struct sockaddr_un address;
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    unlink(path);
    if (fd >= 0 && unix_address(&address, path) &&
        bind(fd, (const struct sockaddr *)&address, sizeof address) == 0 && listen(fd, 1) == 0)
        return fd;
    vn_errno("cannot listen on %s", path);
    exit(1);
}

static int accept_unix(const char *path)
{
    static int listener = -1;
    if (listener < 0) listener = listen_unix(path);
    return accept(listener, NULL, NULL);
}

/* The speed stays as stty has set it. */
static int open_serial(const char *device)
{
    struct termios line;
    const int fd = open(device, O_RDWR | O_NOCTTY);
    if (fd < 0) return -1;
    if (tcgetattr(fd, &line) == 0) {
        cfmakeraw(&line);
        line.c_cflag |= CLOCAL | CREAD;
        line.c_cc[VMIN] = 1;
        line.c_cc[VTIME] = 0;
        tcsetattr(fd, TCSANOW, &line);
    }
    return fd;
}

static const struct {
    const char *prefix;
    int (*open)(const char *name);
} kLinks[] = {{"unix:", connect_unix}, {"unix-listen:", accept_unix}, {"serial:", open_serial}};

/* The link's descriptor, or -1 while it cannot be opened. */
static int open_link(const char *text)
{
    for (size_t i = 0; i < sizeof kLinks / sizeof *kLinks; ++i) {
        const size_t length = strlen(kLinks[i].prefix);
        if (strncmp(text, kLinks[i].prefix, length) == 0) return kLinks[i].open(text + length);
    }
    return -1;
}

static bool is_link(const char *text)
{
    for (size_t i = 0; i < sizeof kLinks / sizeof *kLinks; ++i)
        if (strncmp(text, kLinks[i].prefix, strlen(kLinks[i].prefix)) == 0) return true;
    return false;
}

/* ---- the command line */

static const char kHelp[] =
    "Usage: remote_gui_tunnel local|remote LINK [OPTION...]\n"
    "\n"
    "Carries TCP connections between a browser and a management GUI over LINK.\n"
    "The local end listens for the browser; the remote end connects to 127.0.0.1:8008.\n"
    "\n"
    "LINK is one of\n"
    "  unix:PATH         connect to the Unix socket PATH, as often as it takes\n"
    "  unix-listen:PATH  make the Unix socket PATH and wait for the other end\n"
    "  serial:DEVICE     a serial line (or pseudo-terminal), used at its present speed\n"
    "\n"
    "  --address ADDRESS  local end: listen on ADDRESS (127.0.0.1)\n"
    "  --port PORT        local end: listen on PORT (8080)\n"
    "  --once             end with the link instead of waiting for the next\n"
    "  --quiet            log errors only\n"
    "  --help             show this text\n";

static void wake_up(int number)
{
    (void)number; /* arriving is all a wake-up has to do */
}

/* Fills in what the command line says; false when it makes no sense. */
static bool parse_options(int argc, char **argv, struct options *options)
{
    if (argc < 3 || !is_link(argv[2])) return false;
    options->local = strcmp(argv[1], "local") == 0;
    if (!options->local && strcmp(argv[1], "remote") != 0) return false;
    options->link = argv[2];
    for (int i = 3; i < argc; ++i) {
        if (strcmp(argv[i], "--once") == 0)
            options->once = true;
        else if (strcmp(argv[i], "--quiet") == 0)
            options->log_level = LOG_ERR;
        else if (strcmp(argv[i], "--address") == 0 && i + 1 < argc)
            options->address = argv[++i];
        else if (strcmp(argv[i], "--port") == 0 && i + 1 < argc)
            options->port = argv[++i];
        else
            return false;
    }
    return true;
}

int main(int argc, char **argv)
{
    struct options options = {false, false, LOG_INFO, NULL, "127.0.0.1", "8080"};
    for (int i = 1; i < argc; ++i)
        if (strcmp(argv[i], "--help") == 0) return fputs(kHelp, stdout) < 0;
    if (!parse_options(argc, argv, &options)) {
        fputs(kHelp, stderr);
        return 2;
    }

    /* Without SA_RESTART, so that blocked calls return when a session wakes its threads. */
    struct sigaction action;
    memset(&action, 0, sizeof action);
    action.sa_handler = wake_up;
    sigaction(SIGUSR1, &action, NULL);
    signal(SIGPIPE, SIG_IGN); /* a link that goes away is an error of writev, not our end */

    vn_log_init("remote_gui_tunnel", options.log_level, LOG_PERROR, LOG_DAEMON, 0);
    for (bool done = false; !done;) {
        const int fd = open_link(options.link);
        if (fd >= 0) run_link(&options, fd);
        done = options.once && fd >= 0;
        if (!done) usleep(200000); /* the other end may not be there yet */
    }
    vn_log_exit();
    return 0;
}
