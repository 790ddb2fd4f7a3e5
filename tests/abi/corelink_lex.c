#include "check.h"

/* Releases what the scanner copied for an identifier or a string. */
static void drop(union clparse_lex_value *value)
{
    vn_memcheck_free(vn_free, value->text, "lex:drop");
}

int main(void)
{
    char buffer[] = "ab=1\0"; /* ends in the two zero bytes that a scan buffer needs */
    union clparse_lex_value value;
    union clparse_lex_value other;
    void *scanner = NULL;
    struct yy_buffer_state *first = NULL;
    struct yy_buffer_state *second = NULL;
    FILE *stream = tmpfile();

    CHECK(yylex_init(&scanner) == 0 && scanner != NULL);
    CHECK(yyget_extra(scanner) == NULL);
    yyset_extra(buffer, scanner);
    CHECK(yyget_extra(scanner) == (void *)buffer);
    first = yy_scan_string("count 0x1F \"a\\\"b\" true . x", scanner);
    CHECK(first != NULL);
    CHECK(yylex(&value, scanner) == 258);
    CHECK_TEXT(value.text, "count");
    CHECK_TEXT(yyget_text(scanner), "count");
    CHECK(yyget_leng(scanner) == 5);
    drop(&value);
    CHECK(yylex(&value, scanner) == 260 && value.number == 31);
    CHECK(yylex(&value, scanner) == 259);
    CHECK_TEXT(value.text, "a\\\"b");
    drop(&value);
    CHECK(yylex(&value, scanner) == 261 && value.boolean == 1);
    CHECK(yylex(&value, scanner) == '.' && yylex(&value, scanner) == 263);
    CHECK(yylex(&value, scanner) == 0);
    yyset_lval(&other, scanner);
    CHECK(yyget_lval(scanner) == &other);
    yyset_debug(0, scanner);
    CHECK(yyget_debug(scanner) == 0);
    yyset_lineno(3, scanner);
    CHECK(yyget_lineno(scanner) == 3);
    yyset_column(4, scanner);
    CHECK(yyget_column(scanner) == 4);
    yyset_out(stdout, scanner);
    CHECK(yyget_out(scanner) == stdout);

    second = yy_scan_bytes("7", 1, scanner);
    CHECK(second != NULL && yylex(&value, scanner) == 260 && value.number == 7);
    yy_switch_to_buffer(first, scanner);
    yy_delete_buffer(second, scanner);
    yy_flush_buffer(first, scanner);
    CHECK(yylex(&value, scanner) == 0);
    CHECK(yy_scan_buffer(buffer, 1, scanner) == NULL);
    CHECK(yy_scan_buffer(buffer, sizeof buffer, scanner) != NULL);
    yy_delete_buffer(first, scanner);
    CHECK(yylex(&value, scanner) == 258);
    drop(&value);

    CHECK(stream != NULL);
    fputs("42", stream);
    rewind(stream);
    yyset_in(stream, scanner);
    CHECK(yyget_in(scanner) == stream);
    yypush_buffer_state(yy_create_buffer(stream, 16384, scanner), scanner);
    CHECK(yylex(&value, scanner) == 260 && value.number == 42);
    rewind(stream);
    yyrestart(stream, scanner);
    CHECK(yylex(&value, scanner) == 260 && value.number == 42);
    yypop_buffer_state(scanner);
    CHECK(yylex_destroy(scanner) == 0);
    fclose(stream);

    CHECK(yylex_init_extra(buffer, &scanner) == 0 && yyget_extra(scanner) == (void *)buffer);
    CHECK(yylex_destroy(scanner) == 0);
    {
        void *block = yyalloc(8, NULL);
        block = yyrealloc(block, 16, NULL);
        CHECK(block != NULL);
        yyfree(block, NULL);
    }
    return report("corelink_lex");
}
