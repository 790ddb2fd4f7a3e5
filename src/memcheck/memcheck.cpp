// memcheck.cpp - tracked allocation; for now every call passes straight through.
#include "vnlib/memcheck.h"

#include <cstdio>
#include <cstdlib>

extern "C" {

void *vn_malloc(size_t size)
{
    return calloc(1, size);
}

void vn_free(void *ptr)
{
    free(ptr);
}

void *vn_memcheck_malloc(vn_alloc_fn alloc, size_t size, const char *, unsigned)
{
    return alloc(size);
}

void vn_memcheck_free(vn_free_fn release, void *ptr, const char *)
{
    release(ptr);
}

void *vn_memcheck_realloc(void *ptr, size_t size, const char *, unsigned)
{
    if (ptr == nullptr) return vn_malloc(size);
    if (size == 0) {
        free(ptr);
        return nullptr;
    }
    return realloc(ptr, size);
}

int memdbg_printf(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    memdbg_vprintf(format, args);
    va_end(args);
    return 0;
}

void memdbg_vprintf(const char *format, va_list args)
{
    vdprintf(1, format, args);
}
}
