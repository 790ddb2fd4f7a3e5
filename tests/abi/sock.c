#define _GNU_SOURCE
#include "printed.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <syslog.h>

/* The kernel's record: each C library has a struct of its own size for it, which nobody uses. */
static unsigned char info[104 + 4];

static void display(void)
{
    display_tcp_info(3, info);
}

static void display_silently(void)
{
    display_tcp_info(23, info);
}

static size_t lines_in(const char *text)
{
    size_t count = 0;
    while ((text = strstr(text, "\r\n")) != NULL) {
        text += 2;
        ++count;
    }
    return count;
}

int main(void)
{
    struct addrinfo hints;
    struct sockaddr_in bound;
    socklen_t length = sizeof bound;
    char port[16];
    char host[64] = "";
    const char *text = NULL;
    size_t i = 0;
    unsigned char mac[6] = {1, 1, 1, 1, 1, 1};
    int listener = -1;
    int client = -1;
    int server = -1;

    memset(&hints, 0, sizeof hints);
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    listener = vnsock_listen(&hints, "127.0.0.1", "0", 0, 0, 0);
    CHECK(listener >= 0 && getsockname(listener, (struct sockaddr *)&bound, &length) == 0);
    sprintf(port, "%u", (unsigned)ntohs(bound.sin_port));
    client = vnsock_connect(&hints, "127.0.0.1", port, NULL, 0, 8192, "abi");
    CHECK(client >= 0);
    server = vnsock_accept(listener, host, sizeof host, "abi");
    CHECK(server >= 0);
    CHECK_TEXT(host, "127.0.0.1");
    CHECK_TEXT(vnsock_getpeername(client, host, sizeof host), "127.0.0.1");
    CHECK(vnsock_getpeername(-1, host, sizeof host) == NULL);
    CHECK(vnsock_set_sockbuffers(client, 4096, 4096) == 0 && vnsock_set_sockbuffers(-1, 0, 0) == 0);
    CHECK(vnsock_set_sockbuffers(-1, 1, 1) == -1);
    CHECK(vnsock_bind_iface(-1, "lo") == -1);
    memset(info, 0xA5, sizeof info);
    CHECK(read_tcp_info(client, info) == 0 && info[0] == 1);
    for (i = 104; i < sizeof info; ++i) CHECK(info[i] == 0xA5);
    CHECK(read_tcp_info(-1, info) == -1);
    info[5] = 0;
    info[6] = 0x75;
    memset(info + 16, 0, 4);
    memcpy(info + 100, "\x78\x56\x34\x12", 4);
    vn_log_init("abi", 3, LOG_PERROR, LOG_USER, 0);
    text = printed_on(2, display);
    CHECK(lines_in(text) == 34);
    CHECK(strstr(text, " ERROR: State          0x01\r\n") != NULL);
    CHECK(strstr(text, " ERROR: Options        00\r\n") != NULL);
    CHECK(strstr(text, " ERROR: Snd WScale     0x5\r\n") != NULL);
    CHECK(strstr(text, " ERROR: Rcv WScale     0x7\r\n") != NULL);
    CHECK(strstr(text, " ERROR: Snd MSS        00000000\r\n") != NULL);
    CHECK(strstr(text, " ERROR: Total Retrans  0x12345678\r\n") != NULL);
    CHECK_TEXT(printed_on(2, display_silently), "");
    vn_log_exit();
    CHECK(vn_getmac("lo", mac) == 0 && mac[0] == 0 && mac[5] == 0);
    CHECK(vn_getmac("nosuchif0", mac) == -1 && vn_getmac64("nosuchif0") == 0);
    close(client);
    close(server);
    close(listener);
    return report("sock");
}
