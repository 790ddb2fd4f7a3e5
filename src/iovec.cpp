// iovec.cpp - see include/vnlib/iovec.h
#include "vnlib/iovec.h"
