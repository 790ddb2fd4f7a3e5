/*
 * appliance - the library's main job on a real configuration file.
 *
 * Reads a corelink configuration, prints values by their paths, merges an update into it, writes it
 * as XML and as corelink text, and logs every step. With --memdebug all of it runs under the memory
 * debugger, whose screen then shows where the live blocks come from.
 */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <getopt.h>
#include <inttypes.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

#include <vnlib.h>

enum { EXIT_USAGE = 2 };

#ifndef LOG_PERROR
#define LOG_PERROR 0x20 /* a strict compilation hides it: log lines also go to standard error */
#endif

struct settings {
    const char *config;
    const char *update;
    const char *broken;
    const char *xml;
    unsigned log_port;
    unsigned rounds;
    unsigned hold;
    int memdebug;
};

static volatile sig_atomic_t interrupted;

static void on_interrupt(int number)
{
    (void)number;
    interrupted = 1;
}

static const char usage_text[] =
    "usage: appliance [options] CONFIG\n"
    "Reads a corelink configuration, queries it, merges an update and writes it out again.\n"
    "\n"
    "  -u, --update FILE   merge FILE into the configuration (every name in it must exist)\n"
    "  -b, --broken FILE   parse FILE too, and show the message if it does not parse\n"
    "  -x, --xml FILE      write the XML document to FILE as well\n"
    "  -m, --memdebug      run under the memory debugger (use a terminal of 50 lines)\n"
    "  -l, --log-port N    offer the log to telnet clients on TCP port N, and go round until\n"
    "                      interrupted\n"
    "  -r, --rounds N      go round N times (1; 0 = until interrupted)\n"
    "  -s, --hold SECONDS  keep the tree for SECONDS in each round (0; 3 with --memdebug)\n"
    "  -h, --help          show this help\n"
    "\n"
    "Exit status: 0 done, 1 a file could not be read, parsed, merged or written, 2 wrong usage.\n";

/* Prints a line of the report: to the debug pane while the memory debugger owns the screen. */
#define REPORT(settings, ...)                                                                      \
    do {                                                                                           \
        if ((settings)->memdebug)                                                                  \
            memdbg_printf(__VA_ARGS__);                                                            \
        else                                                                                       \
            printf(__VA_ARGS__);                                                                   \
    } while (0)

/* A heading of the report, set apart by an empty line where lines are not scarce. */
static void heading(const struct settings *settings, const char *text)
{
    if (!settings->memdebug) printf("\n");
    REPORT(settings, "%s:\n", text);
}

/* The whole file as a text that the caller frees, or NULL after a message. */
static char *read_file(const char *path)
{
    FILE *file = fopen(path, "r");
    char *text = NULL;
    size_t size = 0;
    size_t used = 0;
    if (file == NULL) {
        fprintf(stderr, "appliance: cannot read %s: %s\n", path, strerror(errno));
        return NULL;
    }
    for (;;) {
        if (used + 1 >= size) {
            char *larger = realloc(text, size = size == 0 ? 4096 : size * 2);
            if (larger == NULL) break;
            text = larger;
        }
        const size_t got = fread(text + used, 1, size - used - 1, file);
        if (got == 0 && !ferror(file)) {
            fclose(file);
            text[used] = '\0';
            return text;
        }
        if (got == 0) break;
        used += got;
    }
    fprintf(stderr, "appliance: cannot read %s: %s\n", path, strerror(errno));
    fclose(file);
    free(text);
    return NULL;
}

/* The tree of the file, or NULL after a message. Ends with clparse_stop. */
static struct clparse_head *parse_file(const char *path)
{
    char *text = read_file(path);
    struct clparse_head *head = NULL;
    if (text == NULL) return NULL;
    head = clparse_start(text);
    free(text);
    if (head == NULL) {
        __vn_log(LOG_ERR, "%s is not a corelink text", path);
        return NULL;
    }
    __vn_log(LOG_INFO, "parsed %s", path);
    return head;
}

