/*
 * base32.h - base32 with an optional check symbol
 */
#ifndef VNLIB_BASE32_H
#define VNLIB_BASE32_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
