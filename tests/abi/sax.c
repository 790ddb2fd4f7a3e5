#include "check.h"

static char seen[1024];

static void note(const char *what, const char *text)
{
    strcat(seen, what);
    strcat(seen, text);
    strcat(seen, ";");
}

static void on_start(const char *name, const struct sax_attribute *attributes, void *user)
{
    CHECK(user == seen);
    note("start ", name);
    for (; attributes != NULL; attributes = attributes->next) {
        note(" name ", attributes->name);
        note(" value ", attributes->value);
    }
}

static void on_end(const char *name, void *user)
{
    CHECK(user == seen);
    note("end ", name);
}

static void on_text(const char *text, size_t length, void *user)
{
    CHECK(user == seen && length == strlen(text));
    note("text ", text);
}

static void on_comment(const char *text, void *user)
{
    CHECK(user == seen);
    note("comment ", text);
}

static void on_error(const char *message, void *user)
{
    CHECK(user == seen);
    note("error ", message);
}

static int parse(const char *document, const char *expected)
{
    struct sax_callbacks callbacks;
    FILE *stream = tmpfile();
    int result = 0;
    if (stream == NULL) return -2;
    memset(&callbacks, 0, sizeof callbacks);
    callbacks.start_element = on_start;
    callbacks.end_element = on_end;
    callbacks.text = on_text;
    callbacks.comment = on_comment;
    callbacks.error = on_error;
    seen[0] = '\0';
    fputs(document, stream);
    rewind(stream);
    result = sax_parse_file(stream, &callbacks, seen);
    fclose(stream);
    CHECK_TEXT(seen, expected);
    return result;
}

/* Wherever the C library keeps the characters, the stream is left behind the last one acted on. */
static FILE *stream_read;
static char stream_buffer[64];

static void read_three(const char *name, const struct sax_attribute *attributes, void *user)
{
    on_start(name, attributes, user);
    CHECK(getc(stream_read) == 'r' && getc(stream_read) == '<' && getc(stream_read) == '>');
}

static void leaves_the_stream_in_place(int mode, size_t size)
{
    char rest[8] = "";
    struct sax_callbacks callbacks;
    memset(&callbacks, 0, sizeof callbacks);
    callbacks.start_element = read_three;
    callbacks.text = on_text;
    callbacks.error = on_error;
    stream_read = tmpfile();
    if (stream_read == NULL) return;
    fputs("<aa long=\"value of an attribute\">r<>one\ntwo of a line that is long<b>r<>>rest",
          stream_read);
    rewind(stream_read);
    setvbuf(stream_read, stream_buffer, mode, size);
    CHECK(ungetc('<', stream_read) == '<' && getc(stream_read) == '<');
    CHECK(ungetc(' ', stream_read) == ' '); /* in front of all */
    seen[0] = '\0';
    CHECK(sax_parse_file(stream_read, &callbacks, seen) == -1);
    CHECK_TEXT(seen, "text  ;start aa; name long; value value of an attribute;"
                     "text one\ntwo of a line that is long;start b;error Invalid XML Document;");
    CHECK(fgets(rest, sizeof rest, stream_read) != NULL);
    CHECK_TEXT(rest, "rest");
    fclose(stream_read);
}

int main(void)
{
    size_t size;
    for (size = 1; size <= sizeof stream_buffer; ++size) leaves_the_stream_in_place(_IOFBF, size);
    leaves_the_stream_in_place(_IONBF, 0);
    CHECK(parse("<a x=\"1\" y=\"2\">hi</a>",
                "start a; name y; value 2; name x; value 1;text hi;end a;") == 0);
    CHECK(parse("<br/>", "start br;end br;") == 0);
    CHECK(parse("<!-- hi -->", "comment  hi -;") == 0);
    CHECK(parse("<?xml version=\"1.0\"?>", "error Unsupported XML Encountered;") == -1);
    CHECK(parse("a > b", "error Invalid XML Document;") == -1);
    CHECK(parse("<a\tb=\"1\">",
                "error Invalid XML Document: Invalid State (2: 0x09) on line 0.;") == -1);
    CHECK(parse("<a>&amp;&lt;</a>", "start a;text &;end a;") == 0);
    CHECK(parse("<a", "") == 0);
    CHECK(state_machine[0].state == 0 && state_machine[0].ch == '<');
    CHECK(state_machine[0].next == 1 && state_machine[0].action == 8);
    CHECK(state_machine[50].state == 15 && state_machine[50].action == 13);
    CHECK(state_machine[5].ch == 'a' && state_machine[5].ch_last == 'z');
    return report("sax");
}
