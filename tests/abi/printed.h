/*
 * printed.h - what a call prints on standard output or standard error.
 *
 * C libraries differ above all in what their formatters make of odd arguments, so the text itself
 * is what has to be looked at. A program that includes this header defines _GNU_SOURCE first.
 */
#ifndef ABI_PRINTED_H
#define ABI_PRINTED_H

#include <unistd.h>

#include "check.h"

/* Runs `act` and returns what it printed on the descriptor; the text is good until the next call.
 */
static const char *printed_on(int descriptor, void (*act)(void))
{
    static char text[4096];
    FILE *file = tmpfile();
    const int saved = dup(descriptor);
    size_t length = 0;

    fflush(NULL);
    CHECK(file != NULL && saved >= 0 && dup2(fileno(file), descriptor) == descriptor);
    act();
    fflush(NULL);
    CHECK(dup2(saved, descriptor) == descriptor);
    close(saved);
    rewind(file);
    length = fread(text, 1, sizeof text - 1, file);
    text[length] = '\0';
    fclose(file);
    return text;
}

#endif
