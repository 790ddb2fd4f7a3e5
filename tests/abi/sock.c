#define _GNU_SOURCE
#include "check.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

int main(void)
{
    struct addrinfo hints;
    struct sockaddr_in bound;
    socklen_t length = sizeof bound;
    char port[16];
    char host[64] = "";
    unsigned char info[104];
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
    CHECK(read_tcp_info(client, info) == 0 && info[0] == 1);
    display_tcp_info(23, info);
    display_tcp_info(3, info);
    CHECK(read_tcp_info(-1, info) == -1);
    CHECK(vn_getmac("lo", mac) == 0 && mac[0] == 0 && mac[5] == 0);
    CHECK(vn_getmac("nosuchif0", mac) == -1 && vn_getmac64("nosuchif0") == 0);
    close(client);
    close(server);
    close(listener);
    return report("sock");
}
