/*
 * vnstrings.h - formatted, growing and escaped strings; hex text, truth values, unit names
 *
 * Every block made here is a tracked block (see memcheck.h): release it with
 * vn_memcheck_free(vn_free, text, "file:line").
 *
 * A growable string is a `char *` of the caller's, passed by its address. It must hold a tracked
 * block with a text in it, at least "". The functions that take one may move the text to another
 * block and store the new address. When one of them answers a negative value, the string is gone:
 * its block has been released and the caller's pointer is null. The one exception is said at
 * replace_char().
 *
 * All functions may be called from any thread; a growable string belongs to one thread at a time.
 */
#ifndef VNLIB_VNSTRINGS_H
#define VNLIB_VNSTRINGS_H

#include <stdarg.h>
#include <stdbool.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

/*
 * Formats like vsprintf into a new block of exactly the needed size, charged to the function
 * `site_func` at line `site_line` (normally the caller's own; the name is kept, not copied).
 *
 * Stores the block in *out and returns the number of characters before the NUL. When the block
 * cannot be had, or the text cannot be formatted, *out is null and the result -1; nothing is
 * logged.
 */
VN_API int __vn_vasprintf(char **out, const char *site_func, unsigned site_line, const char *format,
                          va_list args) VN_PRINTF(4, 0);
VN_API int __vn_asprintf(char **out, const char *site_func, unsigned site_line, const char *format,
                         ...) VN_PRINTF(4, 5);

/*
 * Appends formatted text to the growable string *str; none of the values may point into *str.
 *
 * Returns the number of characters appended. Returns -1 when `str` or *str is null (a string is
 * not created here), and when the memory cannot be had: then the string is gone.
 */
VN_API int vn_vaasprintf(char **str, const char *format, va_list args) VN_PRINTF(2, 0);
VN_API int vn_aasprintf(char **str, const char *format, ...) VN_PRINTF(2, 3);

/*
 * Replaces the one character at index `pos` (counted from 0) of the growable string *str by the
 * text `replacement`, which must not point into *str.
 *
 * Returns the length of `replacement`, so that a scan can go on at pos + result. Returns -1 with
 * the string gone when the memory cannot be had, and -1 with the string untouched when an argument
 * is null or `pos` does not name a character of the text. Should only the copy of the text behind
 * `pos` fail, that text is lost and "(null)" stands in its place; the result is the usual one.
 */
VN_API int replace_char(char **str, const char *replacement, unsigned pos);

/*
 * Puts a backslash before each double quote of the growable string *str. Takes time linear in the
 * length, and no memory when there is nothing to escape.
 *
 * Returns the length of the resulting text, or a negative value when `str` or *str is null or the
 * string is gone for want of memory.
 */
VN_API int replace_quotes(char **str);

/*
 * Replaces < > & " and, unless `keep_apostrophes` is set, ' in the growable string *str by the
 * entities of XML 1.0 (section 4.6, predefined entities). An entity already in the text is escaped
 * again: "&lt;" becomes "&amp;lt;". Cost and results are those of replace_quotes().
 */
VN_API int replace_xml_entities(char **str, bool keep_apostrophes);

/*
 * Reads the hexadecimal text (digits of either case, two for each byte, optionally after "0x") into
 * `out`, at most `max` bytes of it; digits beyond are not looked at. `max` must be at least 1: one
 * byte is stored before the limit is compared.
 *
 * Returns the number of bytes stored, 0 for an empty text, -1 for a null argument, a character that
 * is no digit or an odd number of digits; the bytes before it have been stored then.
 */
VN_API int hex_decode(const char *text, uint8_t *out, unsigned max);

/*
 * Returns 1 when the text is "true", "yes" or "y" (in either case) or "1", and 0 for everything
 * else, a null text included.
 */
VN_API int str2bool(const char *text);

/*
 * Returns the name of the unit, "Bytes", "KiB", "MiB", "GiB", "TiB", "PiB" or "EiB" (IEC 80000-13),
 * in which `bytes` is at least 1 and below 1024; "Bytes" for 0. Shift the count right by ten bits
 * for each step of the unit to get the number to print. The name is constant; do not release it.
 */
VN_API const char *get_si_unit(uint64_t bytes);

VN_END_DECLS

#endif
