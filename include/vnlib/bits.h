/*
 * bits.h - bit counts, integer logarithms, modular comparison
 */
#ifndef VNLIB_BITS_H
#define VNLIB_BITS_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
