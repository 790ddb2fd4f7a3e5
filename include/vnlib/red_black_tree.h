/*
 * red_black_tree.h - a red-black tree with 64-bit keys
 */
#ifndef VNLIB_RED_BLACK_TREE_H
#define VNLIB_RED_BLACK_TREE_H

#include "vnlib/base.h"

VN_BEGIN_DECLS

VN_END_DECLS

#endif
