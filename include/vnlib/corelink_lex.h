/*
 * corelink_lex.h - the corelink scanner's own interface
 *
 * clparse_start() is all that most programs need. These are the calls of the reentrant scanner
 * below it, for programs that want a corelink text's tokens:
 *
 *     void *scanner;
 *     union clparse_lex_value value;
 *     int token;
 *
 *     yylex_init(&scanner);
 *     yy_scan_string("count=3", scanner);
 *     while ((token = yylex(&value, scanner)) != 0) ...
 *     yylex_destroy(scanner);
 *
 * A scanner belongs to one thread at a time; different scanners are independent. No call ends the
 * process: what cannot be done (no memory, no buffer) is answered with the call's failure value,
 * null, 0 or -1, and leaves the scanner fit for use. A null scanner is answered likewise.
 */
#ifndef VNLIB_CORELINK_LEX_H
#define VNLIB_CORELINK_LEX_H

#include <stdio.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/* What yylex() returns besides 0, the end of the input, and the characters , . = [ ] { } */
enum clparse_token {
    CLPARSE_TOKEN_IDENTIFIER = 258, /* `text`: the word */
    CLPARSE_TOKEN_STRING = 259,     /* `text`: what stands between the quotes, escapes kept */
    CLPARSE_TOKEN_NUMBER = 260,     /* `number` */
    CLPARSE_TOKEN_BOOLEAN = 261,    /* `boolean`: 0 or 1 */
    CLPARSE_TOKEN_OTHER = 263       /* any other single character; no value */
};

/*
 * A token's value. `text` is a new tracked block that the receiver releases with
 * vn_memcheck_free(free, text, "file:line"); it is null when memory was short.
 */
union clparse_lex_value {
    char *text;
    uint64_t number;
    unsigned char boolean;
};

/* One text being read. */
struct yy_buffer_state;

/*
 * The next token. Text comes from the current buffer, or, as long as there was none, from yyin
 * (standard input by default); once the last buffer is gone, the input has ended. When memory for
 * more input cannot be had, the rest of the buffer is dropped and 0 returned.
 */
VN_API int yylex(union clparse_lex_value *value, void *scanner);

/* Make a scanner. 0, or a value other than 0 with errno ENOMEM or EINVAL (`scanner` null). */
VN_API int yylex_init(void **scanner);
VN_API int yylex_init_extra(void *extra, void **scanner);

/* Releases a scanner and its buffers. Always 0. */
VN_API int yylex_destroy(void *scanner);

/*
 * Make a buffer of a copy of a text (at most INT_MAX - 2 bytes; with a length it may hold NUL
 * bytes) and switch to it. yy_scan_buffer() reads the caller's memory in place instead and changes
 * it while it does: the last two of its `size` bytes must be NUL. Null when that is not so, and
 * when memory is short.
 *
 * A buffer that was current before is the program's to delete with yy_delete_buffer(), unless it
 * was pushed down with yypush_buffer_state().
 */
VN_API struct yy_buffer_state *yy_scan_string(const char *text, void *scanner);
VN_API struct yy_buffer_state *yy_scan_bytes(const char *bytes, int length, void *scanner);
VN_API struct yy_buffer_state *yy_scan_buffer(char *base, size_t size, void *scanner);

/* A buffer that reads `file` in pieces; `size` bytes to begin with, it grows with its tokens. */
VN_API struct yy_buffer_state *yy_create_buffer(FILE *file, int size, void *scanner);
VN_API void yy_delete_buffer(struct yy_buffer_state *buffer, void *scanner);
VN_API void yy_flush_buffer(struct yy_buffer_state *buffer, void *scanner);

/* The current buffer is the top of a stack. */
VN_API void yy_switch_to_buffer(struct yy_buffer_state *buffer, void *scanner);
VN_API void yypush_buffer_state(struct yy_buffer_state *buffer, void *scanner);
VN_API void yypop_buffer_state(void *scanner);

/* Begins anew with `file` in the current buffer. */
VN_API void yyrestart(FILE *file, void *scanner);

/* The caller's own pointer, kept with the scanner and never looked at. */
VN_API void *yyget_extra(void *scanner);
VN_API void yyset_extra(void *extra, void *scanner);

/*
 * Numbers kept with the current buffer for the caller; the scanner does not count. Setting one
 * without a buffer writes "yyset_lineno called with no buffer" or "yyset_column called with no
 * buffer" to standard error and changes nothing.
 */
VN_API int yyget_lineno(void *scanner);
VN_API void yyset_lineno(int line, void *scanner);
VN_API int yyget_column(void *scanner);
VN_API void yyset_column(int column, void *scanner);

/* Where a scanner without buffers reads from, and a stream that nothing is written to. */
VN_API FILE *yyget_in(void *scanner);
VN_API void yyset_in(FILE *file, void *scanner);
VN_API FILE *yyget_out(void *scanner);
VN_API void yyset_out(FILE *file, void *scanner);

/* The last token as it stands in the buffer, until the next call that reads or changes buffers. */
VN_API char *yyget_text(void *scanner);
VN_API int yyget_leng(void *scanner);

VN_API int yyget_debug(void *scanner);
VN_API void yyset_debug(int flag, void *scanner);

/* Where the next token's value goes. */
VN_API union clparse_lex_value *yyget_lval(void *scanner);
VN_API void yyset_lval(union clparse_lex_value *value, void *scanner);

/* The scanner's memory: the C library's, untracked. `scanner` is not looked at. */
VN_API void *yyalloc(size_t size, void *scanner);
VN_API void *yyrealloc(void *ptr, size_t size, void *scanner);
VN_API void yyfree(void *ptr, void *scanner);

VN_END_DECLS

#endif
