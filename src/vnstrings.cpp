// vnstrings.cpp - formatted and growing strings in tracked blocks.
#include "vnlib/vnstrings.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "vnlib/memcheck.h"

extern "C" {

int __vn_vasprintf(char **out, const char *site_func, unsigned site_line, const char *format,
                   va_list args)
{
    va_list again;
    va_copy(again, args);
    const int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    *out = nullptr;
    if (length < 0) return -1;
    const size_t size = static_cast<size_t>(length) + 1;
    *out = static_cast<char *>(vn_memcheck_malloc(malloc, size, site_func, site_line));
    if (*out == nullptr) return -1;
    return vsnprintf(*out, size, format, args);
}

int __vn_asprintf(char **out, const char *site_func, unsigned site_line, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int length = __vn_vasprintf(out, site_func, site_line, format, args);
    va_end(args);
    return length;
}
}
