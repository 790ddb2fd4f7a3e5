/*
 * md5.h - the MD5 message digest
 */
#ifndef VNLIB_MD5_H
#define VNLIB_MD5_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
