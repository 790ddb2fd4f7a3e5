/*
 * scsi_decode - explains SCSI codes given in hexadecimal, as they stand in logs and traces.
 *
 *     $ scsi_decode sense 70 00 05 00 00 00 00 0a 00 00 00 00 24 00
 *     current error, fixed format
 *     sense key  5h       ILLEGAL REQUEST (error)
 *     code       24h/00h  INVALID FIELD IN CDB
 */
#define _POSIX_C_SOURCE 200809L

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vnlib/scsi.h>

enum { EXIT_UNEXPLAINED = 1, EXIT_USAGE = 2 };
enum { MAX_NUMBERS = 512 }; /* sense data is at most 252 bytes long */

static const char usage_text[] =
    "usage: scsi_decode WHAT [HEX...]\n"
    "Explains SCSI codes. WHAT is one of\n"
    "\n"
    "  sense    sense data, fixed or descriptor format, from its first byte\n"
    "  code     additional sense codes: an ASC and an ASCQ each\n"
    "  version  version descriptors of INQUIRY data\n"
    "  status   status bytes\n"
    "  opcode   operation codes\n"
    "\n"
    "Numbers are hexadecimal, as 2A, 2Ah or 0x2A; blanks, commas, colons and slashes separate\n"
    "them. Bytes of sense data may also be written together. Without numbers, they are read from\n"
    "standard input.\n"
    "\n"
    "Exit status: 0 all explained, 1 a code is not listed or sense data is damaged, 2 wrong "
    "usage.\n";

/* What there is to explain. */
struct numbers {
    unsigned value[MAX_NUMBERS];
    size_t count;
};

static void complain(const char *format, ...) VN_PRINTF(1, 2);
static void complain(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    fflush(stdout); /* what was explained so far comes first */
    fputs("scsi_decode: ", stderr);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
    va_end(args);
}

/* ---- reading numbers ---- */

static int append(struct numbers *numbers, unsigned value)
{
    if (numbers->count == MAX_NUMBERS) {
        complain("more than %d numbers", MAX_NUMBERS);
        return -1;
    }
    numbers->value[numbers->count++] = value;
    return 0;
}

/* The digits of a word without 0x and h; their number in *length. */
static const char *digits_of(const char *word, size_t *length)
{
    if (word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) word += 2;
    *length = strlen(word);
    if (*length > 1 && (word[*length - 1] == 'h' || word[*length - 1] == 'H')) --*length;
    return word;
}

/* Adds the number, or with `width` digits each the numbers, that a word stands for. */
static int read_word(const char *word, size_t width, struct numbers *numbers)
{
    size_t length, at, take;
    const char *digits = digits_of(word, &length);
    if (length == 0 || strspn(digits, "0123456789abcdefABCDEF") < length) {
        complain("'%s' is not hexadecimal", word);
        return -1;
    }
    if (width == 0 && length > 4) {
        complain("'%s' is too large", word);
        return -1;
    }
    if (width != 0 && length > width && length % width != 0) {
        complain("'%s' has half a byte too much", word);
        return -1;
    }
    for (at = 0; at < length; at += take) {
        char part[8] = "";
        take = width != 0 && length > width ? width : length;
        memcpy(part, digits + at, take);
        if (append(numbers, (unsigned)strtoul(part, NULL, 16)) != 0) return -1;
    }
    return 0;
}

static int read_line(char *line, size_t width, struct numbers *numbers)
{
    static const char separators[] = " \t\r\n,:;/";
    char *rest = NULL;
    char *word;
    for (word = strtok_r(line, separators, &rest); word != NULL;
         word = strtok_r(NULL, separators, &rest)) {
        if (read_word(word, width, numbers) != 0) return -1;
    }
    return 0;
}

static int read_input(size_t width, struct numbers *numbers)
{
    char *line = NULL;
    size_t room = 0;
    int result = 0;
    while (result == 0 && getline(&line, &room, stdin) >= 0) {
        result = read_line(line, width, numbers);
    }
    free(line);
    if (result == 0 && ferror(stdin)) {
        complain("cannot read standard input: %s", strerror(errno));
        result = -1;
    }
    return result;
}

/* ---- explaining ---- */

static void explain_key(unsigned key)
{
    static const char *const severities[] = {"information", "error", "volume overflow"};
    printf("sense key  %Xh       %s (%s)\n", key, get_condition_info((unsigned char)key),
           severities[get_condition_severity((unsigned char)key)]);
}

static void explain_code(unsigned asc, unsigned ascq)
{
    printf("code       %02Xh/%02Xh  %s\n", asc, ascq,
           get_ascascq_info((unsigned char)asc, (unsigned char)ascq));
}

static void explain_bytes(const char *label, const unsigned *bytes, size_t count)
{
    size_t i;
    printf("%-11s", label);
    for (i = 0; i < count; ++i) printf("%02X", bytes[i]);
    puts("h");
}

/* The bytes of the sense data that are there, by its own account and in fact. */
static size_t sense_length(const struct numbers *sense)
{
    const size_t claimed = sense->count > 7 ? sense->value[7] + 8u : sense->count;
    return claimed < sense->count ? claimed : sense->count;
}

/* Key, flags and information in bytes 2 to 6, code in bytes 12 and 13. */
static int explain_fixed(const struct numbers *sense)
{
    const unsigned *bytes = sense->value;
    const size_t length = sense_length(sense);
    if (length < 3) {
        complain("fixed sense data of %zu bytes has no sense key", length);
        return EXIT_UNEXPLAINED;
    }
    explain_key(bytes[2] & 0x0F);
    if (length > 13) {
        explain_code(bytes[12], bytes[13]);
    } else {
        puts("code       not given");
    }
    if (bytes[2] & 0x80) puts("flag       FILEMARK");
    if (bytes[2] & 0x40) puts("flag       EOM: end of medium");
    if (bytes[2] & 0x20) puts("flag       ILI: incorrect length");
    if ((bytes[0] & 0x80) && length > 6) explain_bytes("info", bytes + 3, 4);
    return EXIT_SUCCESS;
}

