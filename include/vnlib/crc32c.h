/*
 * crc32c.h - CRC-32C over buffers and vectors
 */
#ifndef VNLIB_CRC32C_H
#define VNLIB_CRC32C_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
