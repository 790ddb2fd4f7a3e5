/*
 * vnstrings.h - formatted, growing and escaped strings; hex text, truth values, unit names
 */
#ifndef VNLIB_VNSTRINGS_H
#define VNLIB_VNSTRINGS_H

#include <stdarg.h>
#include <stdbool.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_API int __vn_vasprintf(char **out, const char *site_func, unsigned site_line, const char *format,
                          va_list args) VN_PRINTF(4, 0);
VN_API int __vn_asprintf(char **out, const char *site_func, unsigned site_line, const char *format,
                         ...) VN_PRINTF(4, 5);
VN_API int vn_vaasprintf(char **str, const char *format, va_list args) VN_PRINTF(2, 0);
VN_API int vn_aasprintf(char **str, const char *format, ...) VN_PRINTF(2, 3);
VN_API int replace_char(char **str, const char *replacement, unsigned pos);
VN_API int replace_quotes(char **str);
VN_API int replace_xml_entities(char **str, bool keep_apostrophes);
VN_API int hex_decode(const char *text, uint8_t *out, unsigned max);
VN_API int str2bool(const char *text);
VN_API const char *get_si_unit(uint64_t bytes);

VN_END_DECLS

#endif
