/*
 * base64.h - base64 with optional line wrapping
 */
#ifndef VNLIB_BASE64_H
#define VNLIB_BASE64_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
