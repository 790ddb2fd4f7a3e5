/*
 * memdebug_screen - a small program to watch under the memory debugger.
 *
 *     memdebug_screen            works for a while, keeps some blocks and ends in order
 *     memdebug_screen overrun    writes one byte past a block: the checker ends the process
 *
 * Run it on a terminal of at least 49 rows.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "vnlib/memcheck.h"

#define REQUESTS 12
#define HISTORY 40

static void pause_ms(long milliseconds)
{
    struct timespec duration = {0, milliseconds * 1000000L};
    nanosleep(&duration, NULL);
}

/* A request has a header, which is kept, and a body, which is not. */
static char *serve_request(int number)
{
    char *header = vn_memcheck_malloc(vn_malloc, 32, "read_header", __LINE__);
    char *body = vn_memcheck_malloc(malloc, 512, "read_body", __LINE__);

    if (header != NULL) snprintf(header, 32, "GET /share/%d", number);
    memdbg_printf("request %d ... ", number);
    pause_ms(150);
    memdbg_printf("done\n");
    if (body != NULL) vn_memcheck_free(free, body, "memdebug_screen:35");
    return header;
}

/* The history grows by a line with each request. */
static char *remember(char *history, int number)
{
    char *longer =
        vn_memcheck_realloc(history, (size_t)(number + 1) * HISTORY, "remember", __LINE__);
    return longer != NULL ? longer : history;
}

int main(int argc, char **argv)
{
    char *headers[REQUESTS];
    char *history = NULL;
    int i;

    if (vn_memcheck_start() != 0) return EXIT_FAILURE;
    for (i = 0; i < REQUESTS; ++i) {
        headers[i] = serve_request(i);
        history = remember(history, i);
    }

    if (argc > 1 && strcmp(argv[1], "overrun") == 0 && headers[3] != NULL) {
        memset(headers[3], 'x', 32 + 1);
        pause_ms(900); /* the checker will not let us get to the end of this */
    }

    for (i = 0; i < REQUESTS; i += 2)
        if (headers[i] != NULL) vn_memcheck_free(vn_free, headers[i], "memdebug_screen:65");
    return vn_memcheck_stop() == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
