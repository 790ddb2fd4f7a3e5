/*
 * iovec.h - scatter-gather vectors
 */
#ifndef VNLIB_IOVEC_H
#define VNLIB_IOVEC_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
