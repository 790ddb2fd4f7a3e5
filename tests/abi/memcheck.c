#define _GNU_SOURCE 1
#include "check.h"

#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <sys/wait.h>
#include <unistd.h>

static void debug(const char *format, ...) VN_PRINTF(1, 2);
static void debug(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    memdbg_vprintf(format, args);
    va_end(args);
}

static int give_back(void *ptr, size_t length)
{
    free(ptr);
    return (int)length;
}

/* The same calls with the tracker off and on. */
static void use_blocks(void)
{
    unsigned char *block = vn_memcheck_malloc(vn_malloc, 10, "use_blocks", 1);
    int i = 0;
    CHECK(block != NULL);
    for (i = 0; i < 10; ++i) CHECK(block[i] == 0);
    block[9] = 7;
    block = vn_memcheck_realloc(block, 20, "use_blocks", 2);
    CHECK(block != NULL && block[9] == 7);
    CHECK(vn_memcheck_realloc(block, 0, "use_blocks", 3) == NULL);
    block = vn_memcheck_realloc(NULL, 5, "use_blocks", 4);
    vn_memcheck_free(vn_free, block, "memcheck:1");
    block = vn_dmacheck_malloc(malloc, 64, "use_blocks");
    CHECK(block != NULL && vn_dma_free(give_back, block, 64, "memcheck:2") == 64);
}

static unsigned char *raw;
static size_t raw_size;

static void *note_raw(size_t size)
{
    raw = malloc(size);
    raw_size = size;
    return raw;
}

static void check_raw(void *ptr)
{
    CHECK(ptr == raw);
    free(ptr);
}

/* Programs that look at memory dumps know this layout: marker, the caller's bytes, marker. */
static void look_at_guards(void)
{
    const uint32_t marker = 0xDEADBEAFu;
    unsigned char *block = vn_memcheck_malloc(note_raw, 5, "look_at_guards", 1);
    CHECK(raw_size == 13 && block == raw + 4);
    CHECK(memcmp(raw, &marker, 4) == 0 && memcmp(raw + 9, &marker, 4) == 0);
    memset(block, 0, 5);
    vn_memcheck_free(check_raw, block, "memcheck:3");
    block = vn_dmacheck_malloc(note_raw, 5, "look_at_guards");
    CHECK(raw_size == 5 && block == raw && vn_dma_free(give_back, block, 5, "memcheck:4") == 5);
}

static void *draw(void *unused)
{
    for (;;) {
        gotoline(6, "another line");
        pthread_testcancel();
    }
    return unused;
}

/* C libraries differ in what a fork does to streams that another thread has locked. */
static void fork_while_another_thread_draws(void)
{
    const int screen = dup(1), nowhere = open("/dev/null", O_WRONLY);
    pthread_t artist;
    int round = 0, status = 0;
    fflush(stdout);
    CHECK(screen >= 0 && dup2(nowhere, 1) == 1);
    CHECK(pthread_create(&artist, NULL, draw, NULL) == 0);
    for (round = 0; round < 200 && status == 0; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(10);
            use_blocks();
            printf("child\n");
            fflush(stdout);
            _exit(failures);
        }
        CHECK(waitpid(child, &status, 0) == child);
    }
    CHECK(status == 0);
    CHECK(pthread_cancel(artist) == 0 && pthread_join(artist, NULL) == 0);
    CHECK(dup2(screen, 1) == 1);
    close(screen);
    close(nowhere);
}

int main(void)
{
    vn_free(vn_malloc(1));
    CHECK(gotoline(0, "") == -1 && vn_memcheck_stop() == -1);
    CHECK(memdbg_printf("plain %s\n", "text") == 0);
    use_blocks();
    CHECK(vn_memcheck_start() == 0);
    use_blocks();
    look_at_guards();
    CHECK(gotoline(5, "a line") == 0);
    CHECK(memdbg_printf("in the pane\n") == 0);
    debug("%s\n", "so is this");
    fork_while_another_thread_draws();
    CHECK(vn_memcheck_stop() == 0);
    printf("\n");
    return report("memcheck");
}
