#include "check.h"

#include <stdarg.h>

static int make(char **out, const char *format, ...) VN_PRINTF(2, 3);
static int make(char **out, const char *format, ...)
{
    va_list args;
    int length = 0;
    va_start(args, format);
    length = __vn_vasprintf(out, "make", 1, format, args);
    va_end(args);
    return length;
}

static int append(char **str, const char *format, ...) VN_PRINTF(2, 3);
static int append(char **str, const char *format, ...)
{
    va_list args;
    int length = 0;
    va_start(args, format);
    length = vn_vaasprintf(str, format, args);
    va_end(args);
    return length;
}

int main(void)
{
    char *text = NULL;
    char *absent = NULL;
    uint8_t bytes[4] = {0, 0, 0, 0};

    CHECK(__vn_asprintf(&text, "main", 1, "%s-%d", "ab", 12) == 5);
    CHECK_TEXT(text, "ab-12");
    CHECK(vn_aasprintf(&text, "%c", '!') == 1);
    CHECK(append(&text, "%03x", 0x2au) == 3);
    CHECK_TEXT(text, "ab-12!02a");
    CHECK(replace_char(&text, "PLUS", 2) == 4);
    CHECK_TEXT(text, "abPLUS12!02a");
    vn_memcheck_free(vn_free, text, "strings:1");
    CHECK(vn_aasprintf(&absent, "x") == -1 && vn_aasprintf(NULL, "x") == -1);

    CHECK(make(&text, "say \"hi\"") == 8);
    CHECK(replace_quotes(&text) == 10);
    CHECK_TEXT(text, "say \\\"hi\\\"");
    vn_memcheck_free(vn_free, text, "strings:2");

    CHECK(make(&text, "a<b & 'c'") == 9);
    CHECK(replace_xml_entities(&text, false) == 26);
    CHECK_TEXT(text, "a&lt;b &amp; &apos;c&apos;");
    CHECK(replace_xml_entities(&text, true) > 26);
    vn_memcheck_free(vn_free, text, "strings:3");

    CHECK(hex_decode("0x", bytes, 4) == 0 && hex_decode("0X41", bytes, 4) == -1);
    CHECK(hex_decode("abc", bytes, 4) == -1 && bytes[0] == 0xAB);
    CHECK(hex_decode("DEADbeef", bytes, 2) == 2 && bytes[0] == 0xDE && bytes[1] == 0xAD);
    CHECK(str2bool("YES") == 1 && str2bool("True") == 1 && str2bool("y") == 1 &&
          str2bool("1") == 1);
    CHECK(str2bool("on") == 0 && str2bool("01") == 0 && str2bool("") == 0);
    CHECK_TEXT(get_si_unit(0), "Bytes");
    CHECK_TEXT(get_si_unit(1023), "Bytes");
    CHECK_TEXT(get_si_unit(1024), "KiB");
    CHECK_TEXT(get_si_unit(UINT64_MAX), "EiB");
    return report("strings");
}
