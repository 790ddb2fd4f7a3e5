/*
 * vnsock.h - socket helpers, TCP diagnostics, MAC lookup
 */
#ifndef VNLIB_VNSOCK_H
#define VNLIB_VNSOCK_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
