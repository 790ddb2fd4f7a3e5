/*
 * list_sort.h - merge sort of intrusive circular lists
 */
#ifndef VNLIB_LIST_SORT_H
#define VNLIB_LIST_SORT_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
