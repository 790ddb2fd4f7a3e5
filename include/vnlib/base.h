/*
 * base.h - what every header of the library starts from.
 *
 * All headers are plain C99 and may be included from C++ as well. Each one can be included alone.
 */
#ifndef VNLIB_BASE_H
#define VNLIB_BASE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define VN_BEGIN_DECLS extern "C" {
#define VN_END_DECLS }
#else
#define VN_BEGIN_DECLS
#define VN_END_DECLS
#endif

/* Marks a name that the shared library exports. */
#define VN_API __attribute__((visibility("default")))

/*
 * Lets the compiler check a printf-style call: the format is argument `text`, the values start at
 * argument `first` (0 for a function that takes a va_list). Arguments count from 1.
 */
#define VN_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))

#endif
