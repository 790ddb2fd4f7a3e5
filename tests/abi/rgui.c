#define _GNU_SOURCE
#include "check.h"

#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static unsigned char sent[16][32];
static size_t sent_count;
static int wrong_context; /* noted, not checked: this runs in other threads than the checks */

static int on_send(unsigned char *pdu, size_t length, void *ctx)
{
    pthread_mutex_lock(&lock);
    if (ctx != &sent_count) wrong_context = 1;
    if (sent_count < 16) memcpy(sent[sent_count], pdu, length < 32 ? length : 32);
    ++sent_count;
    pthread_mutex_unlock(&lock);
    free(pdu);
    return 0;
}

static size_t wait_for(size_t count)
{
    size_t now = 0;
    int tries = 0;
    for (tries = 0; tries < 500 && now < count; ++tries) {
        usleep(10000);
        pthread_mutex_lock(&lock);
        now = sent_count;
        pthread_mutex_unlock(&lock);
    }
    return now;
}

static void on_signal(int number)
{
    (void)number;
}

static int connect_to(unsigned short port)
{
    struct sockaddr_in address;
    int tries = 0;
    memset(&address, 0, sizeof address);
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (tries = 0; tries < 500; ++tries) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        if (connect(fd, (struct sockaddr *)&address, sizeof address) == 0) return fd;
        close(fd);
        usleep(10000);
    }
    return -1;
}

int main(void)
{
    static const unsigned char open_pdu[8] = {2, 0, 1, 0, 0, 0, 0, 0};
    static const unsigned char data_pdu[10] = {1, 0, 1, 0, 2, 0, 0, 0, 'o', 'k'};
    static const unsigned char close_pdu[8] = {3, 0, 1, 0, 0, 0, 0, 0};
    static const unsigned char ten[10] = "0123456789";
    struct sigaction action;
    struct rgui_session *session = NULL;
    char reply[2];
    int client = -1;

    memset(&action, 0, sizeof action);
    action.sa_handler = on_signal;
    sigaction(SIGUSR1, &action, NULL);

    session = rgui_start_local("127.0.0.1", "21024", 0, on_send, &sent_count);
    CHECK(session != NULL);
    client = connect_to(21024);
    CHECK(client >= 0 && wait_for(1) == 1 && memcmp(sent[0], open_pdu, 8) == 0);
    CHECK(write(client, ten, 10) == 10 && wait_for(2) == 2);
    CHECK(sent[1][0] == 1 && sent[1][2] == 1 && sent[1][4] == 10 &&
          memcmp(sent[1] + 8, ten, 10) == 0);
    CHECK(rgui_data_rx(session, data_pdu, 10) == 0);
    CHECK(read(client, reply, 2) == 2 && memcmp(reply, "ok", 2) == 0);
    CHECK(rgui_data_rx(session, data_pdu, 9) == -1);
    CHECK(rgui_data_rx(session, close_pdu, 8) == 0);
    CHECK(read(client, reply, 2) == 0);
    close(client);
    rgui_stop_local(session);

    session = rgui_start_remote(on_send, &sent_count);
    CHECK(session != NULL && rgui_data_rx(session, data_pdu, 10) == -1);
    rgui_stop_remote(session);
    pthread_mutex_lock(&lock);
    CHECK(!wrong_context);
    pthread_mutex_unlock(&lock);
    return report("rgui");
}
