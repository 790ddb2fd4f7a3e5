// red_black_tree.cpp - see include/vnlib/red_black_tree.h
#include "vnlib/red_black_tree.h"
