/*
 * corelink.h - the corelink configuration language: trees, queries, merges, XML and text
 */
#ifndef VNLIB_CORELINK_H
#define VNLIB_CORELINK_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
