/*
 * hash.h - FNV-1a hashes of buffers and strings, 32 and 64 bits wide
 */
#ifndef VNLIB_HASH_H
#define VNLIB_HASH_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_API uint32_t hash_buf(const void *buffer, uint32_t length);
VN_API uint64_t hash_buf_64(const void *buffer, uint32_t length);
VN_API uint32_t hash_str(const char *text);
VN_API uint64_t hash_str_64(const char *text);

VN_END_DECLS

#endif