static void print_values(const struct settings *settings, struct clparse_head *head)
{
    static const char *const strings[] = {"appliance.name", "appliance.firmware.version",
                                          "network.dns.1", "network.interfaces.0.address",
                                          "shares.backup.comment"};
    static const char *const numbers[] = {"appliance.location.unit", "disks.3.capacity",
                                          "logging.level"};
    static const char *const flags[] = {"network.ntp.enabled", "users.guest.locked"};
    size_t i = 0;
    for (i = 0; i < sizeof strings / sizeof *strings; ++i) {
        char *text = NULL;
        if (clparse_get_string(head, &text, "%s", strings[i]) != 0) continue;
        REPORT(settings, "  %-30s \"%s\"\n", strings[i], text);
        vn_memcheck_free(vn_free, text, "appliance:value");
    }
    for (i = 0; i < sizeof numbers / sizeof *numbers; ++i) {
        uint64_t number = 0;
        if (clparse_get_number(head, &number, "%s", numbers[i]) != 0) continue;
        REPORT(settings, "  %-30s %" PRIu64 "\n", numbers[i], number);
    }
    for (i = 0; i < sizeof flags / sizeof *flags; ++i) {
        unsigned char flag = 0;
        if (clparse_get_bool(head, &flag, "%s", flags[i]) != 0) continue;
        REPORT(settings, "  %-30s %s\n", flags[i], flag != 0 ? "true" : "false");
    }
}

static void print_paths(const struct settings *settings, struct clparse_head *head,
                        const char *path)
{
    char *paths = clparse_get_path(head, path);
    if (paths == NULL) return;
    REPORT(settings, "  %s\n", paths);
    vn_memcheck_free(vn_free, paths, "appliance:paths");
}

static int merge_update(const struct settings *settings, struct clparse_head *head)
{
    struct clparse_head *update = parse_file(settings->update);
    int result = -1;
    if (update == NULL) return -1;
    result = clparse_update(head, update);
    if (result == 0)
        __vn_log(LOG_NOTICE, "merged %s", settings->update);
    else
        __vn_log(LOG_ERR, "%s names something that the configuration does not have",
                 settings->update);
    clparse_stop(update);
    return result;
}

static int write_file(const char *path, const char *text)
{
    FILE *file = fopen(path, "w");
    const int written = file != NULL && fputs(text, file) >= 0;
    if (file == NULL || fclose(file) != 0 || !written) {
        fprintf(stderr, "appliance: cannot write %s: %s\n", path, strerror(errno));
        return -1;
    }
    return 0;
}

static int write_documents(const struct settings *settings, struct clparse_head *head)
{
    char *xml = NULL;
    char *text = NULL;
    int result = -1;
    if (clparse_get_xml(head, &xml, 1) != 0 || xml == NULL) return -1;
    __vn_log(LOG_INFO, "wrote %zu bytes of XML", strlen(xml));
    if (clparse_get_corelink(head, &text, 0) == 0) {
        __vn_log(LOG_INFO, "wrote %zu bytes of corelink text", strlen(text));
        if (!settings->memdebug) printf("\nAs XML:\n%s\n\nAs corelink text:\n%s\n", xml, text);
        result = settings->xml == NULL ? 0 : write_file(settings->xml, xml);
        vn_memcheck_free(vn_free, text, "appliance:text");
    }
    vn_memcheck_free(vn_free, xml, "appliance:xml");
    return result;
}

static void show_broken(const struct settings *settings)
{
    struct clparse_head *head = NULL;
    heading(settings, "A file with a mistake in it");
    head = parse_file(settings->broken);
    clparse_stop(head);
}

static int one_round(const struct settings *settings)
{
    struct clparse_head *head = parse_file(settings->config);
    int result = 0;
    if (head == NULL) return -1;

    heading(settings, "Values read by their paths");
    print_values(settings, head);
    heading(settings, "The paths of one share");
    print_paths(settings, head, "shares.backup");

    if (settings->update != NULL) {
        result = merge_update(settings, head);
        if (result == 0) {
            heading(settings, "The same values after the update");
            print_values(settings, head);
        }
    }
    if (result == 0) result = write_documents(settings, head);
    if (settings->broken != NULL) show_broken(settings);

    if (settings->hold != 0 && !interrupted) {
        const struct timespec pause = {(time_t)settings->hold, 0};
        nanosleep(&pause, NULL);
    }
    clparse_stop(head);
    return result;
}

