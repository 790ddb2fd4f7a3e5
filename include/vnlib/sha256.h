/*
 * sha256.h - the SHA-256 message digest
 */
#ifndef VNLIB_SHA256_H
#define VNLIB_SHA256_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
