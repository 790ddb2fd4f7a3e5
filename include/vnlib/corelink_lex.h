/*
 * corelink_lex.h - the corelink scanner's own interface
 */
#ifndef VNLIB_CORELINK_LEX_H
#define VNLIB_CORELINK_LEX_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