static int parse_number(const char *text, unsigned limit, unsigned *number)
{
    char *end = NULL;
    const unsigned long value = strtoul(text, &end, 10);
    if (*text < '0' || *text > '9' || *end != '\0' || value > limit) return -1;
    *number = (unsigned)value;
    return 0;
}

static int usage_error(const char *message, const char *what)
{
    fprintf(stderr, "appliance: %s%s\nTry 'appliance --help'.\n", message, what);
    return EXIT_USAGE;
}

/* 0 to go on, or the exit status plus 1. */
static int read_arguments(int argc, char **argv, struct settings *settings)
{
    static const struct option options[] = {{"update", required_argument, NULL, 'u'},
                                            {"broken", required_argument, NULL, 'b'},
                                            {"xml", required_argument, NULL, 'x'},
                                            {"memdebug", no_argument, NULL, 'm'},
                                            {"log-port", required_argument, NULL, 'l'},
                                            {"rounds", required_argument, NULL, 'r'},
                                            {"hold", required_argument, NULL, 's'},
                                            {"help", no_argument, NULL, 'h'},
                                            {NULL, 0, NULL, 0}};
    int hold_given = 0;
    int rounds_given = 0;
    int option = 0;
    while ((option = getopt_long(argc, argv, "u:b:x:ml:r:s:h", options, NULL)) != -1) {
        int bad = 0;
        switch (option) {
        case 'u': settings->update = optarg; break;
        case 'b': settings->broken = optarg; break;
        case 'x': settings->xml = optarg; break;
        case 'm': settings->memdebug = 1; break;
        case 'l': bad = parse_number(optarg, 65535, &settings->log_port); break;
        case 'r':
            bad = parse_number(optarg, 1000000000, &settings->rounds);
            rounds_given = 1;
            break;
        case 's':
            bad = parse_number(optarg, 86400, &settings->hold);
            hold_given = 1;
            break;
        case 'h': fputs(usage_text, stdout); return EXIT_SUCCESS + 1;
        default: fputs("Try 'appliance --help'.\n", stderr); return EXIT_USAGE + 1;
        }
        if (bad != 0) return usage_error("not a number in range: ", optarg) + 1;
    }
    if (optind != argc - 1)
        return usage_error(optind >= argc ? "no configuration file" : "too many files", "") + 1;
    settings->config = argv[optind];
    if (!hold_given) settings->hold = settings->memdebug ? 3 : settings->log_port != 0 ? 2 : 0;
    if (!rounds_given) settings->rounds = settings->log_port != 0 ? 0 : 1;
    return 0;
}

int main(int argc, char **argv)
{
    struct settings settings = {NULL, NULL, NULL, NULL, 0, 1, 0, 0};
    struct sigaction action;
    unsigned round = 0;
    int result = read_arguments(argc, argv, &settings);
    if (result != 0) return result - 1;

    setvbuf(stdout, NULL, _IOLBF, 0); /* the report and the log stay in order in one file */
    memset(&action, 0, sizeof action);
    action.sa_handler = on_interrupt;
    sigaction(SIGINT, &action, NULL);
    sigaction(SIGTERM, &action, NULL);

    /* The memory debugger must be there before the first tracked block. */
    if (settings.memdebug && vn_memcheck_start() != 0) {
        fputs("appliance: cannot start the memory debugger\n", stderr);
        return EXIT_FAILURE;
    }
    /* Log lines on standard error would run through the debugger's screen. */
    vn_log_init("appliance", LOG_INFO, LOG_PID | (settings.memdebug ? 0 : LOG_PERROR), LOG_USER,
                settings.log_port);
    for (round = 0; !interrupted && (settings.rounds == 0 || round < settings.rounds); ++round)
        if (one_round(&settings) != 0) result = EXIT_FAILURE;
    __vn_log(LOG_INFO, "done");
    vn_log_exit();
    if (settings.memdebug) vn_memcheck_stop();
    return result;
}
