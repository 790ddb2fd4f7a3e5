// list_sort.cpp - see include/vnlib/list_sort.h
#include "vnlib/list_sort.h"
