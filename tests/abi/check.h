/*
 * check.h - the few lines that a plain C test program needs.
 *
 * These programs are built with any C99 compiler against any C library and call every exported
 * function at least once, so that the binary interface itself is what is tested.
 */
#ifndef ABI_CHECK_H
#define ABI_CHECK_H

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <vnlib.h>

static int failures;
static int checks;

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        ++checks;                                                                                  \
        if (!(condition)) {                                                                        \
            ++failures;                                                                            \
            printf("%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                         \
        }                                                                                          \
    } while (0)

#define CHECK_TEXT(actual, expected)                                                               \
    do {                                                                                           \
        const char *actual_text = (actual);                                                        \
        ++checks;                                                                                  \
        if (actual_text == NULL || strcmp(actual_text, expected) != 0) {                           \
            ++failures;                                                                            \
            printf("%s:%d: \"%s\" is not \"%s\"\n", __FILE__, __LINE__,                            \
                   actual_text == NULL ? "(null)" : actual_text, expected);                        \
        }                                                                                          \
    } while (0)

static int report(const char *family)
{
    printf("%s: %d passed, %d failed\n", family, checks - failures, failures);
    return failures == 0 ? 0 : 1;
}

#endif
