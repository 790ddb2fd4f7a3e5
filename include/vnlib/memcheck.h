/*
 * memcheck.h - tracked allocation and the live memory debugger
 */
#ifndef VNLIB_MEMCHECK_H
#define VNLIB_MEMCHECK_H

#include <stdarg.h>

#include "vnlib/base.h"

VN_BEGIN_DECLS

typedef void *(*vn_alloc_fn)(size_t size);
typedef void (*vn_free_fn)(void *ptr);
typedef int (*vn_dma_free_fn)(void *ptr, size_t length);

VN_API void *vn_malloc(size_t size);
VN_API void vn_free(void *ptr);
VN_API void *vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *site, unsigned line);
VN_API void vn_memcheck_free(vn_free_fn release, void *ptr, const char *site);
VN_API void *vn_memcheck_realloc(void *ptr, size_t size, const char *site, unsigned line);
VN_API void *vn_dmacheck_malloc(vn_alloc_fn alloc, size_t size, const char *site);
VN_API int vn_dma_free(vn_dma_free_fn release, void *ptr, size_t length, const char *site);
VN_API int vn_memcheck_start(void);
VN_API int vn_memcheck_stop(void);
VN_API int gotoline(int line, const char *text);
VN_API int memdbg_printf(const char *format, ...) VN_PRINTF(1, 2);
VN_API void memdbg_vprintf(const char *format, va_list args) VN_PRINTF(1, 0);

VN_END_DECLS

#endif