/* Key and code in bytes 1 to 3; descriptors, each with its type and length, from byte 8. */
static int explain_described(const struct numbers *sense)
{
    const unsigned *bytes = sense->value;
    const size_t length = sense_length(sense);
    size_t at;
    if (length < 4) {
        complain("descriptor sense data of %zu bytes has no code", length);
        return EXIT_UNEXPLAINED;
    }
    explain_key(bytes[1] & 0x0F);
    explain_code(bytes[2], bytes[3]);
    for (at = 8; at + 2 <= length; at += bytes[at + 1] + 2u) {
        if (at + 2 + bytes[at + 1] > length) {
            complain("descriptor %02Xh ends behind the sense data", bytes[at]);
            return EXIT_UNEXPLAINED;
        }
        if (bytes[at] == 0x00 && bytes[at + 1] == 10) {
            explain_bytes("info", bytes + at + 4, 8);
        } else {
            printf("descriptor %02Xh, %u bytes\n", bytes[at], bytes[at + 1]);
        }
    }
    return EXIT_SUCCESS;
}

static int explain_sense(const struct numbers *sense)
{
    const unsigned response = sense->value[0] & 0x7F;
    if (response < 0x70 || response > 0x73) {
        complain("%02Xh does not begin sense data", sense->value[0]);
        return EXIT_UNEXPLAINED;
    }
    printf("%s error, %s format\n", response & 1 ? "deferred" : "current",
           response < 0x72 ? "fixed" : "descriptor");
    return response < 0x72 ? explain_fixed(sense) : explain_described(sense);
}

static int explain_codes(const struct numbers *numbers)
{
    size_t i;
    if (numbers->count % 2 != 0) {
        complain("an ASC without its ASCQ");
        return EXIT_USAGE;
    }
    for (i = 0; i < numbers->count; i += 2) explain_code(numbers->value[i], numbers->value[i + 1]);
    return EXIT_SUCCESS;
}

static int explain_versions(const struct numbers *numbers)
{
    int result = EXIT_SUCCESS;
    size_t i;
    for (i = 0; i < numbers->count; ++i) {
        const char *text = get_scsi_standard((uint16_t)numbers->value[i]);
        printf("version    %04Xh    %s\n", numbers->value[i], text != NULL ? text : "not listed");
        if (text == NULL) result = EXIT_UNEXPLAINED;
    }
    return result;
}

static int explain_statuses(const struct numbers *numbers)
{
    size_t i;
    for (i = 0; i < numbers->count; ++i) {
        printf("status     %02Xh      %s\n", numbers->value[i],
               get_status_info((unsigned char)numbers->value[i]));
    }
    return EXIT_SUCCESS;
}

static int explain_opcodes(const struct numbers *numbers)
{
    size_t i;
    for (i = 0; i < numbers->count; ++i) {
        printf("opcode     %02Xh      %s\n", numbers->value[i],
               get_command_info((unsigned char)numbers->value[i]));
    }
    return EXIT_SUCCESS;
}

/* ---- the command line ---- */

struct subject {
    const char *name;
    int (*explain)(const struct numbers *numbers);
    unsigned largest;
    size_t width; /* digits of each number in a long word; 0: a word is one number */
};

static const struct subject subjects[] = {
    {"sense", explain_sense, 0xFF, 2},        {"code", explain_codes, 0xFF, 0},
    {"version", explain_versions, 0xFFFF, 0}, {"status", explain_statuses, 0xFF, 0},
    {"opcode", explain_opcodes, 0xFF, 0},
};

static const struct subject *find_subject(const char *name)
{
    size_t i;
    for (i = 0; i < sizeof subjects / sizeof subjects[0]; ++i) {
        if (strcmp(subjects[i].name, name) == 0) return &subjects[i];
    }
    return NULL;
}

static int read_numbers(const struct subject *subject, char **words, struct numbers *numbers)
{
    size_t i;
    if (*words == NULL && read_input(subject->width, numbers) != 0) return -1;
    for (; *words != NULL; ++words) {
        if (read_line(*words, subject->width, numbers) != 0) return -1;
    }
    for (i = 0; i < numbers->count; ++i) {
        if (numbers->value[i] > subject->largest) {
            complain("%Xh is too large", numbers->value[i]);
            return -1;
        }
    }
    if (numbers->count == 0) {
        complain("no numbers to explain");
        return -1;
    }
    return 0;
}

int main(int argc, char **argv)
{
    struct numbers numbers = {{0}, 0};
    const struct subject *subject;
    int result;

    if (argc > 1 && (strcmp(argv[1], "-h") == 0 || strcmp(argv[1], "--help") == 0)) {
        fputs(usage_text, stdout);
        return EXIT_SUCCESS;
    }
    subject = argc > 1 ? find_subject(argv[1]) : NULL;
    if (subject == NULL) {
        if (argc > 1) complain("'%s' is nothing that can be explained", argv[1]);
        fputs(usage_text, stderr);
        return EXIT_USAGE;
    }
    if (read_numbers(subject, argv + 2, &numbers) != 0) return EXIT_USAGE;
    result = subject->explain(&numbers);
    if (fflush(stdout) != 0) {
        complain("cannot write: %s", strerror(errno));
        return EXIT_UNEXPLAINED;
    }
    return result;
}
