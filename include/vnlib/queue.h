/*
 * queue.h - a keyed queue with indexed lists
 */
#ifndef VNLIB_QUEUE_H
#define VNLIB_QUEUE_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
