/*
 * sha1.h - the SHA-1 message digest
 */
#ifndef VNLIB_SHA1_H
#define VNLIB_SHA1_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
