/*
 * sax.h - a streaming XML parser
 */
#ifndef VNLIB_SAX_H
#define VNLIB_SAX_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
